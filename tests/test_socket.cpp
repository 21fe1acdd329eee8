// Socket wrappers and address helpers: codes by situation, readiness, ports, names.
#include <arpa/inet.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <chrono>
#include <csignal>
#include <functional>
#include <string>
#include <thread>

#include <gtest/gtest.h>

#include "platform/platform.h"
#include "support/files.h"
#include "support/network.h"

namespace {

using namespace zu_test;

const sockaddr* generic(const sockaddr_in& address) {
    return reinterpret_cast<const sockaddr*>(&address);
}

// A call's outcome in one number: its result when it succeeds, else the code.
int outcome_of(int64_t result) {
    return result >= 0 && result != INVALID_SOCKET ? static_cast<int>(result)
                                                   : static_cast<int>(GetLastError());
}

std::u16string taken(ZU_wchar* text) {
    std::u16string copy = text ? text : u"<null>";
    ZU_free(text);
    return copy;
}

int receive(SOCKET socket, int flags = 0) {
    char byte;
    return outcome_of(ZU_recv(socket, &byte, 1, flags));
}

int transmit(SOCKET socket) {
    return outcome_of(ZU_send(socket, "x", 1, 0));
}

int attempt(SOCKET socket, const sockaddr_in& address) {
    return outcome_of(ZU_connect(socket, generic(address), sizeof address));
}

int accept_with_short_length(SOCKET socket) {
    sockaddr_in address;
    int32_t length = sizeof address - 1;
    return outcome_of(ZU_accept(socket, reinterpret_cast<sockaddr*>(&address), &length));
}

// Every call on one socket.
std::vector<int> all_calls(SOCKET socket) {
    static const sockaddr_in address = loopback(9);
    static sockaddr_in from;
    static int32_t length = sizeof from;
    char byte = 0;
    unsigned long on = 1;
    return {outcome_of(ZU_accept(socket, nullptr, nullptr)),
            outcome_of(ZU_bind(socket, generic(address), sizeof address)),
            attempt(socket, address),
            outcome_of(ZU_listen(socket, 1)),
            outcome_of(ZU_setsockopt(socket, SOL_SOCKET, SO_KEEPALIVE, &on, 4)),
            outcome_of(platform::ioctlsocket(socket, FIONBIO, &on)),
            transmit(socket),
            receive(socket),
            outcome_of(ZU_sendto(socket, &byte, 1, 0, generic(address), sizeof address)),
            outcome_of(ZU_recvfrom(socket, &byte, 1, 0, reinterpret_cast<sockaddr*>(&from), &length)),
            outcome_of(ZU_socket_close(socket))};
}

enum : unsigned { read_ready = 1, write_ready = 2, error_ready = 4 };

// By the host's sets and by one-socket sets, which must agree.
unsigned readiness(SOCKET socket) {
    fd_set sets[3];
    std::array<platform::one_socket_set, 3> single{
        platform::one_socket_set(socket), platform::one_socket_set(socket), platform::one_socket_set(socket)};
    for (fd_set& set : sets) {
        FD_ZERO(&set);
        FD_SET(socket, &set);
    }
    const timeval at_most{0, 30000};
    const int count = ZU_select(0, &sets[0], &sets[1], &sets[2], &at_most);
    EXPECT_EQ(platform::select(0, &single[0], &single[1], &single[2], &at_most), count);
    unsigned ready = 0;
    for (size_t i = 0; i < 3; ++i) {
        const bool is_set = FD_ISSET(socket, &sets[i]);
        EXPECT_EQ(platform::__WSAFDIsSet(socket, &single[i]), is_set);
        ready |= is_set ? 1u << i : 0u;
    }
    EXPECT_EQ(__builtin_popcount(ready), count);
    return ready;
}

TEST(socket, calls_need_the_library_and_a_socket) {
    fd_set set;
    FD_ZERO(&set);
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
        FD_ZERO(&set);
        FD_SET(end, &set);
        EXPECT_EQ(outcome_of(ZU_select(0, &set, &set, nullptr, nullptr)), WSAENOTSOCK);
    }
    EXPECT_EQ(fcntl(pipes[0], F_GETFD), 0) << "closing what is no socket leaves it open";
    close(pipes[0]);
    close(pipes[1]);

