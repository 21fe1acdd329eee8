// Socket wrappers and address helpers: codes by situation, readiness, ports, names.
#include <arpa/inet.h>
#include <bit>

#include "support/test.h"

namespace {

const sockaddr* generic(const sockaddr_in& address) {
    return reinterpret_cast<const sockaddr*>(&address);
}

// A call's outcome in one number: its result when it succeeds, else the code.
int outcome_of(int64_t result) {
    return result >= 0 && result != INVALID_SOCKET ? static_cast<int>(result)
                                                   : static_cast<int>(GetLastError());
}

int receive(SOCKET socket, int flags = 0) {
    char byte;
    return outcome_of(ZU_recv(socket, &byte, 1, flags));
}

int transmit(SOCKET socket) {
    return outcome_of(ZU_send(socket, "x", 1, 0));
}

int transmit(SOCKET socket, const sockaddr_in& to, const std::string& data = "x",
             int32_t length = sizeof(sockaddr_in)) {
    return outcome_of(
        ZU_sendto(socket, data.data(), static_cast<int32_t>(data.size()), 0, generic(to), length));
}

int attempt(SOCKET socket, const sockaddr_in& address, int32_t length = sizeof(sockaddr_in)) {
    return outcome_of(ZU_connect(socket, generic(address), length));
}

int bind_to(SOCKET socket, const sockaddr_in& address, int32_t length = sizeof(sockaddr_in)) {
    return outcome_of(ZU_bind(socket, generic(address), length));
}

int accept_with_short_length(SOCKET socket) {
    sockaddr_in address;
    int32_t length = sizeof address - 1;
    return outcome_of(ZU_accept(socket, reinterpret_cast<sockaddr*>(&address), &length));
}

void let_block(SOCKET socket, bool blocks) {
    unsigned long non_blocking = !blocks;
    EXPECT_EQ(platform::ioctlsocket(socket, FIONBIO, &non_blocking), 0);
}

int set_option(SOCKET socket, int option, const void* value, int32_t length) {
    return outcome_of(ZU_setsockopt(socket, SOL_SOCKET, option, value, length));
}

fd_set set_of(SOCKET socket) {
    fd_set set;
    FD_ZERO(&set);
    FD_SET(socket, &set);
    return set;
}

enum : unsigned { read_ready = 1, write_ready = 2, error_ready = 4 };

// By the host's sets and by one-socket sets, which must agree.
unsigned readiness(SOCKET socket) {
    fd_set sets[] = {set_of(socket), set_of(socket), set_of(socket)};
    std::vector<platform::one_socket_set> single(3, platform::one_socket_set(socket));
    const timeval at_most{0, 30000};
    const int count = ZU_select(0, &sets[0], &sets[1], &sets[2], &at_most);
    EXPECT_EQ(platform::select(0, &single[0], &single[1], &single[2], &at_most), count);
    unsigned ready = 0;
    for (size_t i = 0; i < 3; ++i) {
        const bool is_set = FD_ISSET(socket, &sets[i]);
        EXPECT_EQ(platform::__WSAFDIsSet(socket, &single[i]), is_set);
        ready |= is_set ? 1u << i : 0u;
    }
    EXPECT_EQ(std::popcount(ready), count);
    return ready;
}

// Every call on one socket.
std::vector<int> all_calls(SOCKET socket) {
    static const sockaddr_in address = loopback(9);
    sockaddr_in from;
    int32_t length = sizeof from;
    char byte = 0;
    unsigned long on = 1;
    return {outcome_of(ZU_accept(socket, nullptr, nullptr)),
            bind_to(socket, address),
            attempt(socket, address),
            outcome_of(ZU_listen(socket, 1)),
            set_option(socket, SO_KEEPALIVE, &on, 4),
            outcome_of(platform::ioctlsocket(socket, FIONBIO, &on)),
            transmit(socket),
            receive(socket),
            transmit(socket, address),
            outcome_of(ZU_recvfrom(socket, &byte, 1, 0, reinterpret_cast<sockaddr*>(&from), &length)),
            outcome_of(ZU_socket_close(socket))};
}

TEST(socket, calls_need_the_library_and_a_socket) {
    fd_set set = set_of(0);
    for (int code : all_calls(0))
        EXPECT_EQ(code, WSANOTINITIALISED);
    EXPECT_EQ(outcome_of(ZU_socket(AF_INET, SOCK_STREAM, 0)), WSANOTINITIALISED);
    EXPECT_EQ(outcome_of(ZU_select(0, &set, nullptr, nullptr, nullptr)), WSANOTINITIALISED);
    EXPECT_EQ(platform::gethostbyname("localhost"), nullptr);
    EXPECT_EQ(GetLastError(), static_cast<uint32_t>(WSANOTINITIALISED));

    const started_library library;
    int pipes[2];
    ASSERT_EQ(pipe(pipes), 0);
    const SOCKET closed = ZU_socket(AF_INET, SOCK_STREAM, 0);
    ASSERT_EQ(ZU_socket_close(closed), 0);
    for (SOCKET stranger : {INVALID_SOCKET, closed, static_cast<SOCKET>(pipes[0])}) {
        for (int code : all_calls(stranger))
            EXPECT_EQ(code, WSAENOTSOCK) << stranger;
        EXPECT_EQ(accept_with_short_length(stranger), WSAENOTSOCK) << stranger;
    }
    for (int end : pipes) { // one that waits for bytes, one that could take some
        set = set_of(static_cast<SOCKET>(end));
        EXPECT_EQ(outcome_of(ZU_select(0, &set, &set, nullptr, nullptr)), WSAENOTSOCK);
        EXPECT_EQ(close(end), 0) << "closing what is no socket leaves it open";
    }

    EXPECT_EQ(outcome_of(ZU_socket(99, SOCK_STREAM, 0)), WSAEAFNOSUPPORT);
    EXPECT_EQ(outcome_of(ZU_socket(AF_INET, 99, 0)), WSAESOCKTNOSUPPORT);
    EXPECT_EQ(outcome_of(ZU_socket(AF_INET, SOCK_STREAM, 999)), WSAEPROTONOSUPPORT);
    EXPECT_EQ(outcome_of(ZU_socket(AF_INET, SOCK_STREAM, IPPROTO_UDP)), WSAEPROTONOSUPPORT);
}

TEST(socket, streams_that_are_not_connected_fail_with_the_code_of_their_state) {
    const started_library library;
    const held_socket fresh = stream_socket(), listener = listening_socket(),
                      idle = bound_socket(SOCK_STREAM);
    const sockaddr_in address = address_of(listener);
    for (const held_socket* unconnected : {&fresh, &listener, &idle}) {
        EXPECT_EQ(receive(*unconnected), WSAENOTCONN);
        EXPECT_EQ(transmit(*unconnected), WSAENOTCONN);
    }
    EXPECT_EQ(outcome_of(ZU_recv(fresh, nullptr, 0, 0)), WSAENOTCONN);
    EXPECT_EQ(outcome_of(ZU_listen(fresh, 1)), WSAEINVAL) << "not bound";
    EXPECT_EQ(outcome_of(ZU_accept(idle, nullptr, nullptr)), WSAEINVAL) << "not listening";
    EXPECT_EQ(accept_with_short_length(idle), WSAEINVAL) << "the socket is looked at first";
    EXPECT_EQ(accept_with_short_length(listener), WSAEFAULT);
    EXPECT_EQ(bind_to(idle, address), WSAEINVAL) << "bound already";
    EXPECT_EQ(bind_to(fresh, address, 8), WSAEFAULT);
    EXPECT_EQ(bind_to(fresh, address), WSAEADDRINUSE);

    EXPECT_EQ(attempt(fresh, address, 15), WSAEFAULT);
    EXPECT_EQ(attempt(fresh, address_of(idle)), WSAECONNREFUSED);
    EXPECT_EQ(attempt(fresh, loopback(0)), WSAEADDRNOTAVAIL);
    EXPECT_EQ(attempt(fresh, ipv4(INADDR_ANY, port_of(listener))), WSAEADDRNOTAVAIL);
    EXPECT_EQ(attempt(fresh, ipv4(INADDR_NONE, port_of(listener))), WSAENETUNREACH);
    EXPECT_EQ(attempt(fresh, sockaddr_in{}), WSAEAFNOSUPPORT);
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

TEST(socket, streams_tell_how_their_connection_ended) {
    const started_library library;
    connection half, deaf, left;
    shutdown(static_cast<int>(half.client), SHUT_WR);
    EXPECT_EQ(transmit(half.client), WSAESHUTDOWN);
    EXPECT_EQ(receive(half.server), 0);
    EXPECT_EQ(receive(half.server), 0);
    shutdown(static_cast<int>(half.server), SHUT_RDWR);
    EXPECT_EQ(receive(half.client), 0) << "both ends have closed: still the peer's end";

    shutdown(static_cast<int>(deaf.client), SHUT_RD);
    EXPECT_EQ(receive(deaf.client), WSAESHUTDOWN);

    for (bool read_first : {true, false}) {
        connection reset;
        reset.client.close_with_reset();
        EXPECT_EQ(read_first ? receive(reset.server) : transmit(reset.server), WSAECONNRESET);
        EXPECT_EQ(transmit(reset.server), WSAECONNRESET) << "no signal";
    }
    left.client.close();
    EXPECT_EQ(transmit(left.server), 1);
    EXPECT_EQ(transmit(left.server), WSAECONNRESET);
    EXPECT_EQ(outcome_of(ZU_send(left.server, "x", -1, 0)), WSAEFAULT);
}

TEST(socket, datagrams) {
    const started_library library;
    const held_socket fresh(ZU_socket(AF_INET, SOCK_DGRAM, 0)), receiver = bound_socket(SOCK_DGRAM);
    const sockaddr_in to = address_of(receiver), to_nobody = address_of(bound_socket(SOCK_DGRAM));
    EXPECT_EQ(receive(fresh), WSAEINVAL) << "without a port nothing can arrive";
    let_block(fresh, false);
    EXPECT_EQ(transmit(fresh, to_nobody), 1);
    EXPECT_EQ(receive(fresh), WSAECONNRESET);
    EXPECT_EQ(receive(fresh), WSAEWOULDBLOCK);
    EXPECT_EQ(transmit(fresh), WSAENOTCONN);
    EXPECT_EQ(outcome_of(ZU_listen(fresh, 1)), WSAEOPNOTSUPP);
    EXPECT_EQ(outcome_of(ZU_accept(fresh, nullptr, nullptr)), WSAEOPNOTSUPP);
    EXPECT_EQ(accept_with_short_length(fresh), WSAEOPNOTSUPP);
    EXPECT_EQ(transmit(fresh, to, "abcd", 8), WSAEFAULT);
    ASSERT_EQ(transmit(fresh, to, "abcd"), 4);
    ASSERT_EQ(transmit(fresh, to, "efg"), 3);
    EXPECT_EQ(transmit(fresh, to, std::string(70000, 'x')), WSAEMSGSIZE);

    char buffer[4] = "";
    sockaddr_in from{};
    int32_t length = sizeof from;
    EXPECT_EQ(outcome_of(ZU_recv(receiver, buffer, 3, 0)), WSAEMSGSIZE);
    EXPECT_EQ(std::string(buffer), "abc") << "the part that fits is there, the rest is gone";
    EXPECT_EQ(ZU_recvfrom(receiver, buffer, 4, 0, reinterpret_cast<sockaddr*>(&from), &length), 3);
    EXPECT_EQ(std::string(buffer), "efg");
    EXPECT_EQ(ntohs(from.sin_port), port_of(fresh));

    // What nobody took is reported to a receive, once each, and keeps no other datagram from going.
    for (bool connected : {false, true}) {
        SCOPED_TRACE(connected ? "connected" : "not connected");
        for (int i = 0; i < 2; ++i) {
            EXPECT_EQ(transmit(fresh, to_nobody), 1);
            EXPECT_EQ(transmit(fresh, to), 1);
            EXPECT_EQ(receive(receiver), 1);
        }
        EXPECT_EQ(readiness(fresh), read_ready | write_ready);
        EXPECT_EQ(receive(fresh), WSAECONNRESET);
        EXPECT_EQ(receive(fresh), WSAECONNRESET);
        EXPECT_EQ(receive(fresh), WSAEWOULDBLOCK);
        EXPECT_EQ(transmit(fresh, to, std::string(65520, 'x')), WSAEMSGSIZE);
        EXPECT_EQ(receive(fresh), WSAEWOULDBLOCK);
        EXPECT_EQ(readiness(fresh), write_ready) << "a failure of this side is none of a receive";
        ASSERT_EQ(attempt(fresh, to_nobody), 0);
    }
}

// ---- Readiness -------------------------------------------------------------------------------------------------

TEST(select, each_state_shows_in_its_sets) {
    const started_library library;
    const held_socket fresh = stream_socket(), idle = bound_socket(SOCK_STREAM),
                      listener = listening_socket();
    for (const held_socket* one : {&fresh, &idle, &listener})
        EXPECT_EQ(readiness(*one), 0u);

    for (bool blocks_again : {false, true}) { // a further attempt, not the report of the first
        const held_socket client = stream_socket();
        let_block(client, false);
        EXPECT_EQ(attempt(client, address_of(idle)), WSAEWOULDBLOCK);
        EXPECT_EQ(readiness(client), error_ready) << "refused";
        let_block(client, blocks_again);
        EXPECT_EQ(attempt(client, address_of(listener)), blocks_again ? 0 : WSAEWOULDBLOCK);
        EXPECT_EQ(readiness(client), write_ready) << "connected";
    }
    EXPECT_EQ(readiness(listener), read_ready) << "a connection waits";
    let_block(fresh, false);
    EXPECT_EQ(attempt(fresh, address_of(idle)), WSAEWOULDBLOCK);
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(readiness(fresh), error_ready);
        EXPECT_EQ(i == 0 ? transmit(fresh) : receive(fresh), WSAENOTCONN);
    }

    connection pair, closed, reset;
    EXPECT_EQ(readiness(pair.server), write_ready);
    transmit(pair.client);
    EXPECT_EQ(readiness(pair.server), read_ready | write_ready);
    ASSERT_EQ(receive(pair.server), 1);
    ZU_send(pair.client, "!", 1, MSG_OOB);
    EXPECT_EQ(readiness(pair.server) & (write_ready | error_ready), write_ready | error_ready)
        << "out of band";
    closed.client.close();
    EXPECT_EQ(readiness(closed.server), read_ready | write_ready);
    reset.client.close_with_reset();
    EXPECT_EQ(readiness(reset.server), read_ready | write_ready);
    EXPECT_EQ(receive(reset.server), WSAECONNRESET) << "looking has not taken the reason away";
}

TEST(select, timeouts_sets_and_bad_arguments) {
    const started_library library;
    held_socket listener = listening_socket();
    fd_set set = set_of(listener), empty;
    FD_ZERO(&empty);
    timeval timeout{0, 1500000};
    const auto start = std::chrono::steady_clock::now();
    SetLastError(4711);
    EXPECT_EQ(ZU_select(-5, &set, &empty, nullptr, &timeout), 0);
    EXPECT_EQ(GetLastError(), 4711u) << "a time-out leaves the code alone";
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(1500));
    EXPECT_FALSE(FD_ISSET(listener, &set));
    EXPECT_TRUE(timeout.tv_sec == 0 && timeout.tv_usec == 1500000);

