// Loopback sockets for a test, and a network of its own.
#pragma once

#include <sys/socket.h>

#include <functional>

#include "zu/zu.h"

namespace zu_test {

// The socket library is started while one lives.
struct started_library {
    started_library() { ZU_init(); }
    ~started_library() { ZU_shutdown(); }
};

sockaddr_in loopback(uint16_t port);
uint16_t port_of(SOCKET socket);

SOCKET bound_socket(int type, uint16_t port = 0);
SOCKET listening_socket(uint16_t port = 0, int backlog = 16);

// Two ends of one connection, closed at the end.
struct connection {
    SOCKET client;
    SOCKET server;

    connection();
    ~connection();
};

// A port whose listener takes no more connections, so that the next attempt gets no answer.
struct silent_port {
    SOCKET listener;
    SOCKET waiting;

    silent_port();
    ~silent_port();
};

void close_with_reset(SOCKET socket);
void make_non_blocking(SOCKET socket);

// Whether this machine has an address for the name; one without /etc/hosts has none.
bool knows_localhost();

// Runs the body on a thread in a network namespace of its own that holds a loopback and nothing else, and with mounts
// of its own. False, with the body not run, where the process may not have them.
bool in_private_network(const std::function<void()>& body);

} // namespace zu_test