    const struct {
        int family, type, protocol, code;
    } rows[] = {{99, SOCK_STREAM, 0, WSAEAFNOSUPPORT},
                {AF_INET, 99, 0, WSAESOCKTNOSUPPORT},
                {AF_INET, SOCK_STREAM, 999, WSAEPROTONOSUPPORT},
                {AF_INET, SOCK_STREAM, IPPROTO_UDP, WSAEPROTONOSUPPORT}};
    for (const auto& row : rows)
        EXPECT_EQ(outcome_of(ZU_socket(row.family, row.type, row.protocol)), row.code) << row.code;
}

TEST(socket, streams_fail_with_the_code_of_their_state) {
    const started_library library;
    const SOCKET fresh = ZU_socket(AF_INET, SOCK_STREAM, 0);
    const SOCKET listener = listening_socket();
    const SOCKET idle = bound_socket(SOCK_STREAM);
    sockaddr_in address = loopback(port_of(listener));
    for (SOCKET unconnected : {fresh, listener, idle}) {
        EXPECT_EQ(receive(unconnected), WSAENOTCONN);
        EXPECT_EQ(transmit(unconnected), WSAENOTCONN);
    }
    EXPECT_EQ(outcome_of(ZU_recv(fresh, nullptr, 0, 0)), WSAENOTCONN);
    EXPECT_EQ(outcome_of(ZU_listen(fresh, 1)), WSAEINVAL) << "not bound";
    EXPECT_EQ(outcome_of(ZU_accept(idle, nullptr, nullptr)), WSAEINVAL) << "not listening";
    EXPECT_EQ(outcome_of(ZU_bind(idle, generic(address), sizeof address)), WSAEINVAL) << "bound already";
    EXPECT_EQ(outcome_of(ZU_bind(fresh, generic(address), 8)), WSAEFAULT);
    EXPECT_EQ(outcome_of(ZU_bind(fresh, generic(address), sizeof address)), WSAEADDRINUSE);
    EXPECT_EQ(outcome_of(ZU_connect(fresh, generic(address), 15)), WSAEFAULT);
    EXPECT_EQ(accept_with_short_length(idle), WSAEINVAL) << "the socket is looked at first";
    EXPECT_EQ(accept_with_short_length(listener), WSAEFAULT);

    sockaddr_in target = loopback(port_of(idle));
    EXPECT_EQ(attempt(fresh, target), WSAECONNREFUSED);
    target.sin_family = AF_UNSPEC;
    EXPECT_EQ(attempt(fresh, target), WSAEAFNOSUPPORT);
    EXPECT_EQ(attempt(fresh, loopback(0)), WSAEADDRNOTAVAIL);
    target = address;
    target.sin_addr.s_addr = INADDR_ANY;
    EXPECT_EQ(attempt(fresh, target), WSAEADDRNOTAVAIL);
    target.sin_addr.s_addr = INADDR_NONE;
    EXPECT_EQ(attempt(fresh, target), WSAENETUNREACH);
    EXPECT_EQ(attempt(fresh, address), 0) << "usable after all these";
    EXPECT_EQ(attempt(fresh, address), WSAEISCONN);

    {
        const silent_port silent;
        const SOCKET trying = ZU_socket(AF_INET, SOCK_STREAM, 0);
        make_non_blocking(trying);
        EXPECT_EQ(attempt(trying, loopback(port_of(silent.listener))), WSAEWOULDBLOCK);
        EXPECT_EQ(attempt(trying, loopback(port_of(silent.listener))), WSAEALREADY);
        EXPECT_EQ(receive(trying), WSAENOTCONN);
        EXPECT_EQ(transmit(trying), WSAENOTCONN);
        ZU_socket_close(trying);
    }
    {
        connection pair;
        shutdown(static_cast<int>(pair.client), SHUT_WR);
        EXPECT_EQ(transmit(pair.client), WSAESHUTDOWN);
        EXPECT_EQ(receive(pair.server), 0);
        EXPECT_EQ(receive(pair.server), 0);
        shutdown(static_cast<int>(pair.server), SHUT_RDWR);
        EXPECT_EQ(receive(pair.client), 0) << "both ends have closed: still the peer's end";
    }
    {
        connection pair;
        shutdown(static_cast<int>(pair.client), SHUT_RD);
        EXPECT_EQ(receive(pair.client), WSAESHUTDOWN);
    }
    for (bool read_first : {true, false}) {
        connection pair;
        close_with_reset(pair.client);
        EXPECT_EQ(read_first ? receive(pair.server) : transmit(pair.server), WSAECONNRESET);
        EXPECT_EQ(transmit(pair.server), WSAECONNRESET)
            << "the second loss of a pipe raises no signal either";
    }
    {
        connection pair;
        ZU_socket_close(pair.client);
        EXPECT_EQ(transmit(pair.server), 1);
        EXPECT_EQ(transmit(pair.server), WSAECONNRESET);
        EXPECT_EQ(outcome_of(ZU_send(pair.server, "x", -1, 0)), WSAEFAULT);
    }
    for (SOCKET socket : {fresh, listener, idle})
        ZU_socket_close(socket);
}

