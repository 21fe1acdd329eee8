#include "support/network.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>

namespace zu_test {

sockaddr_in address_of(SOCKET socket) {
    sockaddr_in address{};
    socklen_t size = sizeof address;
    getsockname(static_cast<int>(socket), reinterpret_cast<sockaddr*>(&address), &size);
    return address;
}

// A name that belongs to the same network as the port tells other tests that it is taken, until this process ends.
uint16_t port_of_our_own() {
    constexpr int ports = 20000;
    for (int i = 0; i < ports; ++i) {
        const auto port = static_cast<uint16_t>(12000 + (getpid() + i) % ports);
        const sockaddr_in address = ipv4(port);
        sockaddr_un name{AF_UNIX, {}};
        std::snprintf(name.sun_path + 1, sizeof name.sun_path - 1, "zu-test-port-%d", port);
        const int claim = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        const int probe = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        const bool is_free = bind(claim, reinterpret_cast<const sockaddr*>(&name), sizeof name) == 0
                             && bind(probe, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
        close(probe);
        if (is_free)
            return port;
        close(claim);
    }
    std::abort();
}

void stop(SOCKET socket, direction which) {
    const int ways[] = {SHUT_RD, SHUT_WR, SHUT_RDWR};
    shutdown(static_cast<int>(socket), ways[static_cast<int>(which)]);
}

void let_block(SOCKET socket, bool blocks) {
    const int flags = fcntl(static_cast<int>(socket), F_GETFL);
    EXPECT_EQ(fcntl(static_cast<int>(socket), F_SETFL, blocks ? flags & ~O_NONBLOCK : flags | O_NONBLOCK), 0);
}

std::ptrdiff_t count_descriptors() {
    return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
}

void allow_descriptors(unsigned count) {
    const rlimit limit{count, count};
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0) << "the hard limit is too low";
}

} // namespace zu_test
