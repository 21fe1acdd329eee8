// Signals that are held back around a call.
#include "platform/core/signals.h"

#include <pthread.h>
#include <signal.h>
#include <time.h>

#include "platform/api/text.h"

namespace platform {

namespace {

sigset_t set_of(int signal) {
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, signal);
    return set;
}

} // namespace

signal_state hold_signal_back(int signal) {
    sigset_t waiting;
    sigemptyset(&waiting);
    sigpending(&waiting);
    if (sigismember(&waiting, signal) == 1)
        return {true, true}; // a pending signal is a blocked one
    const sigset_t set = set_of(signal);
    sigset_t before;
    const bool changed = pthread_sigmask(SIG_BLOCK, &set, &before) == 0;
    return {!changed || sigismember(&before, signal) == 1, false};
}

void restore_signal(int signal, signal_state before) {
    if (before.pending)
        return;
    const int error = errno;
    const sigset_t set = set_of(signal);
    const timespec at_once{};
    while (sigtimedwait(&set, nullptr, &at_once) == -1 && errno == EINTR) {}
    if (!before.blocked)
        pthread_sigmask(SIG_UNBLOCK, &set, nullptr);
    errno = error;
}

quiet_pipes::quiet_pipes() {
    const signal_state before = hold_signal_back(SIGPIPE);
    blocked_ = before.blocked;
    pending_ = before.pending;
}

quiet_pipes::~quiet_pipes() {
    restore_signal(SIGPIPE, {blocked_, pending_});
}

} // namespace platform
