// Loopback sockets for a test.
#pragma once

#include <cstddef>
#include <utility>

#include <gtest/gtest.h>

#include "zu/zu.h"

#if __has_include(<ws2tcpip.h>)
#include <ws2tcpip.h> // addresses of IPv6
#endif

namespace zu_test {

// The socket library is started while one lives.
struct started_library {
    started_library() { ZU_init(); }
    ~started_library() { ZU_shutdown(); }
};

struct with_library : testing::Test {
    started_library library;
};

sockaddr_in ipv4(uint16_t port, uint32_t address = INADDR_LOOPBACK); // both in host order
sockaddr_in address_of(SOCKET socket);                               // its own
uint16_t port_of(SOCKET socket);

// What the library has no call for: to be done with one direction or both, and whether calls block.
enum class direction { receiving, sending, both };
void stop(SOCKET socket, direction which);
void let_block(SOCKET socket, bool blocks);

// A port for this process alone. The kernel gives ports below 32,768 to nobody who does not ask for them.
uint16_t port_of_our_own();

// A socket that is closed at the end of its scope, or before.
class held_socket {
public:
    explicit held_socket(SOCKET number) : number_(number) {}
    ~held_socket() { close(); }
    held_socket(held_socket&& other) noexcept : number_(std::exchange(other.number_, INVALID_SOCKET)) {}

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
held_socket connected_to(const sockaddr_in& address);

// Two ends of one connection.
struct connection {
    held_socket listener = listening_socket(), client = connected_to(address_of(listener));
    held_socket server{ZU_accept(listener, nullptr, nullptr)};
};

// A port whose listener takes no more connections, so that the next attempt gets no answer.
struct silent_port {
    held_socket listener = listening_socket(0, 0), waiting = connected_to(address_of(listener));
};

std::ptrdiff_t count_descriptors(); // or handles, that this process has open
void allow_descriptors(unsigned count);

} // namespace zu_test
