// Transports beside bare sockets: one byte there and back over loopback, with and without time-outs.
#include <poll.h>
#include <sys/socket.h>

#include <cstdlib>
#include <thread>

#include <benchmark/benchmark.h>
#include <netinet/in.h>

#include "zu/zu.h"

namespace {

constexpr timeval limit{5, 0};

// The code of a program that does not use the library.
struct bare {
    int socket;

    void send(bool timed) const {
        if (timed)
            wait(POLLOUT);
        if (::send(socket, "x", 1, MSG_NOSIGNAL) != 1)
            std::abort();
    }
    bool receive(bool timed) const {
        if (timed)
            wait(POLLIN);
        char byte;
        return ::recv(socket, &byte, 1, 0) == 1;
    }
    void wait(short events) const {
        pollfd watched{socket, events, 0};
        ::poll(&watched, 1, 5000);
    }
    void close() const { ZU_socket_close(static_cast<SOCKET>(socket)); }
};

struct library {
    ZU_trans* transport;

    void send(bool timed) const {
        uint32_t sent;
        if (!ZU_trans_send(transport, "x", 1, &sent, timed ? &limit : nullptr, nullptr))
            std::abort();
    }
    bool receive(bool timed) const {
        char byte;
        uint32_t received;
        return ZU_trans_recv(transport, &byte, 1, &received, timed ? &limit : nullptr, nullptr);
    }
    void close() const { ZU_trans_destroy(transport); }
};

constexpr uint16_t port = 47113;

void make(library& client, library& server) {
    ZU_trans* listener = ZU_trans_socket_create_server(port, 1, ZU_TRANS_TCP, 0, 0);
    client.transport = ZU_trans_socket_connect(ZU_W("127.0.0.1"), port, nullptr, ZU_TRANS_TCP, 0, 0);
    server.transport = ZU_trans_socket_accept(listener, nullptr, nullptr, nullptr, nullptr);
    ZU_trans_destroy(listener);
    if (!client.transport || !server.transport)
        std::abort();
}

void make(bare& client, bare& server) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const auto* generic = reinterpret_cast<const sockaddr*>(&address);
    const SOCKET listener = ZU_socket(AF_INET, SOCK_STREAM, 0);
    client.socket = static_cast<int>(ZU_socket(AF_INET, SOCK_STREAM, 0));
    if (ZU_bind(listener, generic, sizeof address) || ZU_listen(listener, 1)
        || ::connect(client.socket, generic, sizeof address))
        std::abort();
    server.socket = ::accept(static_cast<int>(listener), nullptr, nullptr);
    ZU_socket_close(listener);
}

template <class End>
void ping_pong(benchmark::State& state) {
    const bool timed = state.range(0) != 0;
    ZU_init();
    End client, server;
    make(client, server);
    std::thread echo([&] {
        while (server.receive(timed))
            server.send(timed);
    });
    for (auto _ : state) {
        client.send(timed);
        if (!client.receive(timed))
            std::abort();
    }
    client.close();
    echo.join();
    server.close();
    ZU_shutdown();
}

// One thread at both ends: what the calls cost, without the scheduler between them.
template <class End>
void there_and_back(benchmark::State& state) {
    const bool timed = state.range(0) != 0;
    ZU_init();
    End client, server;
    make(client, server);
    for (auto _ : state) {
        client.send(timed);
        server.receive(timed);
        server.send(timed);
        client.receive(timed);
    }
    client.close();
    server.close();
    ZU_shutdown();
}

BENCHMARK(ping_pong<bare>)->Arg(0)->Arg(1)->ArgName("timed")->UseRealTime();
BENCHMARK(ping_pong<library>)->Arg(0)->Arg(1)->ArgName("timed")->UseRealTime();
BENCHMARK(there_and_back<bare>)->Arg(0)->Arg(1)->ArgName("timed");
BENCHMARK(there_and_back<library>)->Arg(0)->Arg(1)->ArgName("timed");

void read_dotted(benchmark::State& state) {
    for (auto _ : state)
        benchmark::DoNotOptimize(ZU_inet_addr("192.168.100.10"));
}
BENCHMARK(read_dotted);

} // namespace
