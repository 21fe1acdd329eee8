// Thread locks: a futex lock that its owner may enter again, in the caller's storage.
#include <atomic>
#include <new>

#include "platform/api/threads.h"
#include "platform/core/futex.h"
#include "platform/threads/thread_serial.h"

namespace platform {

void InitializeCriticalSection(CRITICAL_SECTION* section) {
    new (section) CRITICAL_SECTION{};
}

void EnterCriticalSection(CRITICAL_SECTION* section) {
    const uintptr_t self = thread_serial();
    // Relaxed: only this thread ever writes its own number here, so what it reads equals it only when it is true.
    if (section->owner.load(std::memory_order_relaxed) == self) {
        ++section->depth;
        return;
    }
    lock_word::lock(section->state);
    section->owner.store(self, std::memory_order_relaxed);
    section->depth = 1;
}

void LeaveCriticalSection(CRITICAL_SECTION* section) {
    if (--section->depth != 0)
        return;
    section->owner.store(0, std::memory_order_relaxed);
    lock_word::unlock(section->state); // the storage may be gone after it
}

void DeleteCriticalSection(CRITICAL_SECTION*) {}

} // namespace platform
