#include "support/network.h"

#include <fcntl.h>
#include <net/if.h>
#include <netdb.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <unistd.h>

#include <cstring>
#include <thread>

namespace zu_test {

sockaddr_in loopback(uint16_t port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

uint16_t port_of(SOCKET socket) {
    sockaddr_in address{};
    socklen_t size = sizeof address;
    getsockname(static_cast<int>(socket), reinterpret_cast<sockaddr*>(&address), &size);
    return ntohs(address.sin_port);
}

SOCKET bound_socket(int type, uint16_t port) {
    const sockaddr_in address = loopback(port);
    const SOCKET socket = ZU_socket(AF_INET, type, 0);
    if (ZU_bind(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0)
        return socket;
    const uint32_t code = GetLastError();
    ZU_socket_close(socket);
    SetLastError(code);
    return INVALID_SOCKET;
}

SOCKET listening_socket(uint16_t port, int backlog) {
    const SOCKET socket = bound_socket(SOCK_STREAM, port);
    if (socket != INVALID_SOCKET)
        ZU_listen(socket, backlog);
    return socket;
}

connection::connection() {
    const SOCKET listener = listening_socket();
    const sockaddr_in address = loopback(port_of(listener));
    client = ZU_socket(AF_INET, SOCK_STREAM, 0);
    ZU_connect(client, reinterpret_cast<const sockaddr*>(&address), sizeof address);
    server = ZU_accept(listener, nullptr, nullptr);
    ZU_socket_close(listener);
}

connection::~connection() {
    ZU_socket_close(client);
    ZU_socket_close(server);
}

silent_port::silent_port() : listener(listening_socket(0, 0)), waiting(ZU_socket(AF_INET, SOCK_STREAM, 0)) {
    const sockaddr_in address = loopback(port_of(listener));
    ZU_connect(waiting, reinterpret_cast<const sockaddr*>(&address), sizeof address);
}

silent_port::~silent_port() {
    ZU_socket_close(waiting);
    ZU_socket_close(listener);
}

void close_with_reset(SOCKET socket) {
    const linger at_once{1, 0};
    ZU_setsockopt(socket, SOL_SOCKET, SO_LINGER, &at_once, sizeof at_once);
    ZU_socket_close(socket);
}

void make_non_blocking(SOCKET socket) {
    fcntl(static_cast<int>(socket), F_SETFL, O_NONBLOCK);
}

bool knows_localhost() {
    addrinfo* found = nullptr;
    const bool known = getaddrinfo("localhost", nullptr, nullptr, &found) == 0;
    if (known)
        freeaddrinfo(found);
    return known;
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
