// The library's calls on sockets, each with its outcome in one value.
#pragma once

#include <string>
#include <thread>

#include "support/network.h"
#include "support/results.h"
#include "support/text.h"

namespace zu_test {

// A call's outcome in one number: its result when it succeeds, else the code.
inline int outcome_of(int64_t result) {
    return static_cast<int>(result >= 0 && static_cast<SOCKET>(result) != INVALID_SOCKET ? result
                                                                                         : GetLastError());
}

inline int receive(SOCKET socket, int flags = 0) {
    char byte;
    return outcome_of(ZU_recv(socket, &byte, 1, flags));
}

inline int transmit(SOCKET socket, const std::string& data = "x") {
    return outcome_of(ZU_send(socket, data.data(), static_cast<int32_t>(data.size()), 0));
}

inline int transmit(SOCKET socket, const sockaddr_in& to, const std::string& data = "x",
                    int32_t length = sizeof(sockaddr_in)) {
    return outcome_of(ZU_sendto(socket, data.data(), static_cast<int32_t>(data.size()), 0,
                                reinterpret_cast<const sockaddr*>(&to), length));
}

inline int attempt(SOCKET socket, const sockaddr_in& address, int32_t length = sizeof(sockaddr_in)) {
    return outcome_of(ZU_connect(socket, reinterpret_cast<const sockaddr*>(&address), length));
}

inline int set_option(SOCKET socket, int option, const void* value, int32_t length = 4) {
    return outcome_of(ZU_setsockopt(socket, SOL_SOCKET, option, value, length));
}

inline fd_set set_of(SOCKET socket) {
    fd_set set;
    FD_ZERO(&set);
    FD_SET(socket, &set);
    return set;
}

// "result, code", the code being 4711 where it was left alone.
inline std::string tested(const ZU_wchar* address, uint16_t port, uint32_t timeout_ms = 1000) {
    SetLastError(4711);
    const int32_t result = ZU_socket_test_port(address, port, timeout_ms);
    return std::to_string(result) + ", " + std::to_string(GetLastError());
}

inline std::u16string looked_up(const ZU_wchar* name) {
    SetLastError(0);
    ZU_wchar* text = ZU_get_ip_address_by_host_name(name);
    return text ? taken(text) : u"code " + wide(std::to_string(GetLastError()));
}

// Calls that wait: for what another thread does, and for the time limits of their sockets.
inline void expect_calls_to_wait() {
    const held_socket listener = listening_socket(), client = stream_socket(),
                      datagrams = bound_socket(SOCK_DGRAM);
    const std::jthread other([&] {
        for (int step = 0; step < 3; ++step) {
            ZU_sleep(100);
            EXPECT_EQ(step == 0 ? attempt(client, address_of(listener)) : transmit(client), step != 0);
        }
    });
    fd_set set = set_of(client);
    EXPECT_EQ(ZU_select(0, nullptr, &set, nullptr, nullptr), 1) << "not ready at first";
    const held_socket server(ZU_accept(listener, nullptr, nullptr));
    set = set_of(server);
    EXPECT_EQ(ZU_select(0, &set, nullptr, nullptr, nullptr), 1);
    EXPECT_EQ(receive(server), 1);
    EXPECT_EQ(receive(server), 1);
    const connection full;
    const int milliseconds = 200;
    for (const held_socket* one : {&server, &datagrams}) {
        EXPECT_EQ(set_option(*one, SO_RCVTIMEO, &milliseconds), 0);
        EXPECT_EQ(receive(*one), WSAETIMEDOUT);
    }
    EXPECT_EQ(set_option(full.client, SO_SNDTIMEO, &milliseconds), 0);
    int sent;
    while ((sent = transmit(full.client, std::string(5000, 'x'))) <= 5000) {}
    EXPECT_EQ(sent, WSAETIMEDOUT);
}

} // namespace zu_test