    EXPECT_EQ(outcome_of(ZU_select(0, nullptr, nullptr, nullptr, &timeout)), WSAEINVAL);
    EXPECT_EQ(outcome_of(ZU_select(0, &empty, nullptr, &empty, nullptr)), WSAEINVAL);
    set = set_of(listener);
    timeout = {-1, 0};
    EXPECT_EQ(outcome_of(ZU_select(0, &set, nullptr, nullptr, &timeout)), WSAEINVAL);
    listener.close();
    EXPECT_EQ(outcome_of(ZU_select(0, &set, nullptr, nullptr, nullptr)), WSAENOTSOCK);
}

TEST(socket, calls_go_on_after_signals_and_see_what_others_do) {
    const started_library library;
    struct sigaction action {};
    action.sa_handler = [](int) {};
    sigaction(SIGUSR1, &action, nullptr);
    const held_socket listener = listening_socket(), client = stream_socket();
    const pthread_t self = pthread_self();
    std::thread other([&] {
        for (int i = 0; i < 60; ++i) {
            usleep(5000);
            pthread_kill(self, SIGUSR1);
            if (i % 20 == 19) {
                EXPECT_EQ(i == 19 ? attempt(client, address_of(listener)) : transmit(client), i != 19);
            }
        }
    });
    platform::one_socket_set writable(client);
    EXPECT_EQ(platform::select(0, nullptr, &writable, nullptr, nullptr), 1) << "not ready at first";
    const held_socket server(ZU_accept(listener, nullptr, nullptr));
    fd_set set = set_of(server);
    EXPECT_EQ(ZU_select(0, &set, nullptr, nullptr, nullptr), 1);
    EXPECT_EQ(receive(server), 1);
    EXPECT_EQ(receive(server), 1);
    other.join();
}

