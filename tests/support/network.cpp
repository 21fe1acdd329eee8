#include "support/network.h"

#include <random>

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
    getsockname(socket, reinterpret_cast<sockaddr*>(&address), &size);
    return address;
}

uint16_t port_of(SOCKET socket) {
    return ntohs(address_of(socket).sin_port);
}

void stop(SOCKET socket, direction which) {
    shutdown(socket, static_cast<int>(which)); // SHUT_RD to SHUT_RDWR, as SD_RECEIVE to SD_BOTH
}

// Drawn, as process numbers repeat: those of Wine are small, and each of its folders counts its own.
uint16_t port_of_our_own() {
    const started_library library;
    for (std::random_device draw;;) {
        const auto port = static_cast<uint16_t>(12000 + draw() % 20000);
        if (bound_socket(SOCK_STREAM, port) != INVALID_SOCKET)
            return port;
    }
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

held_socket connected_to(const sockaddr_in& address) {
    held_socket socket = stream_socket();
    ZU_connect(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address);
    return socket;
}

} // namespace zu_test
