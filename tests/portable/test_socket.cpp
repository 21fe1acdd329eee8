// Sockets: codes by situation, readiness, ports, the port test, addresses, names.
#include "support/portable.h"
#include "support/socket_calls.h"

namespace {

using sockets = with_library;

int bind_to(SOCKET socket, const sockaddr_in& address) {
    return outcome_of(ZU_bind(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address));
}

int accept_with_short_length(SOCKET socket) {
    sockaddr_in address;
    int32_t length = sizeof address - 1;
    return outcome_of(ZU_accept(socket, reinterpret_cast<sockaddr*>(&address), &length));
}

// Every call on one socket.
std::vector<int> all_calls(SOCKET socket) {
    const sockaddr_in address = ipv4(9);
    const int on = 1;
    return {outcome_of(ZU_accept(socket, nullptr, nullptr)),
            bind_to(socket, address),
            attempt(socket, address),
            outcome_of(ZU_listen(socket, 1)),
            set_option(socket, SO_KEEPALIVE, &on),
            transmit(socket),
            receive(socket),
            outcome_of(ZU_socket_close(socket))};
}

TEST(library, calls_need_it) {
    fd_set set = set_of(0);
    for (int code : all_calls(0))
        EXPECT_EQ(code, WSANOTINITIALISED);
    EXPECT_EQ(outcome_of(ZU_socket(AF_INET, SOCK_STREAM, 0)), WSANOTINITIALISED);
    EXPECT_EQ(outcome_of(ZU_select(0, &set, nullptr, nullptr, nullptr)), WSANOTINITIALISED);
    EXPECT_EQ(ZU_socket_test_port(u"127.0.0.1", 1, 10), 1);
    EXPECT_EQ(code_of(ZU_get_ip_address_by_host_name(u"localhost")), uint32_t{WSANOTINITIALISED});
}

TEST_F(sockets, codes_of_streams_by_state) {
    const held_socket fresh = stream_socket(), listener = listening_socket(),
                      idle = bound_socket(SOCK_STREAM);
    const sockaddr_in address = address_of(listener);
    let_block(listener, false); // although none of these calls waits
    EXPECT_EQ(receive(listener), WSAENOTCONN);
    for (const held_socket* unconnected : {&fresh, &listener, &idle})
        EXPECT_EQ(transmit(*unconnected), WSAENOTCONN);
    EXPECT_EQ(accept_with_short_length(idle), WSAEINVAL) << "the socket is looked at first";
    EXPECT_EQ(bind_to(fresh, address), WSAEADDRINUSE);

    EXPECT_EQ(attempt(fresh, address, 15), WSAEFAULT);
    EXPECT_EQ(attempt(fresh, address_of(idle)), WSAECONNREFUSED);
    EXPECT_EQ(attempt(fresh, ipv4(0)), WSAEADDRNOTAVAIL);
    EXPECT_EQ(attempt(fresh, ipv4(port_of(listener), INADDR_ANY)), WSAEADDRNOTAVAIL);
    EXPECT_EQ(attempt(fresh, sockaddr_in{}), WSAEAFNOSUPPORT);
    for (bool blocks : {true, false}) { // from its own port, where nobody listens
        const held_socket lonely = bound_socket(SOCK_STREAM);
        let_block(lonely, blocks);
        EXPECT_EQ(attempt(lonely, address_of(lonely)), WSAECONNREFUSED);
        EXPECT_EQ(transmit(lonely), WSAENOTCONN);
    }
    EXPECT_EQ(attempt(fresh, address), 0) << "usable after all these";
    EXPECT_EQ(attempt(fresh, address), WSAEISCONN);

    const silent_port silent;
    const held_socket trying = stream_socket();
    let_block(trying, false);
    EXPECT_EQ(attempt(trying, address_of(silent.listener)), WSAEWOULDBLOCK);
    EXPECT_EQ(attempt(trying, address_of(silent.listener)), WSAEALREADY);
    EXPECT_EQ(receive(trying), WSAENOTCONN);
    EXPECT_EQ(transmit(trying), WSAENOTCONN);
}

TEST_F(sockets, streams_tell_how_their_connection_ended) {
    connection half, deaf, left;
    stop(half.client, direction::sending);
    EXPECT_EQ(transmit(half.client), WSAESHUTDOWN);
    EXPECT_EQ(receive(half.server), 0);
    stop(half.server, direction::both);
    EXPECT_EQ(receive(half.client), 0) << "both ends have closed: still the peer's end";
    stop(deaf.client, direction::receiving);
    EXPECT_EQ(receive(deaf.client), WSAESHUTDOWN);
    left.client.close();
    EXPECT_EQ(transmit(left.server), 1);
    EXPECT_EQ(transmit(left.server), WSAECONNRESET);
}

enum : unsigned { read_ready = 1, write_ready = 2, error_ready = 4 };

unsigned readiness(SOCKET socket) {
    fd_set sets[] = {set_of(socket), set_of(socket), set_of(socket)};
    const timeval at_most{0, 30000};
    const int count = ZU_select(-5, &sets[0], &sets[1], &sets[2], &at_most);
    unsigned ready = 0;
    for (size_t i = 0; i < 3; ++i)
        ready |= FD_ISSET(socket, &sets[i]) ? 1u << i : 0u;
    EXPECT_EQ(__builtin_popcount(ready), count);
    return ready;
}

TEST_F(sockets, each_state_shows_in_its_sets) {
    const held_socket fresh = stream_socket(), idle = bound_socket(SOCK_STREAM),
                      listener = listening_socket();
    for (const held_socket* one : {&fresh, &idle, &listener})
        EXPECT_EQ(readiness(*one), 0u);
    const held_socket client = connected_to(address_of(listener));
    EXPECT_EQ(readiness(listener), read_ready) << "a connection waits";
    connection pair, closed, reset;
    EXPECT_EQ(readiness(pair.server), write_ready);
    transmit(pair.client);
    EXPECT_EQ(readiness(pair.server), read_ready | write_ready);
    char byte;
    EXPECT_EQ(ZU_recv(pair.server, &byte, 0, 0), 0) << "of no bytes takes none";
    ASSERT_EQ(receive(pair.server), 1);
    ZU_send(pair.client, "!", 1, MSG_OOB);
    EXPECT_EQ(readiness(pair.server) & ~read_ready, write_ready | error_ready) << "out of band";
    closed.client.close();
    EXPECT_EQ(readiness(closed.server), read_ready | write_ready);
    reset.client.close_with_reset();
    EXPECT_EQ(readiness(reset.server), read_ready | write_ready);
}

TEST_F(sockets, refusals_and_resets_are_told) {
    const held_socket idle = bound_socket(SOCK_STREAM), listener = listening_socket(),
                      client = stream_socket();
    let_block(client, false);
    EXPECT_EQ(attempt(client, address_of(idle)), WSAEWOULDBLOCK);
    EXPECT_EQ(readiness(client), error_ready) << "refused";
    EXPECT_EQ(transmit(client), WSAENOTCONN);
    EXPECT_EQ(readiness(client), error_ready) << "still";
    EXPECT_EQ(receive(client), WSAENOTCONN);
    EXPECT_EQ(attempt(client, address_of(listener)), WSAEWOULDBLOCK) << "a further attempt";
    EXPECT_EQ(readiness(client), write_ready) << "connected";
    connection reset;
    reset.client.close_with_reset();
    EXPECT_EQ(readiness(reset.server), read_ready | write_ready);
    EXPECT_EQ(receive(reset.server), WSAECONNRESET) << "looking has not taken the reason away";
    EXPECT_EQ(transmit(reset.server), WSAECONNRESET) << "no signal";
    EXPECT_EQ(outcome_of(ZU_send(reset.server, "x", -1, 0)), WSAEFAULT);
}

TEST_F(sockets, datagrams) {
    const held_socket fresh(ZU_socket(AF_INET, SOCK_DGRAM, 0)), receiver = bound_socket(SOCK_DGRAM);
    const sockaddr_in to = address_of(receiver);
    let_block(fresh, false); // although none of these calls waits
    EXPECT_EQ(accept_with_short_length(fresh), WSAEOPNOTSUPP);
    EXPECT_EQ(transmit(fresh, to, "abcd", 8), WSAEFAULT);
    ASSERT_EQ(transmit(fresh, to, "abcd"), 4);
    ASSERT_EQ(transmit(fresh, to, "x"), 1);
    EXPECT_EQ(receive(fresh), WSAEWOULDBLOCK);

    char buffer[4] = "";
    sockaddr_in from{};
    int32_t length = sizeof from;
    EXPECT_EQ(outcome_of(ZU_recv(receiver, buffer, 3, 0)), WSAEMSGSIZE);
    EXPECT_STREQ(buffer, "abc") << "the part that fits is there, the rest is gone";
    EXPECT_EQ(ZU_recvfrom(receiver, buffer, 4, 0, reinterpret_cast<sockaddr*>(&from), &length), 1);
    EXPECT_EQ(ntohs(from.sin_port), port_of(fresh));
}

// A datagram that nobody took is reported to one receive, and keeps no other datagram from going.
TEST_F(sockets, datagrams_that_nobody_took) {
    const held_socket fresh(ZU_socket(AF_INET, SOCK_DGRAM, 0)), receiver = bound_socket(SOCK_DGRAM);
    const sockaddr_in to = address_of(receiver), to_nobody = address_of(bound_socket(SOCK_DGRAM));
    const int long_enough_ms = 2000;
    EXPECT_EQ(set_option(receiver, SO_RCVTIMEO, &long_enough_ms), 0);
    let_block(fresh, false);
    EXPECT_EQ(transmit(fresh), WSAENOTCONN);
    for (bool connected : {false, true}) {
        SCOPED_TRACE(connected);
        for (int i = 0; i < 2; ++i) {
            EXPECT_EQ(transmit(fresh, to_nobody), 1);
            EXPECT_EQ(transmit(fresh, to), 1);
            EXPECT_EQ(receive(receiver), 1);
        }
        EXPECT_EQ(readiness(fresh), read_ready | write_ready);
        EXPECT_EQ(receive(fresh), WSAECONNRESET);
        EXPECT_EQ(receive(fresh), WSAECONNRESET);
        EXPECT_EQ(transmit(fresh, to, std::string(65520, 'x')), WSAEMSGSIZE);
        EXPECT_EQ(receive(fresh), WSAEWOULDBLOCK);
        EXPECT_EQ(readiness(fresh), write_ready) << "a failure of this side is none of a receive";
        ASSERT_EQ(attempt(fresh, to_nobody), 0);
    }
}

TEST_F(sockets, calls_wait_for_others_and_for_their_time) {
    expect_calls_to_wait();
}

TEST_F(sockets, addresses_of_version_6) {
    const auto of = [](auto& address) { return reinterpret_cast<sockaddr*>(&address); };
    sockaddr_in6 address{};
    address.sin6_family = AF_INET6;
    const held_socket six(ZU_socket(AF_INET6, SOCK_STREAM, 0)), from(ZU_socket(AF_INET6, SOCK_STREAM, 0)),
        spoiled(ZU_socket(AF_INET6, SOCK_STREAM, 0));
    if (ZU_bind(six, of(address), sizeof address) != 0)
        GTEST_SKIP() << "no IPv6 on this machine";
    ASSERT_EQ(outcome_of(ZU_listen(six, 1)), 0);
    EXPECT_EQ(outcome_of(ZU_connect(spoiled, of(address), sizeof address)), WSAEADDRNOTAVAIL) << "port 0";
    address.sin6_port = htons(port_of(six));
    EXPECT_EQ(outcome_of(ZU_connect(spoiled, of(address), 27)), WSAEFAULT);
    EXPECT_EQ(outcome_of(ZU_connect(spoiled, of(address), sizeof address)), WSAEADDRNOTAVAIL) << "no address";
    address.sin6_addr = in6addr_loopback;
    ASSERT_EQ(outcome_of(ZU_connect(from, of(address), sizeof address)), 0);
    int32_t room = 20;
    EXPECT_EQ(outcome_of(ZU_accept(six, of(address), &room)), WSAEFAULT);
    room = sizeof address;
    const held_socket accepted(ZU_accept(six, of(address), &room));
    EXPECT_EQ(ntohs(address.sin6_port), port_of(from)) << "it was not lost over that";
}

TEST_F(sockets, a_listener_that_does_not_block) {
    const connection pair;
    let_block(pair.listener, false);
    EXPECT_EQ(outcome_of(ZU_accept(pair.listener, nullptr, nullptr)), WSAEWOULDBLOCK);
    EXPECT_EQ(accept_with_short_length(pair.listener), WSAEWOULDBLOCK);
    const held_socket client = connected_to(address_of(pair.listener));
    EXPECT_EQ(accept_with_short_length(pair.listener), WSAEFAULT);
    const held_socket accepted(ZU_accept(pair.listener, nullptr, nullptr)); // it was not lost over that
    EXPECT_EQ(receive(accepted), WSAEWOULDBLOCK) << "an accepted socket has its listener's mode";
}

const part a_server("server", [](const words& port) {
    const started_library library;
    const held_socket listener = listening_socket(static_cast<uint16_t>(std::stoi(port[0])));
    const held_socket client = connected_to(address_of(listener)),
                      server(ZU_accept(listener, nullptr, nullptr));
    report(server == INVALID_SOCKET ? "no connection" : "connected");
    wait_for_parent();
    return 0;
});

TEST_F(sockets, a_killed_programs_port_is_free_again) {
    const uint16_t port = port_of_our_own();
    child program(a_server, {std::to_string(port)});
    EXPECT_EQ(program.next_line(), "connected");
    EXPECT_EQ(outcome_of(bound_socket(SOCK_STREAM, port)), WSAEADDRINUSE);
    program.kill();
    EXPECT_EQ(bound_socket(SOCK_STREAM, port) == INVALID_SOCKET, false) << GetLastError();
}

TEST_F(sockets, a_port_is_taken_over_only_from_what_winds_down) {
    held_socket next = stream_socket();
    const int on = 1;
    const held_socket listener = listening_socket();
    held_socket connected = bound_socket(SOCK_STREAM, port_of_our_own());
    for (const held_socket* one : {&connected, &next})
        EXPECT_EQ(set_option(*one, SO_REUSEADDR, &on), 0) << "which changes nothing";
    EXPECT_EQ(attempt(connected, address_of(listener)), 0);
    const held_socket server(ZU_accept(listener, nullptr, nullptr));
    const sockaddr_in of_client = address_of(connected);
    EXPECT_EQ(bind_to(next, of_client), WSAEADDRINUSE) << "a connection keeps its port";
    connected.close(); // first, so that its side lingers
    EXPECT_EQ(bind_to(next, of_client), 0);
    EXPECT_EQ(outcome_of(bound_socket(SOCK_STREAM, port_of(next))), WSAEADDRINUSE);
}

TEST_F(sockets, port_test_verdicts) {
    const auto descriptors = count_descriptors();
    {
        const held_socket open = listening_socket(), idle = bound_socket(SOCK_STREAM);
        const silent_port silent;
        EXPECT_EQ(tested(u"127.0.0.1", port_of(open), 0xFFFFFFFF), "0, 0");
        EXPECT_EQ(tested(u"127.0.0.1", port_of(idle), 5000), "1, 10035") << "refused";
        EXPECT_EQ(tested(u"127.0.0.1", port_of(silent.listener), 0), "2, 10035") << "polled";
        EXPECT_EQ(tested(u"127.0.0.1", 0), "1, 10049");
        const auto start = std::chrono::steady_clock::now();
        EXPECT_EQ(tested(u"127.0.0.1", port_of(silent.listener), 1200), "2, 10035");
        EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(1200));
    }
    EXPECT_EQ(count_descriptors(), descriptors) << "every path closes its socket";
}