// ---- Options, descriptors, ports -------------------------------------------------------------------------------

TEST(socket, options_in_the_forms_of_both_sides) {
    const started_library library;
    const connection pair;
    const int milliseconds = 20;
    const timeval time{0, 20000};
    const char on = 1;
    EXPECT_EQ(set_option(pair.server, SO_RCVTIMEO, &milliseconds, sizeof milliseconds), 0);
    EXPECT_EQ(receive(pair.server), WSAETIMEDOUT);
    EXPECT_EQ(receive(pair.server, MSG_DONTWAIT), WSAEWOULDBLOCK);
    EXPECT_EQ(set_option(pair.client, SO_RCVTIMEO, &time, sizeof time), 0);
    EXPECT_EQ(receive(pair.client), WSAETIMEDOUT);
    EXPECT_EQ(set_option(pair.client, SO_KEEPALIVE, &on, 1), 0);
    EXPECT_EQ(set_option(pair.client, SO_SNDBUF, &on, 1), WSAEFAULT);
    EXPECT_EQ(set_option(pair.client, SO_SNDBUF, nullptr, 4), WSAEFAULT);
    EXPECT_EQ(set_option(pair.client, 9999, &milliseconds, 4), WSAENOPROTOOPT);
    for (const held_socket* end : {&pair.client, &pair.server})
        EXPECT_EQ(fcntl(static_cast<int>(*end), F_GETFD), FD_CLOEXEC);

    const held_socket listener = listening_socket(), client = stream_socket();
    let_block(listener, false);
    EXPECT_EQ(outcome_of(ZU_accept(listener, nullptr, nullptr)), WSAEWOULDBLOCK);
    EXPECT_EQ(accept_with_short_length(listener), WSAEWOULDBLOCK);
    ASSERT_EQ(attempt(client, address_of(listener)), 0);
    sockaddr_in from{};
    EXPECT_EQ(outcome_of(ZU_accept(listener, reinterpret_cast<sockaddr*>(&from), nullptr)), WSAEFAULT);
    EXPECT_EQ(accept_with_short_length(listener), WSAEFAULT);
    const held_socket accepted(
        ZU_accept(listener, nullptr, nullptr)); // the connection was not lost over that
    EXPECT_EQ(receive(accepted), WSAEWOULDBLOCK) << "an accepted socket has its listener's mode";
}

