// Loopback sockets for a test, and a network of its own.
#pragma once

#include <sys/socket.h>

#include <cstddef>
#include <functional>
#include <utility>

#include "zu/zu.h"

namespace zu_test {

// The socket library is started while one lives.
struct started_library {
    started_library() { ZU_init(); }
    ~started_library() { ZU_shutdown(); }
};

sockaddr_in ipv4(uint32_t address, uint16_t port); // both in host order
sockaddr_in loopback(uint16_t port);
sockaddr_in address_of(SOCKET socket); // its own
uint16_t port_of(SOCKET socket);

// A socket that is closed at the end of its scope, or before.
class held_socket {
public:
    explicit held_socket(SOCKET number) : number_(number) {}
    ~held_socket() { close(); }
    held_socket(held_socket&& other) noexcept : number_(std::exchange(other.number_, INVALID_SOCKET)) {}
    held_socket& operator=(held_socket&& other) noexcept {
        std::swap(number_, other.number_);
        return *this;
    }

    operator SOCKET() const { return number_; }
    void close();
    void close_with_reset();

private:
    SOCKET number_;
};

// On the loopback. One that cannot be bound is INVALID_SOCKET, with the code.
held_socket stream_socket();
held_socket bound_socket(int type, uint16_t port = 0);
held_socket listening_socket(uint16_t port = 0, int backlog = 16);
int32_t connect_to(SOCKET socket, uint16_t port);

// Two ends of one connection.
struct connection {
    connection() : connection(listening_socket()) {}
    explicit connection(SOCKET listener);

    held_socket client = stream_socket(), server;
};

// A port whose listener takes no more connections, so that the next attempt gets no answer.
struct silent_port {
    silent_port() { connect_to(waiting, port_of(listener)); }

    held_socket listener = listening_socket(0, 0), waiting = stream_socket();
};

std::ptrdiff_t count_descriptors(); // that this process has open

// Whether this machine has an address for the name; one without /etc/hosts has none.
bool knows_localhost();

// Runs the body on a thread in a network namespace of its own that holds a loopback and nothing else, and with mounts
// of its own. False, with the body not run, where the process may not have them.
bool in_private_network(const std::function<void()>& body);

} // namespace zu_test
