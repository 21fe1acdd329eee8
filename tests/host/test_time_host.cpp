// Zone files of the host and its other ways to say the zone, beside its C library.
#include "support/test.h"

namespace {

int hour_now_at_0() {
    return shown(ZU_time_t{0})[2];
}

// A zone file of one change in 1996 and a rule for the time after it.
std::string small_zone_file() {
    const auto number = [](int64_t value, int bytes) {
        std::string text;
        while (bytes-- > 0)
            text += static_cast<char>(value >> 8 * bytes);
        return text;
    };
    const auto head = [&](int changes, int kinds, int names) {
        return "TZif2" + std::string(27, '\0') + number(changes, 4) + number(kinds, 4) + number(names, 4);
    };
    return head(0, 0, 0) + head(1, 2, 9) + number(846378000, 8) + '\0' + number(3600, 4)
           + std::string(2, '\0') + number(7200, 4) + "\1\4" + std::string("CET\0CEST\0", 9)
           + "\nCET-1CEST,M3.5.0,M10.5.0/3\n";
}

// Whole, cut short in front of its rule, and with other bytes there: each file means what it means to the C library.
TEST(local_time, zone_files_are_read_as_the_host_reads_them) {
    set_zone("AAA0BBB,J100/1,J100/3"); // a season of two hours
    for (ZU_time_t time = 1144540800; time < 1144713600; time += 599)
        ASSERT_EQ(shown(time), shown(c_library_time(time)));
    const file_place place;
    std::mt19937 random(1);
    const std::string whole = small_zone_file();
    const size_t rule = whole.rfind('\n', whole.size() - 2);
    for (size_t n = 0; n < 3 * rule; ++n) {
        std::string bytes = whole.substr(0, n > 0 && n <= rule ? n : whole.size());
        for (size_t changed = n <= rule ? 0 : 1 + n % 3; changed > 0; --changed)
            bytes[random() % rule] = static_cast<char>(random());
        const std::string name = "zone" + std::to_string(n); // the C library reads a name once
        place.write(name, bytes);
        set_zone(place.host_path(name).c_str());
        for (int i = 0; i < 40; ++i) {
            const ZU_time_t time = i == 0 ? 846378000 : static_cast<ZU_time_t>(random() & INT32_MAX);
            ASSERT_EQ(shown(time), shown(c_library_time(time))) << testing::PrintToString(bytes);
        }
    }
}

// Whatever has changed it. A zone that could not be read serves one call, and one that another thread has read needs no
// descriptor.
TEST(zone_setting, counts_however_it_changed) {
    char own[] = "TZ=AAA-5";
    putenv(own);
    EXPECT_EQ(hour_now_at_0(), 5);
    own[7] = '6'; // without a call that could be noticed
    EXPECT_EQ(hour_now_at_0(), 6);
    clearenv();
    tzset();
    EXPECT_EQ(hour_now_at_0(), c_library_time(0).tm_hour) << "without TZ, the system's zone";
    set_zone("Asia/Kolkata");
    ASSERT_EQ(hour_now_at_0(), 5);
    const outcome child = run_child([] {
        const rlimit none{3, 64}, some{64, 64};
        setrlimit(RLIMIT_NOFILE, &none);
        std::thread([] { std::printf("%d", hour_now_at_0()); }).join();
        setenv("TZ", "Australia/Sydney", 1);
        hour_now_at_0();
        setrlimit(RLIMIT_NOFILE, &some);
        std::printf(" %d", hour_now_at_0());
    });
    EXPECT_EQ(child.output, "5 10");
    set_zone(nullptr);
    const int before = hour_now_at_0();
    const char* other = before == 5 ? "/usr/share/zoneinfo/UTC" : "/usr/share/zoneinfo/Asia/Kolkata";
    in_private_network(other, "/etc/localtime", [before] {
        for (int i = 0; i < 300 && hour_now_at_0() == before; ++i)
            usleep(10000);
        EXPECT_EQ(hour_now_at_0(), before == 5 ? 0 : 5);
    });
}

// Readers on several threads while the zone goes to and fro: every answer is one of the two, and none stays behind.
TEST(zone_setting, zone_changes_under_threads) {
    constexpr ZU_time_t week = 7 * 86400, weeks = 1500;
    const char* const names[] = {"Europe/Berlin", "Asia/Kolkata"};
    std::vector<numbers_of_tm> expected[2];
    for (int zone : {1, 0}) {
        set_zone(names[zone]);
        for (ZU_time_t i = 0; i < weeks; ++i)
            expected[zone].push_back(shown(i * week));
    }
    std::atomic<bool> stop{false};
    std::atomic<int> answers{0};
    crew readers;
    for (int i = 0; i < 4; ++i)
        readers.add([&] {
            for (size_t n = 0; !stop; n = (n + 7) % weeks, ++answers) {
                const numbers_of_tm seen = shown(static_cast<ZU_time_t>(n) * week);
                ASSERT_TRUE(seen == expected[0][n] || seen == expected[1][n]) << n;
            }
            for (size_t n = 0; n < weeks; ++n)
                ASSERT_EQ(shown(static_cast<ZU_time_t>(n) * week), expected[0][n]);
        });
    for (int flip = 1; flip <= 40; ++flip) {
        for (const int seen = answers; answers < seen + 200 && !HasFailure();)
            std::this_thread::yield();
        setenv("TZ", names[flip % 2], 1);
    }
    stop = true;
    readers.join();
}

} // namespace
