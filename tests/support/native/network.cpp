#include "support/network.h"

namespace zu_test {

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
