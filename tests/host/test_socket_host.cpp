// Sockets of the host: signals, its own address families, forks, its resolver and routes.
#include <sys/time.h>

#include "support/socket_calls.h"
#include "support/test.h"

namespace {

using sockets = with_library;

// A signal comes to this thread over and over, until the period is 0.
void let_alarms_come(suseconds_t period_us) {
    struct sigaction action {};
    action.sa_handler = [](int) {};
    sigaction(SIGALRM, &action, nullptr);
    const itimerval timer{{0, period_us}, {0, period_us}};
    setitimer(ITIMER_REAL, &timer, nullptr);
}

TEST_F(sockets, descriptors_and_addresses_of_the_host_and_none_left) {
    int pipes[2];
    ASSERT_EQ(pipe(pipes), 0);
    const auto stranger = static_cast<SOCKET>(pipes[1]);
    fd_set set = set_of(stranger);
    EXPECT_EQ(outcome_of(ZU_select(0, nullptr, &set, nullptr, nullptr)), WSAENOTSOCK);
    EXPECT_EQ(transmit(stranger), WSAENOTSOCK);
    EXPECT_EQ(outcome_of(ZU_socket_close(stranger)), WSAENOTSOCK);
    for (int end : pipes)
        EXPECT_EQ(close(end), 0) << "closing what is no socket leaves it open";

    const file_place place;
    sockaddr_un path{AF_UNIX, ""};
    const std::string name = place.host_path("s");
    const auto length = static_cast<int32_t>(offsetof(sockaddr_un, sun_path) + name.copy(path.sun_path, 100));
    const auto* const address = reinterpret_cast<const sockaddr*>(&path);
    const held_socket listener(ZU_socket(AF_UNIX, SOCK_STREAM, 0)),
        client(ZU_socket(AF_UNIX, SOCK_STREAM, 0));
    ASSERT_EQ(outcome_of(ZU_bind(listener, address, length)), 0);
    ASSERT_EQ(outcome_of(ZU_listen(listener, 1)), 0);
    EXPECT_EQ(outcome_of(ZU_connect(client, address, 1)), WSAEFAULT);
    EXPECT_EQ(outcome_of(ZU_connect(client, address, length)), 0);
    for (const held_socket* end : {&listener, &client})
        EXPECT_EQ(fcntl(static_cast<int>(*end), F_GETFD), FD_CLOEXEC);
    const outcome starved = run_child([] {
        const rlimit no_descriptors{0, 0};
        setrlimit(RLIMIT_NOFILE, &no_descriptors);
        std::printf("%s, %s", tested(u"127.0.0.1", 1).c_str(), narrow(looked_up(u"")).c_str());
    });
    EXPECT_EQ(starved.output, "1, 10024, code 11003") << "not the loopback";
}

// Calls go on after a signal, see what others do meanwhile, and do not start their time anew.
TEST_F(sockets, calls_under_signals) {
    const connection pair;
    const silent_port silent;
    const int milliseconds = 200;
    const timeval time{0, 20000};
    let_alarms_come(5000);
    expect_calls_to_wait();
    EXPECT_EQ(tested(u"127.0.0.1", port_of(silent.listener), 200), "2, 10035");
    EXPECT_EQ(set_option(pair.listener, SO_RCVTIMEO, &milliseconds), 0);
    EXPECT_EQ(outcome_of(ZU_accept(pair.listener, nullptr, nullptr)), WSAETIMEDOUT);
    let_alarms_come(0);
    EXPECT_EQ(receive(pair.server, MSG_DONTWAIT), WSAEWOULDBLOCK);
    EXPECT_EQ(set_option(pair.server, SO_RCVTIMEO, &time, sizeof time), 0) << "the host's own form";
    EXPECT_EQ(receive(pair.server), WSAETIMEDOUT);
    EXPECT_EQ(fcntl(static_cast<int>(pair.server), F_GETFD), FD_CLOEXEC);
}

// A name server that answers by the first digit of the name: with its code, from 4 on with an address.
void answer(int server) {
    unsigned char packet[512];
    const unsigned char address[] = {0xC0, 12, 0, 1, 0,  1, 0, 0,
                                     0,    9,  0, 4, 10, 0, 0, 9}; // of the name at 12
    sockaddr_in from;
    auto* const asker = reinterpret_cast<sockaddr*>(&from);
    socklen_t length = sizeof from;
    for (ssize_t size; (size = recvfrom(server, packet, 400, 0, asker, &length)) > 13;) {
        const int digit = packet[13] - '0';
        packet[2] |= 0x80; // a response
        packet[3] = static_cast<unsigned char>(0x80 | digit % 4);
        packet[7] = digit >= 4; // answers
        std::copy_n(address, sizeof address, packet + size);
        sendto(server, packet, static_cast<size_t>(size) + (digit >= 4 ? sizeof address : 0), 0, asker,
               length);
    }
}

TEST_F(sockets, codes_of_the_resolver_and_without_routes) {
    const file_place place;
    place.write("resolv.conf", "nameserver 127.0.0.1\noptions timeout:1 attempts:1\n");
    in_private_network(place.host_path("resolv.conf"), "/etc/resolv.conf", [] {
        EXPECT_EQ(looked_up(u"nobody.example"), u"code 11002") << "no server at all";
        const held_socket server = bound_socket(SOCK_DGRAM, 53);
        ASSERT_NE(server, INVALID_SOCKET);
        std::thread answering(answer, static_cast<int>(server));
        EXPECT_EQ(looked_up(u"3.example"), u"code 11001");
        EXPECT_EQ(looked_up(u"2.example"), u"code 11002");
        EXPECT_EQ(looked_up(u"0.example"), u"code 11004");
        EXPECT_EQ(looked_up(u"4.example"), u"10.0.0.9");
        shutdown(static_cast<int>(server), SHUT_RD);
        answering.join();
        EXPECT_EQ(looked_up(u""), u"127.0.0.1") << "no other address here";
        std::ofstream("/proc/sys/net/ipv4/ip_local_port_range") << "40000 40000"; // all come from this one
        EXPECT_EQ(tested(u"127.0.0.1", 40000), "1, 10061") << "and meet themselves there";
        EXPECT_EQ(tested(u"10.1.2.3", 80), "1, 10051");
    });
}

} // namespace
