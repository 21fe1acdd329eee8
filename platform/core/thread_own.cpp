// The end of a thread: what it owns is released, through one key for all kinds of objects.
#include "platform/core/thread_own.h"

#include "platform/core/thread_end.h"

namespace platform {

namespace {

constinit std::atomic<owned_kind*> kinds{nullptr};

void release_all(void*) {
    for (owned_kind* kind = kinds.load(std::memory_order_acquire); kind; kind = kind->next)
        kind->release();
}

pthread_key_t ending_key() {
    static const pthread_key_t key = key_for_thread_end(release_all);
    return key;
}

} // namespace

void release_at_thread_end(owned_kind& kind) {
    if (!kind.is_listed.exchange(true, std::memory_order_relaxed)) {
        kind.next = kinds.load(std::memory_order_relaxed);
        while (!kinds.compare_exchange_weak(kind.next, &kind, std::memory_order_release)) {}
    }
    // Any value but null has release_all called. When that sets the key again, it is called again.
    pthread_setspecific(ending_key(), &kinds);
}

} // namespace platform
