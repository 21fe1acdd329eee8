#include "support/network.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <filesystem>

namespace zu_test {

sockaddr_in address_of(SOCKET socket) {
    sockaddr_in address{};
    socklen_t size = sizeof address;
    getsockname(static_cast<int>(socket), reinterpret_cast<sockaddr*>(&address), &size);
    return address;
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
