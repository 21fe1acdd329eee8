// Inside this folder: a lock that calls share and that a fork takes alone. The forked child can reset it.
#pragma once

#include <atomic>
#include <climits>

#include "platform/api/threads.h"
#include "platform/core/futex.h"

namespace platform {

// pthread_rwlock_t would not do: it knows its writer by the thread's number, and the child's thread has another one.
// The word counts the calls in its lower half and the forks in its upper half. A call waits while a fork is wanted or
// under way, a fork until no call is left.
class fork_lock {
public:
    void lock_shared() {
        uint32_t now = word_.load(std::memory_order_relaxed);
        for (;;) {
            if (now >= one_fork) {
                sleep_on(&word_, now, deadline(INFINITE));
                now = word_.load(std::memory_order_relaxed);
            } else if (word_.compare_exchange_weak(now, now + 1, std::memory_order_acquire,
                                                   std::memory_order_relaxed)) {
                return; // acquire: what the fork before this call has done is seen
            }
        }
    }

    void unlock_shared() {
        // Release: the fork that waits sees what the call has done.
        const uint32_t left = word_.fetch_sub(1, std::memory_order_release) - 1;
        if (left >= one_fork && left % one_fork == 0)
            wake_on(&word_, INT_MAX);
    }

    void lock() {
        uint32_t now = word_.fetch_add(one_fork, std::memory_order_acquire) + one_fork;
        while (now % one_fork != 0) {
            sleep_on(&word_, now, deadline(INFINITE));
            now = word_.load(std::memory_order_acquire);
        }
    }

    void unlock() {
        word_.fetch_sub(one_fork, std::memory_order_release);
        wake_on(&word_, INT_MAX);
    }

    // In the child, where neither a call nor another fork is left.
    void start_anew() { word_.store(0, std::memory_order_relaxed); }

private:
    static constexpr uint32_t one_fork = 1u << 16;

    std::atomic<uint32_t> word_{0};
};

} // namespace platform
