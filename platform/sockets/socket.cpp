// The calls on sockets.
#include <fcntl.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "platform/core/descriptor.h"
#include "platform/sockets/datagram.h"
#include "platform/sockets/interrupted.h"
#include "platform/sockets/socket_error.h"
#include "platform/sockets/socket_state.h"

namespace platform {

namespace {

int descriptor_of(SOCKET socket) {
    return static_cast<int>(socket);
}

int failure_from_errno() {
    return socket_failure(code_of_socket_errno(errno));
}

// These calls clear the last-error code when they succeed; accept, connect and closesocket leave it.
int cleared(ssize_t result) {
    SetLastError(ERROR_SUCCESS);
    return static_cast<int>(result);
}

// EAGAIN is also how a blocking socket reports that the time-out among its options has passed, and how one that does
// not block reports an attempt to connect that goes on.
DWORD code_of_wait(int descriptor, int flags) {
    if (stream_state_of(descriptor) == stream_state::pending)
        return WSAENOTCONN;
    return !(flags & MSG_DONTWAIT) && socket_blocks(descriptor) ? WSAETIMEDOUT : WSAEWOULDBLOCK;
}

// The fewest bytes of an address of a family. A UNIX address ends with its path, which may be empty.
int least_length(int family) {
    switch (family) {
    case AF_INET: return sizeof(sockaddr_in);
    case AF_INET6: return sizeof(sockaddr_in6);
    default: return sizeof(sa_family_t);
    }
}

bool too_short(const sockaddr* address, int length) {
    return !address || length < least_length(AF_UNIX) || length < least_length(address->sa_family);
}

// Whether the longest address that the socket can give would be cut.
bool too_little_room(int descriptor, int length) {
    const int family = socket_family(descriptor);
    return length < (family == AF_UNIX ? int{sizeof(sockaddr_un)} : least_length(family));
}

// ---- Ports -----------------------------------------------------------------------------------------------------

// The kernel gives a port to a second socket only when both have this option, and never beside a listener. Sockets get
// it when they listen, and accepted sockets inherit it, so whatever lingers of a server makes way, even after a kill.
// Other sockets get it when they are closed: until then they keep their port to themselves.
void give_way(int descriptor, int on) {
    ::setsockopt(descriptor, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
}

int bind_where_others_gave_way(int descriptor, const sockaddr* address, int length) {
    give_way(descriptor, 1);
    const int result = ::bind(descriptor, address, static_cast<socklen_t>(length));
    const int error = errno;
    give_way(descriptor, 0);
    errno = error;
    return result;
}

// ---- Connecting ------------------------------------------------------------------------------------------------

// The kernel takes a zero address for the loopback.
bool names_nobody(const sockaddr* address) {
    if (address->sa_family == AF_INET) {
        sockaddr_in target;
        std::memcpy(&target, address, sizeof target);
        return target.sin_addr.s_addr == INADDR_ANY || target.sin_port == 0;
    }
    sockaddr_in6 target;
    std::memcpy(&target, address, sizeof target);
    const uint32_t* const words = target.sin6_addr.s6_addr32;
    const bool is_mapped = IN6_IS_ADDR_V4MAPPED(&target.sin6_addr);
    return target.sin6_port == 0 || IN6_IS_ADDR_UNSPECIFIED(&target.sin6_addr)
           || (is_mapped && words[3] == 0);
}

bool is_internet(int family) {
    return family == AF_INET || family == AF_INET6;
}

// The code of a destination that the platform refuses and the kernel takes otherwise: AF_UNSPEC dissolves a connection.
DWORD code_of_destination(int family, int type, const sockaddr* address, int length) {
    if (too_short(address, length) || length < least_length(family))
        return WSAEFAULT;
    if (address->sa_family == AF_UNSPEC)
        return WSAEAFNOSUPPORT;
    if (type != SOCK_STREAM || !is_internet(family) || !is_internet(address->sa_family))
        return ERROR_SUCCESS;
    return names_nobody(address) ? WSAEADDRNOTAVAIL : ERROR_SUCCESS;
}

// An interrupted attempt goes on by itself; asking for it again would fail with EALREADY.
int wait_for_attempt(int descriptor, int64_t start_ms) {
    bool has_limit = false;
    if (!wait_for_the_rest({descriptor, SO_SNDTIMEO, POLLOUT}, start_ms, has_limit)) {
        errno = EINPROGRESS;
        return -1;
    }
    pollfd watched{descriptor, POLLOUT, 0};
    while (!has_limit && poll(&watched, 1, -1) < 0 && errno == EINTR) {}
    int error = 0;
    socklen_t size = sizeof error;
    if (getsockopt(descriptor, SOL_SOCKET, SO_ERROR, &error, &size) != 0)
        return -1;
    errno = error;
    return error == 0 ? 0 : -1;
}

bool same_end(const sockaddr_storage& own, const sockaddr* target) {
    if (own.ss_family == AF_INET) {
        sockaddr_in a, b;
        std::memcpy(&a, &own, sizeof a);
        std::memcpy(&b, target, sizeof b);
        return a.sin_port == b.sin_port && a.sin_addr.s_addr == b.sin_addr.s_addr;
    }
    sockaddr_in6 a, b;
    std::memcpy(&a, &own, sizeof a);
    std::memcpy(&b, target, sizeof b);
    return a.sin6_port == b.sin6_port && IN6_ARE_ADDR_EQUAL(&a.sin6_addr, &b.sin6_addr);
}

// The kernel may let an attempt come from the very port that it goes to, where nobody listens. The socket is then
// connected to itself. Leaves errno alone.
bool is_connected_to_itself(int descriptor, const sockaddr* target) {
    const int error = errno;
    sockaddr_storage own{};
    socklen_t size = sizeof own;
    const bool is_itself = getsockname(descriptor, reinterpret_cast<sockaddr*>(&own), &size) == 0
                           && own.ss_family == target->sa_family && same_end(own, target);
    errno = error;
    return is_itself;
}

void dissolve(int descriptor) {
    sockaddr nobody{};
    nobody.sa_family = AF_UNSPEC;
    static_cast<void>(::connect(descriptor, &nobody, sizeof nobody));
    int reset = 0; // the kernel reports the dissolution as an error, once
    socklen_t size = sizeof reset;
    getsockopt(descriptor, SOL_SOCKET, SO_ERROR, &reset, &size);
}

// ---- Accepting -------------------------------------------------------------------------------------------------

// The code for a record that cannot take the peer's address. A fault of the socket itself comes first.
DWORD code_of_bad_place_for_peer(int listener) {
    if (const int type = socket_type(listener); type != SOCK_STREAM)
        return type < 0 ? WSAENOTSOCK : WSAEOPNOTSUPP;
    if (stream_state_of(listener) != stream_state::listening)
        return WSAEINVAL;
    pollfd waiting{listener, POLLIN, 0};
    return socket_blocks(listener) || poll(&waiting, 1, 0) > 0 ? WSAEFAULT : WSAEWOULDBLOCK;
}

// ---- Options ---------------------------------------------------------------------------------------------------

bool is_switch(int level, int option) {
    if (level == IPPROTO_TCP)
        return option == TCP_NODELAY;
    return level == SOL_SOCKET
           && (option == SO_KEEPALIVE || option == SO_REUSEADDR || option == SO_BROADCAST
               || option == SO_OOBINLINE || option == SO_DONTROUTE);
}

bool is_level(int level) {
    return level == SOL_SOCKET || level == IPPROTO_IP || level == IPPROTO_IPV6 || level == IPPROTO_TCP
           || level == IPPROTO_UDP;
}

bool is_timeout(int level, int option) {
    return level == SOL_SOCKET && (option == SO_RCVTIMEO || option == SO_SNDTIMEO);
}

// The layer uses the option itself, so a caller's value is not passed on.
bool is_kept_by_the_layer(int descriptor, int level, int option) {
    return level == SOL_SOCKET && option == SO_REUSEADDR && socket_type(descriptor) == SOCK_STREAM;
}

int set_option(int descriptor, int level, int option, const void* value, int length) {
    return ::setsockopt(descriptor, level, option, value, static_cast<socklen_t>(length));
}

// The platform gives a time-out as a count of milliseconds. Its length tells it from the host's record.
int set_timeout(int descriptor, int option, const char* value) {
    uint32_t milliseconds;
    std::memcpy(&milliseconds, value, sizeof milliseconds);
    timeval time;
    time.tv_sec = milliseconds / 1000;
    time.tv_usec = milliseconds % 1000 * 1000;
    return set_option(descriptor, SOL_SOCKET, option, &time, sizeof time);
}

// ---- Sending and receiving -------------------------------------------------------------------------------------

DWORD code_of_failed_send(int descriptor, int flags, const sockaddr* address, int address_length) {
    const int error = errno;
    switch (error) {
    case EAGAIN: return code_of_wait(descriptor, flags);
    case EDESTADDRREQ: return WSAENOTCONN;
    case EINVAL: return address && too_short(address, address_length) ? WSAEFAULT : WSAEINVAL;
    case ECONNREFUSED: return socket_type(descriptor) == SOCK_DGRAM ? WSAECONNRESET : WSAENOTCONN;
    case EPIPE:
        switch (stream_state_of(descriptor)) {
        case stream_state::fresh:
        case stream_state::failed:
        case stream_state::listening: return WSAENOTCONN;
        case stream_state::half_shut:
        case stream_state::both_shut: return WSAESHUTDOWN;
        default: return WSAECONNRESET;
        }
    default: return code_of_socket_errno(error);
    }
}

DWORD code_of_failed_receive(int descriptor, int flags) {
    const int error = errno;
    switch (error) {
    case EAGAIN: return code_of_wait(descriptor, flags);
    // A datagram found nobody, or a connection never came about.
    case ECONNREFUSED: return socket_type(descriptor) == SOCK_DGRAM ? WSAECONNRESET : WSAENOTCONN;
    default: return code_of_socket_errno(error);
    }
}

// Whether a stream that has ended was shut by this side: the peer has closed nothing.
bool shut_by_ourselves(int descriptor) {
    const stream_state state = stream_state_of(descriptor);
    return state == stream_state::open || state == stream_state::half_shut;
}

} // namespace

SOCKET socket(int family, int type, int protocol) {
    if (!sockets_started())
        return INVALID_SOCKET;
    const int descriptor = beyond_standard(::socket(family, type | SOCK_CLOEXEC, protocol));
    const int plain_type = type & ~(SOCK_CLOEXEC | SOCK_NONBLOCK);
    if (descriptor < 0) {
        if (errno != EINVAL)
            failure_from_errno();
        else
            SetLastError(plain_type < SOCK_STREAM || plain_type > SOCK_PACKET ? WSAESOCKTNOSUPPORT
                                                                              : WSAEPROTONOSUPPORT);
        return INVALID_SOCKET;
    }
    if (plain_type == SOCK_DGRAM)
        begin_datagrams(descriptor);
    return static_cast<SOCKET>(cleared(descriptor));
}

SOCKET accept(SOCKET socket, sockaddr* address, int* length) {
    if (!sockets_started())
        return INVALID_SOCKET;
    const int listener = descriptor_of(socket);
    // Looked at first: a connection that is accepted without room for its address would be lost.
    if (address && (!length || too_little_room(listener, *length))) {
        SetLastError(code_of_bad_place_for_peer(listener));
        return INVALID_SOCKET;
    }
    const int mode = SOCK_CLOEXEC | (socket_blocks(listener) ? 0 : SOCK_NONBLOCK);
    const int descriptor = beyond_standard(resumed({listener, SO_RCVTIMEO, POLLIN}, [&](int) {
        return ::accept4(listener, address, reinterpret_cast<socklen_t*>(length), mode);
    }));
    if (descriptor < 0) {
        SetLastError(errno == EAGAIN ? code_of_wait(listener, 0) : code_of_socket_errno(errno));
        return INVALID_SOCKET;
    }
    return static_cast<SOCKET>(descriptor);
}

int closesocket(SOCKET socket) {
    if (!sockets_started())
        return SOCKET_ERROR;
    const int descriptor = descriptor_of(socket);
    const int type = socket_type(descriptor);
    if (type < 0) // a stray number must not close a file
        return socket_failure(WSAENOTSOCK);
    if (type == SOCK_STREAM)
        give_way(descriptor, 1);
    ::close(descriptor); // the descriptor is gone whatever close reports
    return 0;
}

int bind(SOCKET socket, const sockaddr* address, int length) {
    if (!sockets_started())
        return SOCKET_ERROR;
    const int descriptor = descriptor_of(socket);
    int result = ::bind(descriptor, address, static_cast<socklen_t>(length));
    if (result < 0 && errno == EADDRINUSE && socket_type(descriptor) == SOCK_STREAM)
        result = bind_where_others_gave_way(descriptor, address, length);
    if (result == 0)
        return cleared(0);
    if (errno == EINVAL && too_short(address, length))
        return socket_failure(WSAEFAULT);
    const DWORD code = code_of_socket_errno(errno);
    // The kernel looks at the address first, the platform at the socket.
    return socket_failure(code == WSAEADDRNOTAVAIL && socket_is_bound(descriptor) ? WSAEINVAL : code);
}

int connect(SOCKET socket, const sockaddr* address, int length) {
    if (!sockets_started())
        return SOCKET_ERROR;
    const int descriptor = descriptor_of(socket);
    const int type = socket_type(descriptor);
    if (type < 0)
        return failure_from_errno();
    if (const DWORD code = code_of_destination(socket_family(descriptor), type, address, length))
        return socket_failure(code);
    // After a failed attempt, the next connect only returns the old error: it is made again.
    const bool has_failed_before = stream_state_of(descriptor) == stream_state::failed;
    const auto attempt = [&] { return ::connect(descriptor, address, static_cast<socklen_t>(length)); };
    const int64_t start_ms = coarse_now_ms();
    int result = attempt();
    if (result < 0 && has_failed_before)
        result = attempt();
    if (result < 0 && errno == EINTR)
        result = wait_for_attempt(descriptor, start_ms);
    if ((result == 0 || errno == EINPROGRESS) && type == SOCK_STREAM && is_internet(address->sa_family)
        && is_connected_to_itself(descriptor, address)) {
        dissolve(descriptor);
        return socket_failure(WSAECONNREFUSED);
    }
    if (result == 0)
        return 0;
    if (errno == EINPROGRESS)
        return socket_failure(socket_blocks(descriptor) ? WSAETIMEDOUT : WSAEWOULDBLOCK);
    return failure_from_errno();
}

int listen(SOCKET socket, int backlog) {
    if (!sockets_started())
        return SOCKET_ERROR;
    const int descriptor = descriptor_of(socket);
    if (socket_type(descriptor) == SOCK_STREAM) {
        if (!socket_is_bound(descriptor)) // the kernel would choose a port for it
            return socket_failure(WSAEINVAL);
        give_way(descriptor, 1);
    }
    return ::listen(descriptor, backlog < 0 ? 0 : backlog) == 0 ? cleared(0) : failure_from_errno();
}

int setsockopt(SOCKET socket, int level, int option, const char* value, int length) {
    if (!sockets_started())
        return SOCKET_ERROR;
    const int descriptor = descriptor_of(socket);
    if (socket_type(descriptor) < 0)
        return failure_from_errno();
    if (!value || length <= 0)
        return socket_failure(WSAEFAULT);
    int number = 0;
    constexpr int number_size = sizeof number;
    int result;
    if (is_timeout(level, option) && length == number_size) {
        result = set_timeout(descriptor, option, value);
    } else if (is_switch(level, option)) {
        std::memcpy(&number, value, static_cast<size_t>(length < number_size ? length : number_size));
        result = is_kept_by_the_layer(descriptor, level, option)
                     ? 0
                     : set_option(descriptor, level, option, &number, number_size);
    } else {
        result = set_option(descriptor, level, option, value, length);
    }
    if (result == 0)
        return cleared(0);
    if (errno == EINVAL && length < number_size)
        return socket_failure(WSAEFAULT);
    // The kernel has one code for a level and an option that it does not know.
    return errno == ENOPROTOOPT && !is_level(level) ? socket_failure(WSAEINVAL) : failure_from_errno();
}

int ioctlsocket(SOCKET socket, long command, unsigned long* argument) {
    if (!sockets_started())
        return SOCKET_ERROR;
    const int descriptor = descriptor_of(socket);
    if (socket_type(descriptor) < 0)
        return failure_from_errno();
    if (static_cast<unsigned long>(command) != FIONBIO)
        return socket_failure(WSAEINVAL);
    if (!argument)
        return socket_failure(WSAEFAULT);
    int on = *argument != 0;
    return ::ioctl(descriptor, FIONBIO, &on) == 0 ? cleared(0) : failure_from_errno();
}

int send_what_fits(SOCKET socket, const char* buffer, int length) {
    return platform::sendto(socket, buffer, length, MSG_DONTWAIT, nullptr, 0);
}

int send(SOCKET socket, const char* buffer, int length, int flags) {
    return platform::sendto(socket, buffer, length, flags, nullptr, 0);
}

int sendto(SOCKET socket, const char* buffer, int length, int flags, const sockaddr* address,
           int address_length) {
    if (!sockets_started())
        return SOCKET_ERROR;
    const int descriptor = descriptor_of(socket);
    if (length < 0)
        return socket_failure(WSAEFAULT);
    const auto attempt = [&] {
        return resumed({descriptor, SO_SNDTIMEO, POLLOUT}, [&](int further_flags) {
            return ::sendto(descriptor, buffer, static_cast<size_t>(length),
                            flags | further_flags | MSG_NOSIGNAL, address,
                            static_cast<socklen_t>(address_length));
        });
    };
    ssize_t sent = attempt();
    for (int again = 0; sent < 0 && again < 3 && may_tell_of_an_earlier_datagram(descriptor); ++again)
        sent = attempt(); // a failure of this very send comes again
    return sent >= 0 ? cleared(sent)
                     : socket_failure(code_of_failed_send(descriptor, flags, address, address_length));
}

int recv(SOCKET socket, char* buffer, int capacity, int flags) {
    return platform::recvfrom(socket, buffer, capacity, flags, nullptr, nullptr);
}

int recvfrom(SOCKET socket, char* buffer, int capacity, int flags, sockaddr* address, int* address_length) {
    if (!sockets_started())
        return SOCKET_ERROR;
    const int descriptor = descriptor_of(socket);
    if (capacity < 0 || (address && !address_length))
        return socket_failure(WSAEFAULT);
    if (address && socket_type(descriptor) == SOCK_DGRAM && too_little_room(descriptor, *address_length))
        return socket_failure(WSAEFAULT); // a datagram that is taken would lose its sender
    if (capacity == 0 && socket_type(descriptor) == SOCK_STREAM) {
        // Where no byte is asked for, the host tells the end of a time-out as 0, and a look at one byte does not.
        char byte;
        const int looked = platform::recvfrom(socket, &byte, 1, flags | MSG_PEEK, address, address_length);
        return looked > 0 ? 0 : looked;
    }
    const bool maybe_datagram = datagrams_in_use();
    if (maybe_datagram && waits_in_vain(descriptor))
        return socket_failure(WSAEINVAL);
    const size_t size = static_cast<size_t>(capacity);
    auto* length = reinterpret_cast<socklen_t*>(address_length);
    bool truncated = false;
    const ssize_t received =
        maybe_datagram
            ? receive_maybe_datagram(descriptor, buffer, size, flags, address, length, truncated)
            : resumed({descriptor, SO_RCVTIMEO, POLLIN}, [&](int further_flags) {
                  return ::recvfrom(descriptor, buffer, size, flags | further_flags, address, length);
              });
    if (received < 0)
        return socket_failure(code_of_failed_receive(descriptor, flags));
    if (truncated)
        return socket_failure(WSAEMSGSIZE);
    if (received == 0 && capacity > 0 && shut_by_ourselves(descriptor))
        return socket_failure(WSAESHUTDOWN);
    if (received == 0 && capacity > 0 && stream_state_of(descriptor) == stream_state::failed)
        return socket_failure(WSAENOTCONN);
    return cleared(received);
}

} // namespace platform
