#include "support/network.h"

#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/un.h>

#include "support/test.h"

namespace zu_test {

sockaddr_in ipv4(uint16_t port, uint32_t address) {
    sockaddr_in result{};
    result.sin_family = AF_INET;
    result.sin_port = htons(port);
    result.sin_addr.s_addr = htonl(address);
    return result;
}

sockaddr_in address_of(SOCKET socket) {
    sockaddr_in address{};
    socklen_t size = sizeof address;
    getsockname(static_cast<int>(socket), reinterpret_cast<sockaddr*>(&address), &size);
    return address;
}

uint16_t port_of(SOCKET socket) {
    return ntohs(address_of(socket).sin_port);
}

// A name that belongs to the same network as the port tells other tests that it is taken, until this process ends.
uint16_t port_of_our_own(int range) {
    constexpr int ports = 10000;
    for (int i = 0; i < ports; ++i) {
        const auto port = static_cast<uint16_t>(12000 + ports * range + (getpid() + i) % ports);
        const sockaddr_in address = ipv4(port);
        sockaddr_un name{AF_UNIX, {}};
        std::snprintf(name.sun_path + 1, sizeof name.sun_path - 1, "zu-test-port-%d", port);
        const int claim = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        const int probe = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        const bool is_free = bind(claim, reinterpret_cast<const sockaddr*>(&name), sizeof name) == 0
                             && bind(probe, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
        close(probe);
        if (is_free)
            return port;
        close(claim);
    }
    std::abort();
}

void held_socket::close() {
    if (number_ != INVALID_SOCKET)
        ZU_socket_close(number_);
    number_ = INVALID_SOCKET;
}

void held_socket::close_with_reset() {
    const linger at_once{1, 0};
    ZU_setsockopt(number_, SOL_SOCKET, SO_LINGER, &at_once, sizeof at_once);
    close();
}

held_socket stream_socket() {
    return held_socket(ZU_socket(AF_INET, SOCK_STREAM, 0));
}

held_socket bound_socket(int type, uint16_t port) {
    const sockaddr_in address = ipv4(port);
    held_socket socket(ZU_socket(AF_INET, type, 0));
    if (ZU_bind(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
        socket.close(); // which leaves the code as it is
    return socket;
}

held_socket listening_socket(uint16_t port, int backlog) {
    held_socket socket = bound_socket(SOCK_STREAM, port);
    if (socket != INVALID_SOCKET)
        ZU_listen(socket, backlog);
    return socket;
}

held_socket connected_to(SOCKET listener) {
    held_socket socket = stream_socket();
    connect_to(socket, address_of(listener));
    return socket;
}

int32_t connect_to(SOCKET socket, const sockaddr_in& address, int32_t length) {
    return ZU_connect(socket, reinterpret_cast<const sockaddr*>(&address), length);
}

std::ptrdiff_t count_descriptors() {
    return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
}

bool in_private_network(const std::function<void()>& body) {
    bool had_one = false;
    std::thread([&] {
        had_one = unshare(CLONE_NEWNET | CLONE_NEWNS) == 0
                  && mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
        if (!had_one)
            return;
        ifreq request{};
        std::strcpy(request.ifr_name, "lo");
        request.ifr_flags = IFF_UP;
        const int control = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        ioctl(control, SIOCSIFFLAGS, &request);
        close(control);
        body();
    }).join();
    return had_one;
}

} // namespace zu_test
