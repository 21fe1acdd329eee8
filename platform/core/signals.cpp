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
    const sigset_t set = set_of(signal);
    sigset_t before, waiting;
    const bool changed = pthread_sigmask(SIG_BLOCK, &set, &before) == 0;
    if (changed && sigismember(&before, signal) != 1)
        return {false, false}; // only a signal that was blocked before can have been pending
    sigemptyset(&waiting);
    sigpending(&waiting);
    return {true, sigismember(&waiting, signal) == 1};
}

void restore_signal(int signal, signal_state before, bool may_have_come) {
    const int error = errno;
    const sigset_t set = set_of(signal);
    const timespec at_once{};
    if (may_have_come && !before.pending)
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
    restore_signal(SIGPIPE, {blocked_, pending_}, may_have_come_);
}

} // namespace platform