TEST(socket, datagrams) {
    const started_library library;
    const SOCKET fresh = ZU_socket(AF_INET, SOCK_DGRAM, 0);
    const SOCKET receiver = bound_socket(SOCK_DGRAM);
    const sockaddr_in to = loopback(port_of(receiver));
    EXPECT_EQ(receive(fresh), WSAEINVAL) << "without a port nothing can arrive";
    EXPECT_EQ(transmit(fresh), WSAENOTCONN);
    EXPECT_EQ(outcome_of(ZU_listen(fresh, 1)), WSAEOPNOTSUPP);
    EXPECT_EQ(outcome_of(ZU_accept(fresh, nullptr, nullptr)), WSAEOPNOTSUPP);
    EXPECT_EQ(accept_with_short_length(fresh), WSAEOPNOTSUPP);
    EXPECT_EQ(outcome_of(ZU_sendto(fresh, "abcd", 4, 0, generic(to), 8)), WSAEFAULT);
    ASSERT_EQ(ZU_sendto(fresh, "abcd", 4, 0, generic(to), sizeof to), 4);
    ASSERT_EQ(ZU_sendto(fresh, "efg", 3, 0, generic(to), sizeof to), 3);

    char buffer[4] = "";
    sockaddr_in from{};
    int32_t length = sizeof from;
    EXPECT_EQ(outcome_of(ZU_recv(receiver, buffer, 3, 0)), WSAEMSGSIZE);
    EXPECT_EQ(std::string(buffer), "abc") << "the part that fits is there, the rest is gone";
    EXPECT_EQ(ZU_recvfrom(receiver, buffer, 4, 0, reinterpret_cast<sockaddr*>(&from), &length), 3);
    EXPECT_EQ(std::string(buffer), "efg");
    EXPECT_EQ(ntohs(from.sin_port), port_of(fresh));
    const std::string huge(70000, 'x');
    EXPECT_EQ(outcome_of(ZU_sendto(fresh, huge.data(), 70000, 0, generic(to), sizeof to)), WSAEMSGSIZE);

    // What nobody took is reported by a receive, once each, and keeps no other datagram from going.
    const SOCKET gone = bound_socket(SOCK_DGRAM);
    const sockaddr_in to_nobody = loopback(port_of(gone));
    ZU_socket_close(gone);
    make_non_blocking(fresh);
    for (bool connected : {false, true}) {
        SCOPED_TRACE(connected ? "connected" : "not connected");
        for (int i = 0; i < 2; ++i) {
            EXPECT_EQ(outcome_of(ZU_sendto(fresh, "x", 1, 0, generic(to_nobody), sizeof to_nobody)), 1);
            EXPECT_EQ(outcome_of(ZU_sendto(fresh, "y", 1, 0, generic(to), sizeof to)), 1);
            EXPECT_EQ(receive(receiver), 1);
        }
        EXPECT_EQ(readiness(fresh), read_ready | write_ready);
        EXPECT_EQ(receive(fresh), WSAECONNRESET);
        EXPECT_EQ(receive(fresh), WSAECONNRESET);
        EXPECT_EQ(receive(fresh), WSAEWOULDBLOCK);
        EXPECT_EQ(outcome_of(ZU_sendto(fresh, huge.data(), 65520, 0, generic(to), sizeof to)), WSAEMSGSIZE);
        EXPECT_EQ(receive(fresh), WSAEWOULDBLOCK);
        EXPECT_EQ(readiness(fresh), write_ready) << "a failure of this side is none of a receive";
        ASSERT_EQ(attempt(fresh, to_nobody), 0);
    }
    EXPECT_EQ(transmit(fresh), 1);
    EXPECT_EQ(receive(fresh), WSAECONNRESET);
    ZU_socket_close(receiver);
    ZU_socket_close(fresh);
}

