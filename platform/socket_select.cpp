// Waiting for readiness: one engine on poll, and the platform's rules of what is ready.
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <span>
#include <vector>

#include "platform/socket_error.h"
#include "platform/socket_state.h"

namespace platform {

namespace {

enum readiness : unsigned { none = 0, readable = 1, writable = 2, in_error = 4 };

struct watched_socket {
    int descriptor;
    unsigned wanted;
    unsigned ready; // a part of `wanted`
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

constexpr int64_t second_ns = 1'000'000'000;
constexpr int64_t never = INT64_MAX;

int64_t now_ns() {
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec * second_ns + now.tv_nsec;
}

// A time-out too long to count is none.
int64_t deadline_after(const timeval* timeout) {
    if (!timeout)
        return never;
    int64_t span, deadline;
    if (__builtin_mul_overflow(int64_t{timeout->tv_sec}, second_ns, &span)
        || __builtin_add_overflow(span, int64_t{timeout->tv_usec} * 1000, &span)
        || __builtin_add_overflow(span, now_ns(), &deadline))
        return never;
    return deadline;
}

// poll reports a socket over and over that is not ready by the platform's rules. It is left out of the wait for a
// while, then asked again: another thread may connect it.
constexpr int64_t pause_ns = 20'000'000;

timespec* remaining(int64_t deadline, bool pausing, timespec& out) {
    if (deadline == never && !pausing)
        return nullptr;
    int64_t left = deadline == never ? pause_ns : std::max<int64_t>(deadline - now_ns(), 0);
    if (pausing)
        left = std::min(left, pause_ns);
    out = {left / second_ns, left % second_ns};
    return &out;
}

// ---- The engine ------------------------------------------------------------------------------------------------

// How many of the wanted conditions hold, 0 at the deadline; -1 with the code.
int wait_for(std::span<watched_socket> sockets, std::span<pollfd> polled, int64_t deadline) {
    bool pausing = false;
    for (;;) {
        timespec left;
        const int reported = ppoll(polled.data(), polled.size(), remaining(deadline, pausing, left), nullptr);
        if (reported < 0 && errno != EINTR)
            return socket_failure(code_of_socket_errno(errno));
        int ready = 0;
        bool useless_reports = false;
        for (size_t i = 0; i < sockets.size(); ++i) {
            pollfd& poll = polled[i];
            const short events = reported > 0 && poll.fd >= 0 ? poll.revents : short{0};
            if (events & POLLNVAL)
                return socket_failure(WSAENOTSOCK);
            sockets[i].ready = events ? readiness_of(poll.fd, events) & sockets[i].wanted : none;
            ready += std::popcount(sockets[i].ready);
            const bool useless = events && !sockets[i].ready;
            poll.fd = useless ? -1 : sockets[i].descriptor;
            useless_reports |= useless;
        }
        if (ready > 0)
            return ready;
        if (deadline != never && now_ns() >= deadline)
            return 0;
        pausing = useless_reports;
    }
}

// The checks that come before any wait.
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
    std::vector<pollfd> polled;
    polled.reserve(sockets.size());
    for (const watched_socket& socket : sockets)
        polled.push_back({socket.descriptor, events_for(socket.wanted), 0});
    const int count = wait_for(sockets, polled, deadline_after(timeout));
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
    const int ready = wait_for({sockets, count}, {polled, count}, deadline_after(timeout));
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
