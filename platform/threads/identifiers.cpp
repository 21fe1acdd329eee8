// The identifiers of process and thread.
#include <pthread.h>
#include <unistd.h>

#include <atomic>

#include "platform/api/threads.h"

namespace platform {

namespace {

// The kernel is asked once; a forked child asks again. 0 means not known. The TLS model is initial-exec, since a
// look-up through the loader would cost more than the call that it saves. It takes four bytes of the loader's spare
// static TLS.
std::atomic<DWORD> process_identifier{0};
[[gnu::tls_model("initial-exec")]] constinit thread_local DWORD thread_identifier = 0;

void forget_identifiers() {
    process_identifier.store(0, std::memory_order_relaxed);
    thread_identifier = 0;
}

// Where the child's handler cannot be installed, nothing may be remembered.
bool child_forgets() {
    static const bool installed = pthread_atfork(nullptr, nullptr, forget_identifiers) == 0;
    return installed;
}

} // namespace

DWORD GetCurrentProcessId() {
    const DWORD known = process_identifier.load(std::memory_order_relaxed);
    if (known != 0)
        return known;
    const DWORD asked = static_cast<DWORD>(getpid());
    if (child_forgets())
        process_identifier.store(asked, std::memory_order_relaxed);
    return asked;
}

DWORD GetCurrentThreadId() {
    if (thread_identifier != 0)
        return thread_identifier;
    const DWORD asked = static_cast<DWORD>(gettid());
    if (child_forgets())
        thread_identifier = asked;
    return asked;
}

} // namespace platform
