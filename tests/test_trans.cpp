// Transports: construction and its failures, time-outs, lost peers, many connections at once.
#include <sys/resource.h>
#include <unistd.h>

#include <atomic>
#include <functional>
#include <memory>
#include <numeric>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "support/network.h"
#include "zu/zu_trans.h"

namespace {

using namespace zu_test;

constexpr timeval no_time{0, 0};
constexpr timeval short_time{0, 50000};
constexpr timeval long_time{20, 0};

struct deleter {
    void operator()(ZU_trans* transport) const { ZU_trans_destroy(transport); }
};
using transport = std::unique_ptr<ZU_trans, deleter>;

transport server_on(uint16_t port, uint32_t flags = ZU_TRANS_TCP, int32_t backlog = 64) {
    return transport(ZU_trans_socket_create_server(port, backlog, flags, 0, 0));
}

transport client_of(const transport& server, int32_t send_buffer = 0) {
    return transport(ZU_trans_socket_connect(u"127.0.0.1", port_of(server->socket), nullptr, ZU_TRANS_TCP,
                                             send_buffer, 0));
}

transport accepted_from(const transport& server, const timeval* timeout = &long_time) {
    return transport(ZU_trans_socket_accept(server.get(), nullptr, nullptr, timeout, nullptr));
}

struct transferred {
    bool success;
    uint32_t count;
    ZU_bool timed_out;
    uint32_t code;