// Leaves a listening port behind with a connection that this side closes first, so that it lingers.
uint16_t port_of_a_killed_server() {
    const held_socket listener = bound_socket(SOCK_STREAM), client = stream_socket();
    const pid_t child = fork();
    if (child == 0) {
        ZU_listen(listener, 1);
        attempt(client, address_of(listener));
        ZU_accept(listener, nullptr, nullptr);
        raise(SIGKILL);
    }
    waitpid(child, nullptr, 0);
    return port_of(listener);
}

TEST(socket, a_port_is_taken_over_only_from_what_winds_down) {
    const started_library library;
    const uint16_t free_again = port_of_a_killed_server();
    for (bool listens : {true, false}) {
        const held_socket next =
            listens ? listening_socket(free_again) : bound_socket(SOCK_STREAM, free_again);
        ASSERT_NE(next, INVALID_SOCKET) << GetLastError();
        EXPECT_EQ(outcome_of(bound_socket(SOCK_STREAM, free_again)), WSAEADDRINUSE)
            << "listening " << listens;
    }
    for (int option : {0, 1}) { // which changes nothing
        held_socket listener = listening_socket(), client = stream_socket(), next = stream_socket();
        for (const held_socket* one : {&client, &next})
            EXPECT_EQ(set_option(*one, SO_REUSEADDR, &option, sizeof option), 0);
        ASSERT_EQ(attempt(client, address_of(listener)), 0);
        const held_socket server(ZU_accept(listener, nullptr, nullptr));
        const sockaddr_in of_client = address_of(client);
        EXPECT_EQ(bind_to(next, of_client), WSAEADDRINUSE) << "a connection keeps its port";
        client.close(); // first, so that its side lingers
        EXPECT_EQ(bind_to(next, of_client), 0);
        const uint16_t port = port_of(listener);
        listener.close();
        EXPECT_NE(listening_socket(port), INVALID_SOCKET) << "what was accepted does not";
    }
}

