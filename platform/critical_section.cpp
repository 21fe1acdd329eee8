// Thread locks: a futex lock that its owner may enter again, in the caller's storage.
#include <pthread.h>

#include <atomic>
#include <new>

#include "platform/api/threads.h"
#include "platform/futex.h"

namespace platform {

namespace {

constexpr uint32_t is_free = 0;
constexpr uint32_t is_held = 1;
constexpr uint32_t is_contended = 2; // held, and somebody may sleep

constexpr int spins_before_sleep = 100;

// Unlike a thread identifier, the thread's own address costs no look-up, and a forked child's thread keeps it: it
// still owns the locks that it held when it forked.
uintptr_t this_thread() {
    return reinterpret_cast<uintptr_t>(reinterpret_cast<void*>(pthread_self()));
}

// Acquire: what the owner before us wrote under the lock is seen.
bool try_enter(CRITICAL_SECTION& section) {
    uint32_t expected = is_free;
    return section.state.compare_exchange_strong(expected, is_held, std::memory_order_acquire,
                                                 std::memory_order_relaxed);
}

void enter_slowly(CRITICAL_SECTION& section) {
    if (has_several_processors()) {
        for (int i = 0; i < spins_before_sleep; ++i) {
            relax();
            if (section.state.load(std::memory_order_relaxed) == is_free && try_enter(section))
                return;
        }
    }
    // Taken as contended: others may sleep besides us, and one wake too many is harmless.
    while (section.state.exchange(is_contended, std::memory_order_acquire) != is_free)
        sleep_on(&section.state, is_contended, deadline(INFINITE));
}

} // namespace

void InitializeCriticalSection(CRITICAL_SECTION* section) {
    new (section) CRITICAL_SECTION{};
}

void EnterCriticalSection(CRITICAL_SECTION* section) {
    const uintptr_t self = this_thread();
    // Relaxed: only this thread ever writes its own address here, so what it reads equals it only when it is true.
    if (section->owner.load(std::memory_order_relaxed) == self) {
        ++section->depth;
        return;
    }
    if (!try_enter(*section))
        enter_slowly(*section);
    section->owner.store(self, std::memory_order_relaxed);
    section->depth = 1;
}

void LeaveCriticalSection(CRITICAL_SECTION* section) {
    if (--section->depth != 0)
        return;
    section->owner.store(0, std::memory_order_relaxed);
    // Release: the next owner sees what was written under the lock. The storage may be gone after it.
    if (section->state.exchange(is_free, std::memory_order_release) == is_contended)
        wake_on(&section->state, 1);
}

void DeleteCriticalSection(CRITICAL_SECTION*) {}

} // namespace platform
