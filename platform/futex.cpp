// Sleeping on a word of memory: the kernel's futex, with deadlines on the monotonic clock.
#include "platform/futex.h"

#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <climits>

namespace platform {

namespace {

constexpr DWORD infinite = 0xFFFFFFFF;
constexpr long nanoseconds_per_second = 1'000'000'000;
constexpr long nanoseconds_per_millisecond = 1'000'000;

constexpr int spins_for_a_lock = 100; // longer than a record stays locked, shorter than falling asleep

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
    const long result = syscall(SYS_futex, word, FUTEX_WAIT_BITSET_PRIVATE, expected, until.moment(), nullptr,
                                FUTEX_BITSET_MATCH_ANY);
    return result == 0 || errno != ETIMEDOUT;
}

void wake_on(const std::atomic<uint32_t>* word, int count) {
    syscall(SYS_futex, word, FUTEX_WAKE_PRIVATE, count);
}

bool has_several_processors() {
    static const bool several = sysconf(_SC_NPROCESSORS_ONLN) > 1;
    return several;
}

void futex_lock::lock_slowly() {
    if (has_several_processors()) {
        for (int i = 0; i < spins_for_a_lock; ++i) {
            uint32_t expected = free;
            if (word_.load(std::memory_order_relaxed) == free
                && word_.compare_exchange_weak(expected, held, std::memory_order_acquire,
                                               std::memory_order_relaxed))
                return;
            relax();
        }
    }
    // Taken as contended: others may sleep besides us, and one wake too many is harmless.
    while (word_.exchange(contended, std::memory_order_acquire) != free)
        sleep_on(&word_, contended, deadline(infinite));
}

} // namespace platform