// ---- Readiness -------------------------------------------------------------------------------------------------

TEST(select, each_state_shows_in_its_sets) {
    const started_library library;
    const SOCKET fresh = ZU_socket(AF_INET, SOCK_STREAM, 0);
    const SOCKET idle = bound_socket(SOCK_STREAM);
    const SOCKET listener = listening_socket();
    EXPECT_EQ(readiness(fresh), 0u);
    EXPECT_EQ(readiness(idle), 0u);
    EXPECT_EQ(readiness(listener), 0u);

    make_non_blocking(fresh);
    for (int round = 0; round < 2; ++round) { // the second is a new attempt, not the report of the first
        EXPECT_EQ(attempt(fresh, loopback(port_of(idle))), WSAEWOULDBLOCK);
        EXPECT_EQ(readiness(fresh), error_ready) << "refused";
    }
    EXPECT_EQ(attempt(fresh, loopback(port_of(listener))), WSAEWOULDBLOCK);
    EXPECT_EQ(readiness(fresh), write_ready) << "connected";
    EXPECT_EQ(readiness(listener), read_ready) << "a connection waits";

    const SOCKET mended = ZU_socket(AF_INET, SOCK_STREAM, 0);
    make_non_blocking(mended);
    EXPECT_EQ(attempt(mended, loopback(port_of(idle))), WSAEWOULDBLOCK);
    EXPECT_EQ(readiness(mended), error_ready);
    unsigned long off = 0;
    ASSERT_EQ(platform::ioctlsocket(mended, FIONBIO, &off), 0);
    EXPECT_EQ(attempt(mended, loopback(port_of(listener))), 0) << "blocking now, it tries again too";
    ZU_socket_close(mended);

    connection pair;
    EXPECT_EQ(readiness(pair.server), write_ready);
    transmit(pair.client);
    EXPECT_EQ(readiness(pair.server), read_ready | write_ready);
    ASSERT_EQ(receive(pair.server), 1);
    ZU_send(pair.client, "!", 1, MSG_OOB);
    EXPECT_EQ(readiness(pair.server) & (write_ready | error_ready), write_ready | error_ready)
        << "out of band";
    connection closed, reset;
    ZU_socket_close(closed.client);
    EXPECT_EQ(readiness(closed.server), read_ready | write_ready);
    close_with_reset(reset.client);
    EXPECT_EQ(readiness(reset.server), read_ready | write_ready);
    EXPECT_EQ(receive(reset.server), WSAECONNRESET) << "looking has not taken the reason away";
    for (SOCKET socket : {fresh, idle, listener})
        ZU_socket_close(socket);
}

TEST(select, timeouts_sets_and_bad_arguments) {
    const started_library library;
    const SOCKET listener = listening_socket();
    fd_set set, empty;
    FD_ZERO(&empty);
    FD_ZERO(&set);
    FD_SET(listener, &set);
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
    FD_SET(listener, &set);
    timeout = {-1, 0};
    EXPECT_EQ(outcome_of(ZU_select(0, &set, nullptr, nullptr, &timeout)), WSAEINVAL);
    ZU_socket_close(listener);
    EXPECT_EQ(outcome_of(ZU_select(0, &set, nullptr, nullptr, nullptr)), WSAENOTSOCK);
}

TEST(select, sees_what_others_do_to_a_socket_that_was_not_ready) {
    const started_library library;
    const SOCKET listener = listening_socket();
    const SOCKET client = ZU_socket(AF_INET, SOCK_STREAM, 0);
    std::thread other([&] {
        usleep(50000);
        attempt(client, loopback(port_of(listener)));
    });
    platform::one_socket_set writable(client);
    EXPECT_EQ(platform::select(0, nullptr, &writable, nullptr, nullptr), 1);
    other.join();
    ZU_socket_close(client);
    ZU_socket_close(listener);
}

