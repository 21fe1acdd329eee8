// Inside the layer: a signal that a call of this thread may raise against itself is held back, and taken before anybody
// sees it. SIGPIPE and SIGXFSZ would end the process; the call's errno tells the same.
#pragma once

#include <cerrno>

namespace platform {

// How a signal stood for this thread before it was held back.
struct signal_state {
    bool blocked = false;
    bool pending = false; // it was there before, so it is not ours to take
};

signal_state hold_signal_back(int signal);

// Takes the signal if it has come, and puts its state back. Leaves errno alone. A call that has not failed has raised
// none; then there is nothing to look for.
void restore_signal(int signal, signal_state before, bool may_have_come);

// Holds a signal back for the length of a call, whose result and errno it gives.
template <class Call>
auto without_signal(int signal, Call call) {
    const signal_state before = hold_signal_back(signal);
    const auto result = call();
    restore_signal(signal, before, result < 0);
    return result;
}

} // namespace platform