// ---- Addresses and names ---------------------------------------------------------------------------------------

void expect_address(const char* text, uint32_t host_order) {
    SetLastError(4711);
    EXPECT_EQ(ZU_inet_addr(text), htonl(host_order)) << text;
    EXPECT_EQ(ZU_inet_addr_tchar(wide(text).c_str()), htonl(host_order)) << text;
    EXPECT_EQ(GetLastError(), 4711u) << text;
}

TEST(address, dotted_text_both_ways) {
    // clang-format off
    const struct {
        const char* text;
        uint32_t address; // in host order
    } rows[] = {
        {"10.1.2.3", 0x0A010203},   {"1.2.3", 0x01020003},     {"1.2", 0x01000002},           {"1", 1},
        {"0", 0},                   {"1.2.65535", 0x0102FFFF}, {"1.16777215", 0x01FFFFFF},    {" ", 0},
        {"0x10.1.2.3", 0x10010203}, {"0XfF.1", 0xFF000001},    {"010.1.2.3", 0x08010203},
        {"1.2.3.4 ", 0x01020304},   {"1.2.3.4 x", 0x01020304}, {"1.2.3.4\n", 0x01020304},
        {"4294967294", 0xFFFFFFFE}, {"255.255.255.255", INADDR_NONE}};
    const char* const no_addresses[] = {
        "1.2.65536", "1.16777216", "4294967296", "99999999999999999999", "256.1.1.1", "1.2.3.256", "1.2.3.0400",
        "08.1.1.1", "0x", " 1.2.3.4", "\t1.2.3.4", "  ", "", "1.2.3.4.5", "1..2.3", ".1.2.3", "1.2.3.", "-1.2.3.4",
        "+1.2.3.4", "1.2.3.4x", "localhost"};
    // clang-format on
    for (const auto& row : rows)
        expect_address(row.text, row.address);
    for (const char* text : no_addresses)
        expect_address(text, INADDR_NONE);
    for (const char* text : {"0.0.0.0", "1.20.255.99", "255.255.255.255", "192.168.100.10"}) {
        char plain[16];
        ZU_wchar wide_text[16];
        ZU_inet_ntoa(inet_addr(text), plain);
        ZU_inet_ntoa_tchar(inet_addr(text), wide_text);
        EXPECT_STREQ(plain, text);
        EXPECT_EQ(wide_text, wide(text));
    }
}