TEST(socket, interrupted_calls_go_on) {
    const started_library library;
    struct sigaction action {};
    action.sa_handler = [](int) {};
    sigaction(SIGUSR1, &action, nullptr);
    connection pair;
    const pthread_t self = pthread_self();
    std::thread disturber([&] {
        for (int i = 0; i < 40; ++i) {
            usleep(5000);
            pthread_kill(self, SIGUSR1);
            if (i == 19 || i == 39)
                transmit(pair.client);
        }
    });
    fd_set set;
    FD_ZERO(&set);
    FD_SET(pair.server, &set);
    EXPECT_EQ(ZU_select(0, &set, nullptr, nullptr, nullptr), 1);
    EXPECT_EQ(receive(pair.server), 1);
    EXPECT_EQ(receive(pair.server), 1);
    disturber.join();
}

// ---- Options, descriptors, ports -------------------------------------------------------------------------------

TEST(socket, options_in_the_forms_of_both_sides) {
    const started_library library;
    connection pair;
    const int milliseconds = 20;
    const timeval time{0, 20000};
    EXPECT_EQ(ZU_setsockopt(pair.server, SOL_SOCKET, SO_RCVTIMEO, &milliseconds, sizeof milliseconds), 0);
    EXPECT_EQ(receive(pair.server), WSAETIMEDOUT);
    EXPECT_EQ(receive(pair.server, MSG_DONTWAIT), WSAEWOULDBLOCK);
    EXPECT_EQ(ZU_setsockopt(pair.client, SOL_SOCKET, SO_RCVTIMEO, &time, sizeof time), 0);
    EXPECT_EQ(receive(pair.client), WSAETIMEDOUT);
    const char on = 1;
    EXPECT_EQ(ZU_setsockopt(pair.client, SOL_SOCKET, SO_KEEPALIVE, &on, 1), 0);
    EXPECT_EQ(outcome_of(ZU_setsockopt(pair.client, SOL_SOCKET, SO_SNDBUF, &on, 1)), WSAEFAULT);
    EXPECT_EQ(outcome_of(ZU_setsockopt(pair.client, SOL_SOCKET, SO_SNDBUF, nullptr, 4)), WSAEFAULT);
    EXPECT_EQ(outcome_of(ZU_setsockopt(pair.client, SOL_SOCKET, 9999, &milliseconds, 4)), WSAENOPROTOOPT);

    EXPECT_EQ(fcntl(static_cast<int>(pair.client), F_GETFD), FD_CLOEXEC);
    EXPECT_EQ(fcntl(static_cast<int>(pair.server), F_GETFD), FD_CLOEXEC);
    const SOCKET listener = listening_socket();
    make_non_blocking(listener);
    EXPECT_EQ(outcome_of(ZU_accept(listener, nullptr, nullptr)), WSAEWOULDBLOCK);
    EXPECT_EQ(accept_with_short_length(listener), WSAEWOULDBLOCK);
    const SOCKET client = ZU_socket(AF_INET, SOCK_STREAM, 0);
    ASSERT_EQ(attempt(client, loopback(port_of(listener))), 0);
    sockaddr_in from{};
    EXPECT_EQ(outcome_of(ZU_accept(listener, reinterpret_cast<sockaddr*>(&from), nullptr)), WSAEFAULT);
    EXPECT_EQ(accept_with_short_length(listener), WSAEFAULT);
    const SOCKET accepted = ZU_accept(listener, nullptr, nullptr); // the connection was not lost over that
    EXPECT_EQ(receive(accepted), WSAEWOULDBLOCK) << "an accepted socket has its listener's mode";
    for (SOCKET socket : {listener, client, accepted})
        ZU_socket_close(socket);
}

