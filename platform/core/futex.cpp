// Sleeping on a word of memory: the kernel's futex, with deadlines on the monotonic clock.
#include "platform/core/futex.h"

#include <linux/futex.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

namespace platform {

namespace {

constexpr DWORD infinite = 0xFFFFFFFF;
constexpr long nanoseconds_per_second = 1'000'000'000;
constexpr long nanoseconds_per_millisecond = 1'000'000;

constexpr long nanoseconds_of_first_turn = 25;
constexpr DWORD longest_overtaking_ms = 1;

bool is_earlier(const timespec& a, const timespec& b) {
    return a.tv_sec != b.tv_sec ? a.tv_sec < b.tv_sec : a.tv_nsec < b.tv_nsec;
}

} // namespace

deadline::deadline(DWORD milliseconds) : never_(milliseconds == infinite) {
    if (never_)
        return;
    clock_gettime(CLOCK_MONOTONIC, &moment_);
    moment_.tv_sec += milliseconds / 1000;
    moment_.tv_nsec += static_cast<long>(milliseconds % 1000) * nanoseconds_per_millisecond;
    if (moment_.tv_nsec >= nanoseconds_per_second) {
        moment_.tv_nsec -= nanoseconds_per_second;
        ++moment_.tv_sec;
    }
}

bool deadline::has_passed() const {
    if (never_)
        return false;
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return !is_earlier(now, moment_);
}

deadline deadline::within(DWORD milliseconds) const {
    const deadline limit(milliseconds);
    return never_ || is_earlier(limit.moment_, moment_) ? limit : *this;
}

bool sleep_on(const std::atomic<uint32_t>* word, uint32_t expected, const deadline& until) {
    // The bitset form is the one that takes an absolute time on the monotonic clock.
    const long result = syscall(futex_call, word, FUTEX_WAIT_BITSET_PRIVATE, expected, until.moment(),
                                nullptr, FUTEX_BITSET_MATCH_ANY);
    return result == 0 || errno != ETIMEDOUT;
}

void wake_on(const std::atomic<uint32_t>* word, int count) {
    syscall(futex_call, word, FUTEX_WAKE_PRIVATE, count);
}

namespace {

void pause_processor() {
#if defined(__x86_64__) || defined(__i386__)
    __builtin_ia32_pause();
#elif defined(__aarch64__) || defined(__arm__)
    asm volatile("yield");
#endif
}

bool has_several_processors() {
    static const bool several = sysconf(_SC_NPROCESSORS_ONLN) > 1;
    return several;
}

// The pause instruction takes from a few nanoseconds to more than a hundred, depending on the processor.
unsigned pauses_in_first_turn() {
    static const unsigned measured = [] {
        constexpr long sample = 64;
        timespec before, after;
        clock_gettime(CLOCK_MONOTONIC, &before);
        for (long i = 0; i < sample; ++i)
            pause_processor();
        clock_gettime(CLOCK_MONOTONIC, &after);
        const long taken =
            (after.tv_sec - before.tv_sec) * nanoseconds_per_second + after.tv_nsec - before.tv_nsec;
        return static_cast<unsigned>(
            std::clamp(sample * nanoseconds_of_first_turn / std::max(taken, 1L), 1L, 250L));
    }();
    return measured;
}

} // namespace

bool backoff::turn() {
    if (left_ == 0 || !has_several_processors())
        return false;
    for (unsigned i = pauses_in_first_turn() * next_length_; i > 0; --i)
        pause_processor();
    --left_;
    next_length_ *= 2;
    return true;
}

void lock_word::lock_slowly(std::atomic<uint32_t>& word) {
    for (backoff waiting; waiting.turn();) {
        if (word.load(std::memory_order_relaxed) == is_free && try_lock(word))
            return;
    }
    const deadline patience(longest_overtaking_ms);
    bool has_slept = false;
    for (;;) {
        uint32_t state = word.load(std::memory_order_relaxed);
        if (state == is_free || (state == is_handed && has_slept)) {
            // We take the lock as contended: others may sleep besides us, and one wake too many is harmless.
            // Acquire: as in try_lock.
            if (word.compare_exchange_weak(state, is_contended, std::memory_order_acquire,
                                           std::memory_order_relaxed))
                return;
            continue;
        }
        const uint32_t wanted = has_slept && patience.has_passed() ? is_starving : is_contended;
        if (state < wanted && !word.compare_exchange_weak(state, wanted, std::memory_order_relaxed))
            continue;
        sleep_on(&word, std::max(state, wanted), deadline(infinite));
        has_slept = true;
    }
}

void lock_word::unlock_slowly(std::atomic<uint32_t>& word) {
    // Another thread may turn contended into starving meanwhile.
    uint32_t state = word.load(std::memory_order_relaxed);
    // Release: as in unlock.
    while (!word.compare_exchange_weak(state, state == is_starving ? is_handed : is_free,
                                       std::memory_order_release, std::memory_order_relaxed)) {}
    // A lock that is handed over goes to the thread that this call wakes, or to another that has slept already. One
    // of them will come: the thread that marked the lock as starving is asleep, or about to try again.
    wake_on(&word, 1);
}

} // namespace platform
