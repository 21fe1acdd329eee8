// The rest of a socket's time-out after a signal.
#include "platform/sockets/interrupted.h"

#include <sys/time.h>

#include <algorithm>
#include <climits>

namespace platform {

namespace {

constexpr int64_t coarse_tick_ms = 10; // the most that the coarse clock is behind; no wait may end early

// A socket's time-out in milliseconds; 0 for none.
int64_t timeout_of(int descriptor, int option) {
    timeval span{};
    socklen_t size = sizeof span;
    if (getsockopt(descriptor, SOL_SOCKET, option, &span, &size) != 0)
        return 0;
    return int64_t{span.tv_sec} * 1000 + (span.tv_usec + 999) / 1000;
}

} // namespace

bool wait_for_the_rest(const call_limit& of, int64_t start_ms, bool& has_limit) {
    const int64_t span_ms = timeout_of(of.descriptor, of.option);
    has_limit = span_ms > 0;
    while (has_limit) {
        const int64_t left_ms = start_ms + span_ms + coarse_tick_ms - coarse_now_ms();
        pollfd watched{of.descriptor, of.events, 0};
        if (left_ms > 0 && poll(&watched, 1, static_cast<int>(std::min<int64_t>(left_ms, INT_MAX))) > 0)
            return true;
        if (left_ms <= 0) {
            errno = EAGAIN;
            return false;
        }
    }
    return true;
}

} // namespace platform
