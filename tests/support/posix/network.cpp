#include "support/network.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <filesystem>

namespace zu_test {

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