TEST(address, the_shape_of_a_dotted_address) {
    for (const char16_t* text : {u"192.168.0.1", u"255.255.255.255", u"999.1.1.1", u"1..2.3", u"1...2"})
        EXPECT_TRUE(ZU_is_ip_address(text)) << narrow(text);
    for (const char16_t* text :
         {u"1.2.3.4.5", u"0.0.0.0.", u".1.2.3", u"1.2.3.a", u"1234567890.1.1.1", u"", u"1", u"1.2.3",
          u"1.2.3.", u"123456789012345", u"1.2.3.4 ", u"255.255.255.2555"})
        EXPECT_FALSE(ZU_is_ip_address(text)) << narrow(text);
}

std::u16string looked_up(const ZU_wchar* name) {
    SetLastError(0);
    ZU_wchar* text = ZU_get_ip_address_by_host_name(name);
    const std::u16string copy = text ? text : u"code " + wide(std::to_string(GetLastError()));
    ZU_free(text);
    return copy;
}

TEST(name, of_this_computer_and_what_nobody_is_asked_for) {
    const started_library library;
    ZU_wchar name[65];
    ASSERT_EQ(ZU_gethostname(name, 65), 1);
    const uint32_t length = static_cast<uint32_t>(std::u16string(name).size());
    for (uint32_t capacity : {0u, 1u, length}) {
        SetLastError(0);
        EXPECT_EQ(ZU_gethostname(name, capacity), 0);
        EXPECT_EQ(GetLastError(), 111u);
    }
    EXPECT_EQ(ZU_gethostname(name, length + 1), 1);

    const std::u16string own = looked_up(u"");
    EXPECT_TRUE(ZU_is_ip_address(own.c_str())) << narrow(own);
    EXPECT_EQ(looked_up(name), narrow(name) == "localhost" ? u"127.0.0.1" : own);
    EXPECT_EQ(looked_up(u"10.0.0.1"), u"10.0.0.1");
    EXPECT_EQ(looked_up(u"999.1..1"), u"999.1..1") << "copied as it is";
    EXPECT_EQ(looked_up(u"1.2.3"), u"1.2.0.3") << "an address, by its shorter form";
    for (const ZU_wchar* unknown : {u" ", u"a b", u"256.1.1"})
        EXPECT_EQ(looked_up(unknown), u"code 11001") << narrow(unknown);
    if (knows_localhost()) {
        EXPECT_EQ(looked_up(u"LOCALHOST"), u"127.0.0.1");
    }
}

