// Port test: open, refused, silent, unreachable and bad targets.
#include "support/test.h"

namespace {

struct verdict {
    int32_t result;
    uint32_t code;

    bool operator==(const verdict&) const = default;
};

std::ostream& operator<<(std::ostream& out, const verdict& v) {
    return out << v.result << " with code " << v.code;
}

verdict test(const ZU_wchar* address, uint16_t port, uint32_t timeout_ms) {
    SetLastError(4711);
    const int32_t result = ZU_socket_test_port(address, port, timeout_ms);
    return {result, GetLastError()};
}

TEST(port_test, verdicts) {
    EXPECT_EQ(test(u"127.0.0.1", 1, 10), (verdict{1, WSANOTINITIALISED}));
    const started_library library;
    const auto descriptors = count_descriptors();
    {
        const held_socket open = listening_socket(), idle = bound_socket(SOCK_STREAM);
        const silent_port silent;
        const struct {
            const char* what;
            const ZU_wchar* address;
            uint16_t port;
            uint32_t timeout_ms;
            verdict expected;
        } rows[] = {{"open", u"127.0.0.1", port_of(open), 1000, {0, 0}},
                    {"open, the longest time-out", u"127.0.0.1", port_of(open), 0xFFFFFFFF, {0, 0}},
                    {"refused", u"127.0.0.1", port_of(idle), 5000, {1, WSAEWOULDBLOCK}},
                    {"silent, polled", u"127.0.0.1", port_of(silent.listener), 0, {2, WSAEWOULDBLOCK}},
                    {"no address", nullptr, port_of(open), 1000, {1, 87}},
                    {"a name is not looked up", u"localhost", port_of(open), 1000, {1, WSAENETUNREACH}},
                    {"port 0", u"127.0.0.1", 0, 1000, {1, WSAEADDRNOTAVAIL}}};
        for (const auto& row : rows)
            EXPECT_EQ(test(row.address, row.port, row.timeout_ms), row.expected) << row.what;

        const auto start = std::chrono::steady_clock::now();
        EXPECT_EQ(test(u"127.0.0.1", port_of(silent.listener), 1200), (verdict{2, WSAEWOULDBLOCK}));
        EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(1200))
            << "seconds and the rest both count";
    }
    EXPECT_EQ(count_descriptors(), descriptors) << "every path closes its socket";
}

TEST(port_test, descriptors_beyond_the_host_s_set_and_beyond_the_limit) {
    const started_library library;
    const held_socket open = listening_socket(), idle = bound_socket(SOCK_STREAM);
    const rlimit limit{1500, 1500};
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
    std::vector<int> fillers;
    while (fillers.empty() || fillers.back() < 1400)
        fillers.push_back(dup(0));
    EXPECT_EQ(test(u"127.0.0.1", port_of(open), 1000), (verdict{0, 0}));
    EXPECT_EQ(test(u"127.0.0.1", port_of(idle), 1000), (verdict{1, WSAEWOULDBLOCK}));
    while (fillers.back() >= 0)
        fillers.push_back(dup(0));
    EXPECT_EQ(test(u"127.0.0.1", port_of(open), 1000), (verdict{1, WSAEMFILE}));
    for (int descriptor : fillers)
        close(descriptor);
}

TEST(port_test, an_address_without_a_route) {
    const started_library library;
    const bool ran = in_private_network([] {
        EXPECT_EQ(test(u"10.1.2.3", 80, 1000), (verdict{1, WSAENETUNREACH}));
        EXPECT_EQ(ZU_trans_socket_connect(u"10.1.2.3", 80, nullptr, ZU_TRANS_TCP, 0, 0), nullptr);
        EXPECT_EQ(GetLastError(), static_cast<uint32_t>(WSAENETUNREACH));
    });
    if (!ran)
        GTEST_SKIP() << "this user may not make a network of its own";
}

} // namespace
