// Inside the layer: sleeping on a word of memory, deadlines, and the small lock that guards the layer's own records.
#pragma once

#include <atomic>
#include <ctime>

#include "platform/api/base.h"

namespace platform {

// A moment on the monotonic clock, a number of milliseconds from now; INFINITE never comes. Every other number is
// finite: 0xFFFFFFFE milliseconds are 49.7 days.
class deadline {
public:
    explicit deadline(DWORD milliseconds);

    const timespec* moment() const { return never_ ? nullptr : &moment_; } // null: never
    bool has_passed() const;
    // The earlier of this deadline and a number of milliseconds from now.
    deadline within(DWORD milliseconds) const;

private:
    timespec moment_{};
    bool never_;
};

// Sleeps while the word holds the expected value. False once the deadline has passed; true tells nothing: it also
// comes for an interruption or a stray wake, so look at the word again.
bool sleep_on(const std::atomic<uint32_t>* word, uint32_t expected, const deadline& until);

// Wakes up to `count` threads of this process that sleep on the word. Only the address is used, so it is safe when
// the word's memory has been released since.
void wake_on(const std::atomic<uint32_t>* word, int count);

// Whether spinning can pay: another processor may run the thread that is waited for.
bool has_several_processors();

// One turn of a spinning loop.
inline void relax() {
#if defined(__x86_64__) || defined(__i386__)
    __builtin_ia32_pause();
#elif defined(__aarch64__) || defined(__arm__)
    asm volatile("yield");
#endif
}

// A lock of one word, for records that are locked for a few instructions at a time. It may be destroyed as soon as
// the last holder has called unlock, even before that call has returned.
class futex_lock {
public:
    void lock() {
        uint32_t expected = free;
        // Acquire, here and below: what the holder before us wrote under the lock is seen.
        if (!word_.compare_exchange_strong(expected, held, std::memory_order_acquire,
                                           std::memory_order_relaxed))
            lock_slowly();
    }

    void unlock() {
        // Release: the next holder sees what was written under the lock. Nothing of the lock is read after it.
        if (word_.exchange(free, std::memory_order_release) == contended)
            wake_on(&word_, 1);
    }

private:
    static constexpr uint32_t free = 0;
    static constexpr uint32_t held = 1;
    static constexpr uint32_t contended = 2; // held, and somebody may sleep

    void lock_slowly();

    std::atomic<uint32_t> word_{free};
};

} // namespace platform