// Leaves a listening port behind with a connection that this side closes first, so that it lingers.
uint16_t port_that_winds_down(bool option, bool killed) {
    const SOCKET listener = bound_socket(SOCK_STREAM);
    const uint16_t port = port_of(listener);
    const int value = option;
    ZU_setsockopt(listener, SOL_SOCKET, SO_REUSEADDR, &value, sizeof value);
    const SOCKET client = ZU_socket(AF_INET, SOCK_STREAM, 0);
    const pid_t child = killed ? fork() : 0;
    if (child == 0) {
        ZU_listen(listener, 1);
        attempt(client, loopback(port));
        const SOCKET server = ZU_accept(listener, nullptr, nullptr);
        if (killed)
            raise(SIGKILL);
        ZU_socket_close(server);
    } else {
        waitpid(child, nullptr, 0);
    }
    ZU_socket_close(listener);
    ZU_socket_close(client);
    return port;
}

TEST(socket, a_port_is_taken_over_only_from_what_winds_down) {
    const started_library library;
    for (bool option : {false, true}) {
        for (bool killed : {false, true}) {
            const uint16_t port = port_that_winds_down(option, killed);
            const SOCKET next = listening_socket(port);
            ASSERT_NE(next, INVALID_SOCKET) << GetLastError();
            EXPECT_EQ(bound_socket(SOCK_STREAM, port), INVALID_SOCKET);
            EXPECT_EQ(GetLastError(), static_cast<uint32_t>(WSAEADDRINUSE)) << "it has a listener";
            ZU_socket_close(next);
            const SOCKET idle = bound_socket(SOCK_STREAM, port);
            ASSERT_NE(idle, INVALID_SOCKET);
            EXPECT_EQ(bound_socket(SOCK_STREAM, port), INVALID_SOCKET) << "bound is enough to keep it";
            ZU_socket_close(idle);
        }
    }
}

