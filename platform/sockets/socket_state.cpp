// Questions to the kernel about a socket.
#include "platform/sockets/socket_state.h"

#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>

namespace platform {

namespace {

int number_option(int descriptor, int option) {
    int value = 0;
    socklen_t size = sizeof value;
    return getsockopt(descriptor, SOL_SOCKET, option, &value, &size) == 0 ? value : -1;
}

// A socket that was never connected hangs up in poll like one whose connection is over, but with both of its
// directions unshut: the hang-up of the peer's direction is missing.
bool is_shut(int descriptor) {
    pollfd asked{descriptor, POLLRDHUP, 0};
    return poll(&asked, 1, 0) > 0 && asked.revents & POLLRDHUP;
}

// The handshake measures a round trip and agrees on options; an attempt that failed did neither.
bool was_connected(const tcp_info& info) {
    return info.tcpi_rtt != 0 || info.tcpi_options != 0;
}

} // namespace

int socket_type(int descriptor) {
    return number_option(descriptor, SO_TYPE);
}

int socket_family(int descriptor) {
    return number_option(descriptor, SO_DOMAIN);
}

bool socket_is_bound(int descriptor) {
    sockaddr_storage address{};
    socklen_t size = sizeof address;
    if (getsockname(descriptor, reinterpret_cast<sockaddr*>(&address), &size) != 0)
        return true;
    switch (address.ss_family) {
    case AF_INET: return reinterpret_cast<const sockaddr_in&>(address).sin_port != 0;
    case AF_INET6: return reinterpret_cast<const sockaddr_in6&>(address).sin6_port != 0;
    default: return true;
    }
}

bool socket_blocks(int descriptor) {
    const int mode = fcntl(descriptor, F_GETFL);
    return mode >= 0 && !(mode & O_NONBLOCK);
}

stream_state stream_state_of(int descriptor) {
    tcp_info info{};
    socklen_t size = sizeof info;
    if (getsockopt(descriptor, IPPROTO_TCP, TCP_INFO, &info, &size) != 0)
        return stream_state::unknown;
    switch (info.tcpi_state) {
    case TCP_ESTABLISHED:
    case TCP_SYN_RECV: return stream_state::open;
    case TCP_SYN_SENT: return stream_state::pending;
    case TCP_LISTEN: return stream_state::listening;
    case TCP_CLOSE_WAIT: return stream_state::peer_shut;
    case TCP_CLOSE:
        if (!is_shut(descriptor))
            return stream_state::fresh;
        return was_connected(info) ? stream_state::gone : stream_state::failed;
    case TCP_FIN_WAIT1:
    case TCP_FIN_WAIT2: return stream_state::half_shut;
    default: return stream_state::both_shut;
    }
}

} // namespace platform
