// Inside this folder: a call on a socket that a signal has interrupted goes on with what is left of the time-out among
// the socket's options (SO_RCVTIMEO, SO_SNDTIMEO). The kernel would count the whole span again.
#pragma once

#include <poll.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstdint>

#include "platform/core/clock.h"

namespace platform {

struct call_limit {
    int descriptor;
    int option;   // SO_RCVTIMEO or SO_SNDTIMEO
    short events; // POLLIN or POLLOUT
};

// Waits after an interruption: false, with errno EAGAIN, once the time-out has passed since `start_ms` on the coarse
// clock. Without a time-out there is no wait, and `has_limit` becomes false.
bool wait_for_the_rest(const call_limit& of, int64_t start_ms, bool& has_limit);

// Makes call(flags) until it is not interrupted. After a wait it must not block: the flags are then MSG_DONTWAIT.
template <class Call>
auto resumed(const call_limit& of, Call call) {
    const int64_t start_ms = coarse_now_ms();
    bool has_limit = false;
    auto result = call(0);
    while (result < 0 && (errno == EINTR || (has_limit && errno == EAGAIN))) {
        if (!wait_for_the_rest(of, start_ms, has_limit))
            break;
        result = call(has_limit ? MSG_DONTWAIT : 0);
    }
    return result;
}

} // namespace platform
