// Waiting for readiness: one engine on poll, and the platform's rules of what is ready.
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cerrno>
#include <climits>
#include <cstring>
#include <ctime>
#include <span>
#include <vector>

#include "platform/sockets/socket_error.h"
#include "platform/sockets/socket_state.h"

namespace platform {

namespace {

enum readiness : unsigned { none = 0, readable = 1, writable = 2, in_error = 4 };

struct watched_socket {
    int descriptor;
    unsigned wanted;
    unsigned ready; // those of `wanted` that hold
};

short events_for(unsigned wanted) {
    return static_cast<short>((wanted & readable ? POLLIN : 0) | (wanted & writable ? POLLOUT : 0)
                              | (wanted & in_error ? POLLPRI : 0));
}

// poll reports a socket that hangs up or has an error whatever was asked. On the platform, one that has never been
// connected is not ready, a failed attempt is an error and nothing else, and a lost connection can be read from and
// written to: that is how its loss is learned.
unsigned readiness_of(int descriptor, short events) {
    if (!(events & (POLLHUP | POLLERR)))
        return (events & POLLIN ? readable : none) | (events & POLLOUT ? writable : none)
               | (events & POLLPRI ? in_error : none);
    switch (stream_state_of(descriptor)) {
    case stream_state::fresh: return none;
    case stream_state::failed: return in_error;
    default: return readable | writable;
    }
}

// ---- Deadlines -------------------------------------------------------------------------------------------------

constexpr int64_t never = INT64_MAX;

// Poll reports a never connected socket at once, each time, though it is not ready by the platform's rules. Such a
// socket is left out of the wait for this long, then asked again: another thread may connect it.
constexpr int64_t pause_ms = 20;

int64_t now_ns() {
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec * int64_t{1'000'000'000} + now.tv_nsec;
}

// A time-out in whole milliseconds, as poll counts, rounded up. One too long to count has no end.
int64_t span_of(const timeval* timeout) {
    int64_t milliseconds;
    if (!timeout || __builtin_mul_overflow(int64_t{timeout->tv_sec}, 1000, &milliseconds)
        || __builtin_add_overflow(milliseconds, (int64_t{timeout->tv_usec} + 999) / 1000, &milliseconds))
        return never;
    return milliseconds;
}

// Counts a span down. The clock is read when the wait ends without a result, which is seldom.
class countdown {
public:
    explicit countdown(int64_t span_ms) : left_ms_(span_ms), start_ns_(span_ms > 0 ? now_ns() : 0) {}

    // The argument for poll, which takes a span that is too long for it in parts.
    int for_poll(bool pausing) const {
        if (left_ms_ == never && !pausing)
            return -1;
        return static_cast<int>(std::min({left_ms_, pausing ? pause_ms : never, int64_t{INT_MAX}}));
    }

    bool is_over() {
        if (left_ms_ == never || left_ms_ == 0)
            return left_ms_ == 0;
        const int64_t passed_ms = (now_ns() - start_ns_) / 1'000'000;
        start_ns_ += passed_ms * 1'000'000;
        left_ms_ -= std::min(passed_ms, left_ms_);
        return left_ms_ == 0;
    }

private:
    int64_t left_ms_;
    int64_t start_ns_; // when left_ms_ was right
};

// ---- The engine ------------------------------------------------------------------------------------------------

// Returns how many of the wanted conditions hold, 0 at the deadline, or -1 with the code.
int wait_for(std::span<watched_socket> sockets, std::span<pollfd> polled, const timeval* timeout) {
    countdown left(span_of(timeout));
    bool pausing = false;
    for (;;) {
        const int reported = poll(polled.data(), polled.size(), left.for_poll(pausing));
        if (reported < 0 && errno != EINTR)
            return socket_failure(code_of_socket_errno(errno));
        int ready = 0;
        bool useless_reports = false;
        for (size_t i = 0; i < sockets.size(); ++i) {
            const short events = reported > 0 && polled[i].fd >= 0 ? polled[i].revents : short{0};
            if (events & POLLNVAL)
                return socket_failure(WSAENOTSOCK);
            sockets[i].ready =
                events ? readiness_of(sockets[i].descriptor, events) & sockets[i].wanted : none;
            ready += std::popcount(sockets[i].ready);
            const bool useless = events && !sockets[i].ready;
            polled[i].fd = useless ? -1 : sockets[i].descriptor;
            useless_reports |= useless;
        }
        if (ready > 0)
            return ready;
        if (left.is_over())
            return 0;
        pausing = useless_reports;
    }
}

// Whether the arguments allow a wait; else the code is set.
bool may_wait(bool any_socket, const timeval* timeout) {
    if (!sockets_started())
        return false;
    if (any_socket && (!timeout || (timeout->tv_sec >= 0 && timeout->tv_usec >= 0)))
        return true;
    SetLastError(WSAEINVAL);
    return false;
}

// ---- The host's sets -------------------------------------------------------------------------------------------

// Calls `visit` with every member; the bits are read a word at a time.
template <class Visit>
void for_each_member(const fd_set& set, Visit visit) {
    using word = unsigned long;
    constexpr int word_bits = sizeof(word) * 8;
    std::array<word, sizeof(fd_set) / sizeof(word)> words;
    std::memcpy(words.data(), &set, sizeof set);
    for (size_t i = 0; i < words.size(); ++i) {
        for (word rest = words[i]; rest != 0; rest &= rest - 1)
            visit(static_cast<int>(i) * word_bits + std::countr_zero(rest));
    }
}

std::vector<watched_socket> members_of(const fd_set* const (&sets)[3]) {
    constexpr unsigned conditions[] = {readable, writable, in_error};
    std::array<unsigned, FD_SETSIZE> wanted{};
    std::vector<watched_socket> members;
    for (int i = 0; i < 3; ++i) {
        if (!sets[i])
            continue;
        for_each_member(*sets[i],
                        [&](int descriptor) { wanted[static_cast<size_t>(descriptor)] |= conditions[i]; });
    }
    for (size_t i = 0; i < wanted.size(); ++i) {
        if (wanted[i])
            members.push_back({static_cast<int>(i), wanted[i], none});
    }
    return members;
}

void keep_ready(fd_set* set, unsigned condition, std::span<const watched_socket> sockets) {
    if (!set)
        return;
    FD_ZERO(set);
    for (const watched_socket& socket : sockets) {
        if (socket.ready & condition)
            FD_SET(socket.descriptor, set);
    }
}

} // namespace

int select(int, fd_set* read, fd_set* write, fd_set* error, const timeval* timeout) {
    std::vector<watched_socket> sockets = members_of({read, write, error});
    if (!may_wait(!sockets.empty(), timeout))
        return SOCKET_ERROR;
    // poll would take a file as ready.
    if (std::any_of(sockets.begin(), sockets.end(),
                    [](const watched_socket& one) { return socket_type(one.descriptor) < 0; }))
        return socket_failure(WSAENOTSOCK);
    std::vector<pollfd> polled;
    polled.reserve(sockets.size());
    for (const watched_socket& socket : sockets)
        polled.push_back({socket.descriptor, events_for(socket.wanted), 0});
    const int count = wait_for(sockets, polled, timeout);
    if (count >= 0) {
        keep_ready(read, readable, sockets);
        keep_ready(write, writable, sockets);
        keep_ready(error, in_error, sockets);
    }
    return count;
}

int select(int, one_socket_set* read, one_socket_set* write, one_socket_set* error, const timeval* timeout) {
    one_socket_set* const sets[] = {read, write, error};
    constexpr unsigned conditions[] = {readable, writable, in_error};
    one_socket_set* members[3];
    watched_socket sockets[3];
    pollfd polled[3];
    size_t count = 0;
    for (size_t i = 0; i < 3; ++i) {
        if (!sets[i] || sets[i]->member == INVALID_SOCKET)
            continue;
        members[count] = sets[i];
        sockets[count] = {static_cast<int>(sets[i]->member), conditions[i], none};
        polled[count] = {sockets[count].descriptor, events_for(conditions[i]), 0};
        ++count;
    }
    if (!may_wait(count > 0, timeout))
        return SOCKET_ERROR;
    const int ready = wait_for({sockets, count}, {polled, count}, timeout);
    for (size_t i = 0; ready >= 0 && i < count; ++i) {
        if (!sockets[i].ready)
            members[i]->member = INVALID_SOCKET;
    }
    return ready;
}

int __WSAFDIsSet(SOCKET socket, one_socket_set* set) {
    return set->member == socket && socket != INVALID_SOCKET;
}

} // namespace platform