TEST(address, dotted_text_both_ways) {
    for (const char* text : {"0.0.0.0", "1.20.255.99", "192.168.100.10"}) {
        char plain[16];
        ZU_wchar wide_text[16];
        ZU_inet_ntoa(ZU_inet_addr(text), plain);
        ZU_inet_ntoa_tchar(ZU_inet_addr(text), wide_text);
        EXPECT_STREQ(plain, text);
        EXPECT_EQ(wide_text, wide(text));
    }
    for (const char16_t* shape : {u"192.168.0.1", u"255.255.255.255", u"999.1.1.1", u"1..2.3", u"1...2"})
        EXPECT_TRUE(ZU_is_ip_address(shape)) << narrow(shape);
    for (const char16_t* other : {u"1.2.3.4.5", u"0.0.0.0.", u".1.2.3", u"1.2.3.a", u"1234567890.1.1.1", u"",
                                  u"1", u"1.2.3", u"123456789012345", u"1.2.3.4 ", u"255.255.255.2555"})
        EXPECT_FALSE(ZU_is_ip_address(other)) << narrow(other);
}

TEST_F(sockets, own_name_and_odd_names) {
    ZU_wchar name[65];
    ASSERT_EQ(ZU_gethostname(name, 65), 1);
    const uint32_t length = static_cast<uint32_t>(std::u16string(name).size());
    for (uint32_t capacity : {0u, length})
        EXPECT_EQ(code_of(ZU_gethostname(name, capacity)), codes::buffer_overflow);
    const std::u16string own = looked_up(u"");
    EXPECT_TRUE(ZU_is_ip_address(own.c_str())) << narrow(own);
    EXPECT_EQ(looked_up(u"999.1..1"), u"999.1..1") << "copied as it is";
    EXPECT_EQ(looked_up(u"1.2.3"), u"1.2.0.3") << "an address, by its shorter form";
    for (const ZU_wchar* unknown : {u" ", u"a b", u"256.1.1"})
        EXPECT_EQ(looked_up(unknown), u"code 11001") << narrow(unknown);
}

TEST_F(sockets, the_own_name_is_no_question_to_the_hosts_file) {
    ZU_wchar name[65];
    ASSERT_EQ(ZU_gethostname(name, 65), 1);
    EXPECT_EQ(looked_up(name), narrow(name) == "localhost" ? u"127.0.0.1" : looked_up(u""));
}

} // namespace
