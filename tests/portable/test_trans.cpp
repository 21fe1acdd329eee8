// Transports: construction and its failures, time-outs, lost peers, many connections at once.
#include "support/portable.h"

namespace {

using trans = with_library;

constexpr timeval no_time{0, 0}, short_time{0, 50000}, long_time{20, 0};

using transport = std::unique_ptr<ZU_trans, decltype([](ZU_trans* held) { ZU_trans_destroy(held); })>;

uint16_t server_port() {
    static const uint16_t port = port_of_our_own();
    return port;
}

transport server_on(uint16_t port = server_port(), uint32_t flags = ZU_TRANS_TCP, int32_t backlog = 64) {
    return transport(ZU_trans_socket_create_server(port, backlog, flags, 0, 0));
}

transport client_on(uint16_t port = server_port(), uint32_t flags = ZU_TRANS_TCP,
                    const uint16_t* local_port = nullptr, const ZU_wchar* host = u"127.0.0.1") {
    return transport(ZU_trans_socket_connect(host, port, local_port, flags, 8192, 8192));
}

transport accepted_from(const transport& server) {
    return transport(ZU_trans_socket_accept(server.get(), nullptr, nullptr, &long_time, nullptr));
}

const std::string refused = "code 87: ", lost = "code 10054: ", out_of_time = " timed out";

// The bytes that went; empty unless the transfer was done. Without the code when the time is over.
std::string outcome_of(bool success, const std::string& what_went, ZU_bool timed_out) {
    if (timed_out)
        return what_went + " timed out";
    return (success ? "done: " : "code " + std::to_string(GetLastError()) + ": ") + what_went;
}

std::string send(const transport& to, const std::string& data, const timeval* timeout = &long_time) {
    uint32_t count = 99;
    ZU_bool timed_out = 99;
    const bool success =
        ZU_trans_send(to.get(), data.data(), static_cast<uint32_t>(data.size()), &count, timeout, &timed_out);
    return outcome_of(success, data.substr(0, count), timed_out);
}

std::string receive(const transport& from, const timeval* timeout = &long_time) {
    char room[100] = "";
    uint32_t count = 99;
    ZU_bool timed_out = 99;
    const bool success = ZU_trans_recv(from.get(), room, sizeof room, &count, timeout, &timed_out);
    return outcome_of(success, std::string(room, count), timed_out);
}

TEST_F(trans, refuse_what_they_cannot_do_and_leave_nothing) {
    const uint16_t port = server_port();
    const auto descriptors = count_descriptors();
    {
        const transport server = server_on();
        const held_socket idle = bound_socket(SOCK_STREAM), taken = stream_socket();
        const sockaddr_in anywhere = ipv4(0, INADDR_ANY);
        ASSERT_EQ(ZU_bind(taken, reinterpret_cast<const sockaddr*>(&anywhere), sizeof anywhere), 0);
        const uint16_t closed_port = port_of(idle), taken_port = port_of(taken);
        const transport client = client_on(), datagrams = server_on(port, ZU_TRANS_UDP),
                        datagram_client = client_on(port, ZU_TRANS_UDP);
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
        EXPECT_EQ(code_of(bool{client_on(port, ZU_TRANS_TCP, &taken_port)}), uint32_t{WSAEADDRINUSE});
        EXPECT_EQ(code_of(bool{client_on(closed_port)}), uint32_t{WSAECONNREFUSED});
        EXPECT_EQ(code_of(bool{client_on(port, ZU_TRANS_TCP, nullptr, u"no host")}),
                  uint32_t{WSAHOST_NOT_FOUND});
    }
    EXPECT_EQ(count_descriptors(), descriptors);
    ZU_trans_destroy(nullptr);
}

TEST_F(trans, a_conversation) {
    const transport server =
        server_on(server_port(), ZU_TRANS_TCP | ZU_TRANS_KEEPALIVE | ZU_TRANS_NO_REUSEADDR);
    ZU_bool timed_out = 99;
    EXPECT_EQ(ZU_trans_socket_accept(server.get(), nullptr, nullptr, &short_time, &timed_out), nullptr);
    EXPECT_EQ(timed_out, 1);

    const uint16_t local = port_of_our_own();
    const transport client = // of this computer
        client_on(server_port(), ZU_TRANS_TCP | ZU_TRANS_NO_KEEPALIVE, &local, u"");
    ASSERT_TRUE(client);
    sockaddr_in peer{};
    int32_t length = sizeof peer;
    const transport accepted(ZU_trans_socket_accept(server.get(), reinterpret_cast<sockaddr*>(&peer), &length,
                                                    nullptr, &timed_out));
    ASSERT_TRUE(accepted);
    EXPECT_EQ(timed_out, 0);
    EXPECT_EQ(ntohs(peer.sin_port), local);

    EXPECT_EQ(receive(accepted, &short_time), out_of_time);
    EXPECT_EQ(send(client, "abc"), "done: abc");
    EXPECT_EQ(receive(accepted), "done: abc");
    EXPECT_EQ(receive(accepted, &short_time), out_of_time);

    // Half closed by the client: its end shows, the other direction still carries.
    const held_socket half = connected_to(ipv4(server_port()));
    const transport other = accepted_from(server);
    stop(half, direction::sending);
    EXPECT_EQ(receive(other), lost);
    EXPECT_EQ(send(other, "x"), "done: x");
    char byte = 0;
    EXPECT_EQ(ZU_recv(half, &byte, 1, 0), 1);
    EXPECT_EQ(send(accepted, "y"), "done: y");
    EXPECT_EQ(receive(client, nullptr), "done: y");

    held_socket gone = connected_to(ipv4(server_port()));
    const transport reset = accepted_from(server);
    gone.close_with_reset();
    EXPECT_EQ(receive(reset), lost);
    EXPECT_EQ(send(reset, "x", nullptr), lost);
}

TEST_F(trans, a_time_out_leaves_the_code_alone) {
    const transport server = server_on(), client = client_on();
    const transport accepted = accepted_from(server);
    SetLastError(4711);
    EXPECT_EQ(ZU_trans_socket_accept(server.get(), nullptr, nullptr, &short_time, nullptr), nullptr);
    EXPECT_EQ(receive(accepted, &short_time), out_of_time);
    EXPECT_EQ(GetLastError(), 4711u);
}

// A peer that never reads takes parts until the buffers are full: then the time-out ends each wait. The kernel may find
// more room a while later, so several waits have to end so.
TEST_F(trans, silent_peers) {
    const transport server = server_on();
    const transport client = client_on(), deaf = accepted_from(server);
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
    const uint16_t port = server_port();
    for (uint32_t option : {0u, ZU_TRANS_NO_REUSEADDR, ZU_TRANS_REUSEADDR, 0u}) {
        const transport server = server_on(port, ZU_TRANS_TCP | option);
        ASSERT_TRUE(server) << "code " << GetLastError() << " with option " << option;
        const transport client = client_on();
        accepted_from(server).reset(); // first to close: its side lingers
        EXPECT_EQ(receive(client), lost);
    }
}

TEST_F(trans, a_thousand_connections_at_once) {
    ASSERT_NO_FATAL_FAILURE(allow_descriptors(4096)); // and so numbers above 1,023
    const transport server = server_on(server_port(), ZU_TRANS_TCP, 1);
    std::vector<transport> clients, accepted;
    for (size_t i = 0; i < 1000; ++i) {
        clients.push_back(client_on());
        accepted.push_back(accepted_from(server));
        ASSERT_TRUE(clients.back()) << i << ": " << GetLastError();
        ASSERT_TRUE(accepted.back()) << i << ": " << GetLastError();
        ASSERT_NE(send(clients.back(), std::to_string(i)), out_of_time) << i;
    }
    for (size_t i = clients.size(); i-- > 0;) {
        ASSERT_EQ(receive(accepted[i]), "done: " + std::to_string(i));
        ASSERT_EQ(receive(accepted[i], &no_time), out_of_time) << i;
    }
}

TEST_F(trans, both_directions_at_once) {
    const transport server = server_on(), client = client_on(), accepted = accepted_from(server);
    std::string data(1 << 20, 0);
    std::iota(data.begin(), data.end(), char{0});
    const auto send_all = [&](const transport& to) {
        std::string left = data, went;
        while (!left.empty() && (went = send(to, left)).starts_with("done: "))
            left.erase(0, went.size() - 6);
    };
    const auto receive_all = [&](const transport& from) {
        std::string all, piece;
        while (all.size() < data.size() && (piece = receive(from)).starts_with("done: "))
            all += piece.substr(6);
        EXPECT_TRUE(all == data);
    };
    crew threads;
    for (const transport* end : {&client, &accepted}) {
        threads.add([&, end] { send_all(*end); });
        threads.add([&, end] { receive_all(*end); });
    }
}

} // namespace
