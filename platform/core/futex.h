// Inside the layer: sleeping on a word of memory, deadlines, and the small lock that guards the layer's own records.
#pragma once

#include <sys/syscall.h>

#include <atomic>
#include <ctime>

#include "platform/api/base.h"

namespace platform {

// The number of the kernel's call. Where long has 32 bits, the older call would read only half of a timespec's seconds.
#ifdef SYS_futex_time64
constexpr long futex_call = SYS_futex_time64;
#else
constexpr long futex_call = SYS_futex;
#endif

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

// Spinning until another processor changes a word, in turns that double in length. During a long turn the word stays in
// the other processor's cache, which can change it many times. Short turns would move it between the two caches for
// every single change.
class backoff {
public:
    // All turns together take about as long as falling asleep and being woken.
    static constexpr uint8_t turns_at_most = 9;
    static constexpr uint8_t turns_at_least = 2;

    explicit backoff(unsigned turns = turns_at_most) : left_(turns) {}

    // Waits for one turn. False when spinning does not pay (any more): sleep.
    bool turn();

private:
    unsigned left_;
    unsigned next_length_ = 1;
};

// Locks of one word, for records that are locked for a few instructions at a time. The word may be gone as soon as
// the last holder has unlocked it, even before that call has returned.
//
// A free lock goes to whoever comes first, which is mostly a thread that runs: so it is fast, and a thread that gives
// the lock up and takes it again at once overtakes the one it has just woken. A thread that has been overtaken for a
// millisecond therefore marks the lock, and the next holder hands it over instead of freeing it.
namespace lock_word {

inline constexpr uint32_t is_free = 0;
inline constexpr uint32_t is_held = 1;
inline constexpr uint32_t is_contended = 2; // held, and somebody may sleep
inline constexpr uint32_t is_starving = 3;  // held, and to be handed over
inline constexpr uint32_t is_handed = 4;    // free for those that have slept

void lock_slowly(std::atomic<uint32_t>& word);
void unlock_slowly(std::atomic<uint32_t>& word);

inline bool try_lock(std::atomic<uint32_t>& word) {
    uint32_t expected = is_free;
    // Acquire: what the holder before us wrote under the lock is seen.
    return word.compare_exchange_strong(expected, is_held, std::memory_order_acquire,
                                        std::memory_order_relaxed);
}

inline void lock(std::atomic<uint32_t>& word) {
    if (!try_lock(word)) [[unlikely]]
        lock_slowly(word);
}

inline void unlock(std::atomic<uint32_t>& word) {
    uint32_t expected = is_held;
    // Release: the next holder sees what was written under the lock. Nothing of the word is read after it.
    if (!word.compare_exchange_strong(expected, is_free, std::memory_order_release,
                                      std::memory_order_relaxed)) [[unlikely]]
        unlock_slowly(word);
}

} // namespace lock_word

} // namespace platform
