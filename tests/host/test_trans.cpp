// Transports: construction and its failures, time-outs, lost peers, many connections at once. About Linux: limits on
// descriptors, and sockets of the host.
#include "support/test.h"
#include "zu/zu_trans.h"

namespace {

using trans = with_library;

constexpr timeval no_time{0, 0}, short_time{0, 50000}, long_time{20, 0};

using transport = std::unique_ptr<ZU_trans, decltype([](ZU_trans* held) { ZU_trans_destroy(held); })>;

transport server_on(uint16_t port, uint32_t flags = ZU_TRANS_TCP, int32_t backlog = 64) {
    return transport(ZU_trans_socket_create_server(port, backlog, flags, 0, 0));
}

transport client_on(uint16_t port, uint32_t flags = ZU_TRANS_TCP, const uint16_t* local_port = nullptr,
                    const ZU_wchar* host = u"127.0.0.1") {
    return transport(ZU_trans_socket_connect(host, port, local_port, flags, 8192, 8192));
}

transport client_of(const transport& server) {
    return client_on(port_of(server->socket));
}

transport accepted_from(const transport& server) {
    return transport(ZU_trans_socket_accept(server.get(), nullptr, nullptr, &long_time, nullptr));
}

const std::string refused = "code 87: ", lost = "code 10054: ";
const std::string out_of_time = "code 4711:  timed out"; // the code is as it was before

// The bytes that went; empty unless the transfer was done.
std::string outcome_of(bool success, const std::string& what_went, ZU_bool timed_out) {
    return (success ? "done: " : "code " + std::to_string(GetLastError()) + ": ") + what_went
           + (timed_out ? " timed out" : "");
}

std::string send(const transport& to, const std::string& data, const timeval* timeout = &long_time) {
    uint32_t count = 99;
    ZU_bool timed_out = 99;
    SetLastError(4711);
    const bool success =
        ZU_trans_send(to.get(), data.data(), static_cast<uint32_t>(data.size()), &count, timeout, &timed_out);
    return outcome_of(success, data.substr(0, count), timed_out);
}

std::string receive(const transport& from, const timeval* timeout = &long_time) {
    char room[100] = "";
    uint32_t count = 99;
    ZU_bool timed_out = 99;
    SetLastError(4711);
    const bool success = ZU_trans_recv(from.get(), room, sizeof room, &count, timeout, &timed_out);
    return outcome_of(success, std::string(room, count), timed_out);
}

TEST_F(trans, refuse_what_they_cannot_do_and_leave_nothing) {
    const auto descriptors = count_descriptors();
    {
        const transport server = server_on(0);
        const held_socket idle = bound_socket(SOCK_STREAM);
        const uint16_t port = port_of(server->socket), closed_port = port_of(idle);
        const transport client = client_of(server), datagrams = server_on(0, ZU_TRANS_UDP),
                        datagram_client = client_on(port_of(datagrams->socket), ZU_TRANS_UDP);
        ASSERT_TRUE(client);
        ASSERT_TRUE(datagram_client);
        for (const transport* one : {&server, &datagrams, &datagram_client}) {
            EXPECT_EQ(send(*one, "x"), refused);
            EXPECT_EQ(receive(*one), refused);
        }
        for (const transport* one : {&client, &datagrams, &datagram_client})
            EXPECT_EQ(code_of(bool{accepted_from(*one)}), codes::invalid_parameter);
        EXPECT_EQ(code_of(bool{server_on(0, ZU_TRANS_KEEPALIVE)}), codes::invalid_parameter) << "no protocol";
        EXPECT_EQ(code_of(bool{client_on(port, 0)}), codes::invalid_parameter) << "no protocol";
        EXPECT_EQ(code_of(bool{server_on(port, ZU_TRANS_TCP | ZU_TRANS_REUSEADDR)}), uint32_t{WSAEADDRINUSE});
        EXPECT_EQ(code_of(bool{client_on(port, ZU_TRANS_TCP, &closed_port)}), uint32_t{WSAEADDRINUSE});
        EXPECT_EQ(code_of(bool{client_on(closed_port)}), uint32_t{WSAECONNREFUSED});
        EXPECT_EQ(code_of(bool{client_on(port, ZU_TRANS_TCP, nullptr, u"no host")}),
                  uint32_t{WSAHOST_NOT_FOUND});
    }
    EXPECT_EQ(count_descriptors(), descriptors);
    ZU_trans_destroy(nullptr);
}

TEST_F(trans, a_conversation) {
    const transport server = server_on(0, ZU_TRANS_TCP | ZU_TRANS_KEEPALIVE | ZU_TRANS_NO_REUSEADDR);
    ZU_bool timed_out = 99;
    SetLastError(4711);
    EXPECT_EQ(ZU_trans_socket_accept(server.get(), nullptr, nullptr, &short_time, &timed_out), nullptr);
    EXPECT_EQ(timed_out, 1);
    EXPECT_EQ(GetLastError(), 4711u);

    const uint16_t local = port_of_our_own();
    const transport client = // of this computer
        client_on(port_of(server->socket), ZU_TRANS_TCP | ZU_TRANS_NO_KEEPALIVE, &local, u"");
    ASSERT_TRUE(client);
    sockaddr_in peer{};
    int32_t length = sizeof peer;
    const transport accepted(ZU_trans_socket_accept(server.get(), reinterpret_cast<sockaddr*>(&peer), &length,
                                                    nullptr, &timed_out));
    ASSERT_TRUE(accepted);
    EXPECT_EQ(timed_out, 0);
    EXPECT_EQ(ntohs(peer.sin_port), local);
    EXPECT_EQ(accepted->flags, server->flags);

    EXPECT_EQ(receive(accepted, &short_time), out_of_time);
    EXPECT_EQ(send(client, "abc"), "done: abc");
    EXPECT_EQ(receive(accepted), "done: abc");
    EXPECT_EQ(receive(accepted, &short_time), out_of_time);

    // Half closed by the client: its end shows, the other direction still carries.
    shutdown(static_cast<int>(client->socket), SHUT_WR);
    EXPECT_EQ(receive(accepted), lost);
    EXPECT_EQ(send(accepted, "x"), "done: x");
    EXPECT_EQ(receive(client, nullptr), "done: x");
}

TEST_F(trans, lost_and_silent_peers) {
    const transport server = server_on(0);
    const transport gone = client_of(server), reset = accepted_from(server);
    held_socket(std::exchange(gone->socket, INVALID_SOCKET)).close_with_reset();
    EXPECT_EQ(receive(reset), lost);
    EXPECT_EQ(send(reset, "x", nullptr), lost);

    // A peer that never reads takes parts until the buffers are full: then the time-out ends each wait. The kernel may
    // find more room a while later, so several waits have to end so.
    const transport client = client_of(server), deaf = accepted_from(server);
    const std::string data(8 << 20, 'x');
    size_t sent = 0;
    for (int waits = 0; waits < 3;) {
        const std::string outcome = send(client, data, &short_time);
        const bool went = outcome.starts_with("done: ");
        ASSERT_EQ(went ? "" : outcome, went ? "" : out_of_time);
        sent += went ? outcome.size() - 6 : 0;
        waits = went ? 0 : waits + 1;
    }
    EXPECT_GT(sent, 8192u);
    std::string room(100000, 0);
    for (uint32_t count; sent > 0; sent -= count)
        ASSERT_TRUE(ZU_trans_recv(deaf.get(), room.data(), 100000, &count, &long_time, nullptr)) << sent;
    EXPECT_EQ(send(client, "x"), "done: x") << "there is room again";
}

TEST_F(trans, a_port_is_bound_again_at_once) {
    const uint16_t port = port_of_our_own(1);
    for (uint32_t option : {0u, ZU_TRANS_NO_REUSEADDR, ZU_TRANS_REUSEADDR, 0u}) {
        const transport server = server_on(port, ZU_TRANS_TCP | option);
        ASSERT_TRUE(server) << "code " << GetLastError() << " with option " << option;
        const transport client = client_of(server);
        accepted_from(server).reset(); // first to close: its side lingers
        EXPECT_EQ(receive(client), lost);
    }
}

TEST_F(trans, a_thousand_connections_at_once) {
    const rlimit limit{4096, 4096};
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0) << "the hard limit is too low";
    const transport server = server_on(0, ZU_TRANS_TCP, 1);
    std::vector<transport> clients, accepted;
    for (size_t i = 0; i < 1000; ++i) {
        clients.push_back(client_of(server));
        accepted.push_back(accepted_from(server));
        ASSERT_TRUE(clients.back()) << i << ": " << GetLastError();
        ASSERT_TRUE(accepted.back()) << i << ": " << GetLastError();
        ASSERT_NE(send(clients.back(), std::to_string(i)), out_of_time) << i;
    }
    ASSERT_GT(accepted.back()->socket, 1023u);
    for (size_t i = clients.size(); i-- > 0;) {
        ASSERT_EQ(receive(accepted[i]), "done: " + std::to_string(i));
        ASSERT_EQ(receive(accepted[i], &no_time), out_of_time) << i;
    }
}

TEST_F(trans, one_thread_sends_while_another_receives) {
    const transport server = server_on(0), client = client_of(server), echo = accepted_from(server);
    std::string data(4 << 20, 0), back;
    std::iota(data.begin(), data.end(), char{0});
    const auto send_all = [](const transport& to, std::string_view what) {
        for (uint32_t sent, size; (size = static_cast<uint32_t>(what.size())) > 0; what.remove_prefix(sent)) {
            if (!ZU_trans_send(to.get(), what.data(), size, &sent, &long_time, nullptr))
                return;
        }
    };
    const auto receive_all = [](const transport& from, const auto& take) {
        char room[5000];
        for (uint32_t size; ZU_trans_recv(from.get(), room, sizeof room, &size, &long_time, nullptr);)
            take(std::string_view(room, size));
    };
    crew others;
    others.add([&] {
        receive_all(echo, [&](std::string_view piece) { send_all(echo, piece); });
        shutdown(static_cast<int>(echo->socket), SHUT_WR);
    });
    others.add([&] {
        send_all(client, data);
        shutdown(static_cast<int>(client->socket), SHUT_WR);
    });
    receive_all(client, [&](std::string_view piece) { back += piece; });
    others.join();
    EXPECT_TRUE(back == data);
}

} // namespace