    bool operator==(const transferred&) const = default;
};

std::ostream& operator<<(std::ostream& out, const transferred& t) {
    return out << (t.success ? "done, " : "failed, ") << t.count << " bytes, timed out " << int{t.timed_out}
               << ", code " << t.code;
}

// The code only of what fails.
transferred send(const transport& to, const std::vector<char>& data, const timeval* timeout = &long_time) {
    transferred t{false, 99, 99, 0};
    SetLastError(4711);
    t.success = ZU_trans_send(to.get(), data.data(), static_cast<uint32_t>(data.size()), &t.count, timeout,
                              &t.timed_out);
    t.code = t.success ? 0 : GetLastError();
    return t;
}

transferred receive(const transport& from, std::vector<char>& room, const timeval* timeout = &long_time) {
    transferred t{false, 99, 99, 0};
    SetLastError(4711);
    t.success = ZU_trans_recv(from.get(), room.data(), static_cast<uint32_t>(room.size()), &t.count, timeout,
                              &t.timed_out);
    t.code = t.success ? 0 : GetLastError();
    return t;
}

const transferred refused{false, 0, 0, 87};
const transferred lost{false, 0, 0, WSAECONNRESET};
const transferred out_of_time{false, 0, 1, 4711}; // the code is as it was before

int count_descriptors() {
    const int descriptor = dup(0);
    close(descriptor);
    return descriptor;
}

TEST(trans, constructors_fail_with_their_codes_and_leave_nothing) {
    const started_library library;
    const int descriptors = count_descriptors();
    {
        const transport server = server_on(0);
        ASSERT_TRUE(server);
        const uint16_t port = port_of(server->socket);
        const SOCKET idle = bound_socket(SOCK_STREAM);
        const uint16_t closed_port = port_of(idle);
        const struct {
            const char* what;
            std::function<ZU_trans*()> make;
            uint32_t code;
        } rows[] = {
            {"server without a protocol",
             [] { return ZU_trans_socket_create_server(0, 1, ZU_TRANS_KEEPALIVE, 0, 0); }, 87},
            {"client without a protocol",
             [&] { return ZU_trans_socket_connect(u"127.0.0.1", port, nullptr, 0, 0, 0); }, 87},
            {"port in use", [&] { return ZU_trans_socket_create_server(port, 1, ZU_TRANS_TCP, 0, 0); },
             WSAEADDRINUSE},
            {"port in use, option given",
             [&] { return ZU_trans_socket_create_server(port, 1, ZU_TRANS_TCP | ZU_TRANS_REUSEADDR, 0, 0); },
             WSAEADDRINUSE},
            {"local port in use",
             [&] { return ZU_trans_socket_connect(u"127.0.0.1", port, &closed_port, ZU_TRANS_TCP, 0, 0); },
             WSAEADDRINUSE},
            {"refused",
             [&] { return ZU_trans_socket_connect(u"127.0.0.1", closed_port, nullptr, ZU_TRANS_TCP, 0, 0); },
             WSAECONNREFUSED},
            {"unknown host",
             [&] { return ZU_trans_socket_connect(u"no host", port, nullptr, ZU_TRANS_TCP, 0, 0); },
             WSAHOST_NOT_FOUND}};
        for (const auto& row : rows) {
            SetLastError(0);
            EXPECT_EQ(transport(row.make()), nullptr) << row.what;
            EXPECT_EQ(GetLastError(), row.code) << row.what;
        }
        ZU_socket_close(idle);
    }
    EXPECT_EQ(count_descriptors(), descriptors);
    ZU_trans_destroy(nullptr);
}

TEST(trans, a_conversation) {
    const started_library library;
    const transport server = server_on(0, ZU_TRANS_TCP | ZU_TRANS_KEEPALIVE | ZU_TRANS_NO_REUSEADDR);
    ZU_bool timed_out = 99;
    SetLastError(4711);
    EXPECT_EQ(ZU_trans_socket_accept(server.get(), nullptr, nullptr, &short_time, &timed_out), nullptr);
    EXPECT_EQ(timed_out, 1);
    EXPECT_EQ(GetLastError(), 4711u);

    const SOCKET probe = bound_socket(SOCK_STREAM);
    const uint16_t local = port_of(probe);
    ZU_socket_close(probe);
    const transport client(ZU_trans_socket_connect(knows_localhost() ? u"localhost" : u"127.0.0.1",
                                                   port_of(server->socket), &local, ZU_TRANS_TCP, 4096,
                                                   4096));
    ASSERT_TRUE(client);
    sockaddr_in peer{};
    int32_t length = sizeof peer;
    const transport accepted(ZU_trans_socket_accept(server.get(), reinterpret_cast<sockaddr*>(&peer), &length,
                                                    nullptr, &timed_out));
    ASSERT_TRUE(accepted);
    EXPECT_EQ(timed_out, 0);
    EXPECT_EQ(ntohs(peer.sin_port), local);
    EXPECT_EQ(accepted->flags, server->flags);

    std::vector<char> room(100);
    EXPECT_EQ(receive(accepted, room, &short_time), out_of_time);
    EXPECT_EQ(send(client, {'a', 'b', 'c'}), (transferred{true, 3, 0, 0}));
    EXPECT_EQ(receive(accepted, room), (transferred{true, 3, 0, 0}));
    EXPECT_EQ(std::string(room.data(), 3), "abc");
    EXPECT_EQ(receive(accepted, room, &short_time), out_of_time);

    // Half closed by the client: its end shows, the other direction still carries.
    shutdown(static_cast<int>(client->socket), SHUT_WR);
    EXPECT_EQ(receive(accepted, room), lost);
    EXPECT_EQ(send(accepted, {'d'}), (transferred{true, 1, 0, 0}));
    EXPECT_EQ(receive(client, room, nullptr), (transferred{true, 1, 0, 0}));
}

TEST(trans, refuses_what_its_kind_and_role_cannot_do) {
    const started_library library;
    const transport server = server_on(0);
    const transport datagrams = server_on(0, ZU_TRANS_UDP);
    ASSERT_TRUE(datagrams);
    const transport datagram_client(
        ZU_trans_socket_connect(u"127.0.0.1", port_of(datagrams->socket), nullptr, ZU_TRANS_UDP, 0, 0));
    ASSERT_TRUE(datagram_client);
    const transport client = client_of(server);
    std::vector<char> room(1);
    for (const transport* one : {&server, &datagrams, &datagram_client}) {
        EXPECT_EQ(send(*one, {'x'}), refused);
        EXPECT_EQ(receive(*one, room), refused);
    }
    for (const transport* one : {&client, &datagrams, &datagram_client}) {
        SetLastError(0);
        EXPECT_EQ(accepted_from(*one), nullptr);
        EXPECT_EQ(GetLastError(), 87u);
    }
}

TEST(trans, lost_and_silent_peers) {
    const started_library library;
    const transport server = server_on(0);
    std::vector<char> room(1000);
    for (const timeval* timeout : {&long_time, static_cast<const timeval*>(nullptr)}) {
        transport client = client_of(server);
        const transport reset = accepted_from(server);
        close_with_reset(client->socket);
        client->socket = INVALID_SOCKET;
        EXPECT_EQ(receive(reset, room, timeout), lost);
        EXPECT_EQ(send(reset, {'x'}, timeout), lost);

        client = client_of(server);
        const transport closed = accepted_from(server);
        client.reset();
        EXPECT_EQ(receive(closed, room, timeout), lost);
    }

    // A peer that never reads: pieces go until the buffers are full, then the time-out ends the wait, each time.
    const transport client = client_of(server, 8192);
    const transport deaf = accepted_from(server);
    transferred last{};
    uint64_t sent = 0;
    while ((last = send(client, room, &short_time)).success)
        sent += last.count;
    EXPECT_EQ(last, out_of_time);
    EXPECT_EQ(send(client, room, &short_time), out_of_time);
    EXPECT_GT(sent, 8192u);
    for (uint64_t received = 0; received < sent;) {
        const transferred piece = receive(deaf, room);
        ASSERT_TRUE(piece.success) << piece;
        received += piece.count;
    }
    EXPECT_EQ(send(client, room), (transferred{true, 1000, 0, 0})) << "there is room again";
}

TEST(trans, a_backlog_of_one_loses_nobody) {
    const started_library library;
    const transport server = server_on(0, ZU_TRANS_TCP, 1);
    std::atomic<int> served{0};
    std::vector<std::thread> clients;
    for (int i = 0; i < 6; ++i) {
        clients.emplace_back([&] {
            const transport client = client_of(server);
            std::vector<char> room(1);
            served += client && send(client, {'x'}).success && receive(client, room).success;
        });
    }
    for (int i = 0; i < 6; ++i) {
        const transport accepted = accepted_from(server);
        ASSERT_TRUE(accepted);
        std::vector<char> room(1);
        EXPECT_EQ(receive(accepted, room), (transferred{true, 1, 0, 0}));
        EXPECT_EQ(send(accepted, room), (transferred{true, 1, 0, 0}));
    }
    for (std::thread& client : clients)
        client.join();
    EXPECT_EQ(served, 6);
}

TEST(trans, a_port_is_bound_again_at_once) {
    const started_library library;
    uint16_t port = 0;
    for (uint32_t option : {0u, ZU_TRANS_NO_REUSEADDR, ZU_TRANS_REUSEADDR, 0u}) {
        const transport server = server_on(port, ZU_TRANS_TCP | option);
        ASSERT_TRUE(server) << "code " << GetLastError() << " with option " << option;
        port = port_of(server->socket);
        const transport client = client_of(server);
        transport accepted = accepted_from(server);
        accepted.reset(); // first to close: its side lingers
        std::vector<char> room(1);
        EXPECT_EQ(receive(client, room), lost);
    }
}

TEST(trans, a_thousand_connections_at_once) {
    const started_library library;
    const rlimit limit{4096, 4096};
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0) << "the hard limit is too low";
    constexpr size_t count = 1000;
    const transport server = server_on(0);
    std::vector<transport> clients, accepted;
    for (size_t i = 0; i < count; ++i) {
        clients.push_back(client_of(server));
        accepted.push_back(accepted_from(server));
        ASSERT_TRUE(clients.back() && accepted.back()) << i << ": " << GetLastError();
    }
    ASSERT_GT(accepted.back()->socket, 1023u);
    std::vector<char> room(8);
    for (size_t i = 0; i < count; ++i)
        ASSERT_TRUE(send(clients[i], {static_cast<char>(i), static_cast<char>(i >> 8)}).success) << i;
    for (size_t i = count; i-- > 0;) {
        ASSERT_EQ(receive(accepted[i], room), (transferred{true, 2, 0, 0})) << i;
        ASSERT_TRUE(room[0] == static_cast<char>(i) && room[1] == static_cast<char>(i >> 8)) << i;
        ASSERT_EQ(receive(accepted[i], room, &no_time), out_of_time) << i;
    }
}