// A name server that gives every question the same short answer.
void answer_with(int server, int response_code) {
    unsigned char question[512];
    sockaddr_in from;
    socklen_t length = sizeof from;
    for (ssize_t size;
         (size = recvfrom(server, question, sizeof question, 0, reinterpret_cast<sockaddr*>(&from), &length))
         > 12;) {
        question[2] |= 0x80; // a response
        question[3] = static_cast<unsigned char>(0x80 | response_code);
        question[11] = 0; // no additional records
        sendto(server, question, static_cast<size_t>(size), 0, reinterpret_cast<sockaddr*>(&from), length);
    }
}

TEST(name, the_resolver_answers_in_codes) {
    const started_library library;
    const file_place place;
    place.write("resolv.conf", "nameserver 127.0.0.1\noptions timeout:1 attempts:1\n");
    const bool ran = in_private_network([&] {
        ASSERT_EQ(
            mount(place.host_path("resolv.conf").c_str(), "/etc/resolv.conf", nullptr, MS_BIND, nullptr), 0);
        const std::pair<int, std::u16string> rows[] = {
            {3, u"code 11001"}, {2, u"code 11002"}, {0, u"code 11004"}};
        for (const auto& [response_code, outcome] : rows) {
            const held_socket server = bound_socket(SOCK_DGRAM, 53);
            ASSERT_NE(server, INVALID_SOCKET);
            std::thread answering(answer_with, static_cast<int>(server), response_code);
            EXPECT_EQ(looked_up(u"nobody.example"), outcome);
            shutdown(static_cast<int>(server), SHUT_RD);
            answering.join();
        }
        EXPECT_EQ(looked_up(u"nobody.example"), u"code 11002") << "no server at all";
        EXPECT_EQ(looked_up(u""), u"127.0.0.1") << "no other address here";
    });
    if (!ran)
        GTEST_SKIP() << "this user may not make a network of its own";
}

} // namespace