TEST(socket, a_connection_keeps_its_port_until_it_is_closed) {
    const started_library library;
    const int on = 1;
    for (bool option : {false, true}) { // SO_REUSEADDR changes nothing
        const SOCKET listener = listening_socket();
        const SOCKET client = ZU_socket(AF_INET, SOCK_STREAM, 0);
        if (option) {
            ASSERT_EQ(ZU_setsockopt(client, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on), 0);
        }
        ASSERT_EQ(attempt(client, loopback(port_of(listener))), 0);
        const SOCKET server = ZU_accept(listener, nullptr, nullptr);
        const sockaddr_in of_client = loopback(port_of(client));
        const SOCKET next = ZU_socket(AF_INET, SOCK_STREAM, 0);
        if (option)
            ZU_setsockopt(next, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
        EXPECT_EQ(outcome_of(ZU_bind(next, generic(of_client), sizeof of_client)), WSAEADDRINUSE);
        ZU_socket_close(client); // the first to close: its side lingers
        EXPECT_EQ(outcome_of(ZU_bind(next, generic(of_client), sizeof of_client)), 0);

        const uint16_t port = port_of(listener);
        ZU_socket_close(listener);
        const SOCKET again = listening_socket(port);
        EXPECT_NE(again, INVALID_SOCKET) << "what a server accepted does not keep its port";
        for (SOCKET socket : {server, next, again})
            ZU_socket_close(socket);
    }
}

// ---- Addresses and names ---------------------------------------------------------------------------------------

TEST(address, dotted_text_both_ways) {
    const uint32_t none = 0xFFFFFFFF;
    const struct {
        const char* text;
        uint32_t address; // in host order
    } rows[] = {{"10.1.2.3", 0x0A010203},
                {"1.2.3", 0x01020003},
                {"1.2", 0x01000002},
                {"1", 1},
                {"0", 0},
                {"1.2.65535", 0x0102FFFF},
                {"1.2.65536", none},
                {"1.16777215", 0x01FFFFFF},
                {"1.16777216", none},
                {"0x10.1.2.3", 0x10010203},
                {"0XfF.1", 0xFF000001},
                {"010.1.2.3", 0x08010203},
                {"08.1.1.1", none},
                {"0x", none},
                {"1.2.3.4 ", 0x01020304},
                {"1.2.3.4 x", 0x01020304},
                {"1.2.3.4\n", 0x01020304},
                {" 1.2.3.4", none},
                {"\t1.2.3.4", none},
                {"  ", none},
                {" ", 0},
                {"", none},
                {"256.1.1.1", none},
                {"1.2.3.256", none},
                {"1.2.3.4.5", none},
                {"1..2.3", none},
                {".1.2.3", none},
                {"1.2.3.", none},
                {"-1.2.3.4", none},
                {"+1.2.3.4", none},
                {"1.2.3.4x", none},
                {"localhost", none},
                {"255.255.255.255", none},
                {"4294967296", none},
                {"4294967294", 0xFFFFFFFE},
                {"99999999999999999999", none},
                {"1.2.3.0400", none}};
    for (const auto& row : rows) {
        SetLastError(4711);
        EXPECT_EQ(ZU_inet_addr(row.text), htonl(row.address)) << row.text;
        EXPECT_EQ(ZU_inet_addr_tchar(wide(row.text).c_str()), htonl(row.address)) << row.text;
        EXPECT_EQ(GetLastError(), 4711u) << row.text;
    }
    for (const char* text : {"0.0.0.0", "1.20.255.99", "255.255.255.255", "192.168.100.10"}) {
        char plain[17] = "@@@@@@@@@@@@@@@@";
        ZU_wchar wide_text[17];
        std::fill_n(wide_text, 17, u'@');
        uint32_t address;
        inet_pton(AF_INET, text, &address);
        ZU_inet_ntoa(address, plain);
        ZU_inet_ntoa_tchar(address, wide_text);
        EXPECT_STREQ(plain, text);
        EXPECT_EQ(wide_text, wide(text));
        EXPECT_EQ(wide_text[16], u'@');
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

TEST(name, of_this_computer) {
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

    const std::u16string own = taken(ZU_get_ip_address_by_host_name(u""));
    EXPECT_TRUE(ZU_is_ip_address(own.c_str())) << narrow(own);
    const bool is_loopback = narrow(name) == "localhost";
    EXPECT_EQ(taken(ZU_get_ip_address_by_host_name(name)), is_loopback ? u"127.0.0.1" : own);
}

TEST(name, look_ups_that_ask_nobody) {
    const started_library library;
    EXPECT_EQ(taken(ZU_get_ip_address_by_host_name(u"10.0.0.1")), u"10.0.0.1");
    EXPECT_EQ(taken(ZU_get_ip_address_by_host_name(u"999.1..1")), u"999.1..1") << "copied as it is";
    EXPECT_EQ(taken(ZU_get_ip_address_by_host_name(u"1.2.3")), u"1.2.0.3")
        << "an address, by its shorter form";
    if (knows_localhost()) {
        EXPECT_EQ(taken(ZU_get_ip_address_by_host_name(u"LOCALHOST")), u"127.0.0.1");
    }
    for (const char16_t* unknown : {u" ", u"a b", u"256.1.1"}) {
        SetLastError(0);
        EXPECT_EQ(taken(ZU_get_ip_address_by_host_name(unknown)), u"<null>");
        EXPECT_EQ(GetLastError(), static_cast<uint32_t>(WSAHOST_NOT_FOUND)) << narrow(unknown);
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
        const struct {
            int response_code, code;
        } rows[] = {{3, WSAHOST_NOT_FOUND}, {2, WSATRY_AGAIN}, {0, WSANO_DATA}};
        for (const auto& row : rows) {
            const int server = static_cast<int>(bound_socket(SOCK_DGRAM, 53));
            ASSERT_GE(server, 0);
            std::thread answering(answer_with, server, row.response_code);
            EXPECT_EQ(taken(ZU_get_ip_address_by_host_name(u"nobody.example")), u"<null>");
            EXPECT_EQ(GetLastError(), static_cast<uint32_t>(row.code));
            shutdown(server, SHUT_RD);
            answering.join();
            ZU_socket_close(static_cast<SOCKET>(server));
        }
        EXPECT_EQ(taken(ZU_get_ip_address_by_host_name(u"nobody.example")), u"<null>");
        EXPECT_EQ(GetLastError(), static_cast<uint32_t>(WSATRY_AGAIN)) << "no server at all";
        EXPECT_EQ(taken(ZU_get_ip_address_by_host_name(u"")), u"127.0.0.1") << "no other address here";
    });
    if (!ran)
        GTEST_SKIP() << "this user may not make a network of its own";
}

} // namespace
