#include "support/network.h"

namespace zu_test {

sockaddr_in address_of(SOCKET socket) {
    sockaddr_in address{};
    int size = sizeof address;
    getsockname(socket, reinterpret_cast<sockaddr*>(&address), &size);
    return address;
}

void stop(SOCKET socket, direction which) {
    const int ways[] = {SD_RECEIVE, SD_SEND, SD_BOTH};
    shutdown(socket, ways[static_cast<int>(which)]);
}

void let_block(SOCKET socket, bool blocks) {
    unsigned long non_blocking = !blocks;
    EXPECT_EQ(ioctlsocket(socket, static_cast<long>(FIONBIO), &non_blocking), 0);
}

std::ptrdiff_t count_descriptors() {
    DWORD count = 0;
    EXPECT_TRUE(GetProcessHandleCount(GetCurrentProcess(), &count));
    return static_cast<std::ptrdiff_t>(count);
}

// There is no limit to raise.
void allow_descriptors(unsigned) {}

} // namespace zu_test
