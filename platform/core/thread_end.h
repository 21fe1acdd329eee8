// Inside the layer: a function that is called at the end of each thread that has set a value for it.
#pragma once

#include <pthread.h>

#include <climits>

namespace platform {

// The function runs after the destructors of the thread's variables, and also when the thread's body ends the thread
// instead of returning. Where the C library has no key left, setting a value fails.
inline pthread_key_t key_for_thread_end(void (*at_end)(void* value)) {
    pthread_key_t made;
    return pthread_key_create(&made, at_end) == 0 ? made : static_cast<pthread_key_t>(PTHREAD_KEYS_MAX);
}

} // namespace platform