TEST(trans, one_thread_sends_while_another_receives) {
    const started_library library;
    const transport server = server_on(0);
    const transport client = client_of(server);
    const transport echo = accepted_from(server);
    constexpr size_t total = 4 << 20;
    std::vector<char> data(total), back(total);
    std::iota(data.begin(), data.end(), char{0});
    const auto send_all = [](const transport& to, const char* from, size_t size) {
        for (uint32_t sent; size > 0; from += sent, size -= sent) {
            if (!ZU_trans_send(to.get(), from, static_cast<uint32_t>(size), &sent, &long_time, nullptr))
                return;
        }
    };
    std::thread echoing([&] {
        std::vector<char> room(5000);
        uint32_t received;
        while (ZU_trans_recv(echo.get(), room.data(), 5000, &received, &long_time, nullptr))
            send_all(echo, room.data(), received);
    });
    std::thread sending([&] {
        send_all(client, data.data(), total);
        shutdown(static_cast<int>(client->socket), SHUT_WR);
    });
    size_t at = 0;
    for (uint32_t received; at < total; at += received) {
        if (!ZU_trans_recv(client.get(), back.data() + at, static_cast<uint32_t>(total - at), &received,
                           &long_time, nullptr))
            break;
    }
    sending.join();
    echoing.join();
    EXPECT_EQ(at, total);
    EXPECT_TRUE(back == data);
}

} // namespace
