// Local time both ways in the zones of the host: its zone files, and its C library beside which all is checked.
#include <bit>

#include "support/test.h"

namespace {

constexpr int64_t last_time = 0x7FFFFFFF;

// Both hemispheres, a shift of half an hour, zones that changed their standard offset or skipped a day, one whose
// winter time counts as daylight time, rules and names in all spellings, and texts that name nothing.
const char* const zones[] = {
    // clang-format off
    "Europe/Berlin", "America/New_York", "Australia/Lord_Howe", "Asia/Kolkata", "America/Sao_Paulo", "Pacific/Apia",
    "Africa/Casablanca", "Europe/Dublin", "Europe/Moscow", "Asia/Pyongyang", "America/Boa_Vista", "Antarctica/Troll",
    "UTC", "CET-1CEST", "EST5EDT,M3.2.0,M11.1.0", "<+0330>-3:30", ":Australia/Sydney", ":CET-1CEST,M3.5.0,M10.5.0/3",
    "AAA24", "AAA-24:59:59", "AAA24BBB-24,J50,J300", "No/Such_Zone", "garbage", "",
    // clang-format on
};

::tm host_time(int64_t time) {
    const time_t value = static_cast<time_t>(time);
    ::tm fields{};
    localtime_r(&value, &fields);
    return fields;
}

// All nine fields, of either record.
template <class record>
std::string shown(const record& fields) {
    char text[128];
    std::snprintf(text, sizeof text, "%d-%02d-%02d %02d:%02d:%02d weekday %d yearday %d flag %d",
                  fields.tm_year + 1900, fields.tm_mon + 1, fields.tm_mday, fields.tm_hour, fields.tm_min,
                  fields.tm_sec, fields.tm_wday, fields.tm_yday, fields.tm_isdst);
    return text;
}

std::string shown(ZU_time_t time) {
    ZU_tm fields;
    return ZU_localtime(time, &fields) ? shown(fields) : "nothing";
}

// Every instant at which the present zone changes, as the host tells them.
std::vector<int64_t> changes() {
    constexpr int64_t step = 2 * 86400;
    const auto kind_of = [](int64_t time) {
        const ::tm fields = host_time(time);
        return std::pair(fields.tm_gmtoff, fields.tm_isdst);
    };
    std::vector<int64_t> found;
    for (int64_t from = 0; from < last_time; from += step) {
        const auto same = [&, before = kind_of(from)](int64_t time) { return kind_of(time) == before; };
        if (same(from + step))
            continue;
        int64_t low = from, high = from + step;
        while (high - low > 1) {
            const int64_t middle = low + (high - low) / 2;
            (same(middle) ? low : high) = middle;
        }
        found.push_back(high);
    }
    return found;
}

// 1970, told as 30 years before 2000; all else is left to carry.
ZU_tm record_of(int64_t local, int flag) {
    return {static_cast<int32_t>(local % 60), static_cast<int32_t>(local / 60), 24, 0, -360, 100, 9, 9, flag};
}

int64_t host_mktime(const ZU_tm& record) {
    ::tm fields{};
    std::memcpy(&fields, &record, sizeof record); // which the host's begins with
    return std::mktime(&fields);
}

// Each instant shows what the host says, and its fields lead back to it, or to the latest other that shows them. What
// is skipped takes the offset after the gap, unless only the one before it has the flag. A flag that does not fit means
// what it does to the host, but nothing in a zone without daylight saving.
TEST(local_time, agrees_with_the_host_both_ways) {
    std::mt19937 random(1);
    for (const char* zone : zones) {
        set_zone(zone);
        std::vector<int64_t> times = {0, 1, last_time - 1, last_time};
        for (int i = 0; i < 3000; ++i)
            times.push_back(random() & last_time);
        bool has_daylight = false;
        for (int64_t change : changes()) {
            for (int64_t distance : {-86400, -3600, -1801, -1800, -1, 0, 1, 1799, 1800, 3599, 3600, 86400})
                times.push_back(std::min(change + distance, last_time));
            const ::tm before = host_time(change - 1), after = host_time(change);
            has_daylight = has_daylight || before.tm_isdst != after.tm_isdst;
            for (int64_t local : {change + before.tm_gmtoff, change + after.tm_gmtoff - 1}) {
                if (before.tm_gmtoff >= after.tm_gmtoff)
                    continue;
                for (int flag : {-1, before.tm_isdst, after.tm_isdst}) {
                    const ::tm& counts = flag < 0 || flag == after.tm_isdst ? after : before;
                    ZU_tm fields = record_of(local, flag);
                    ASSERT_EQ(ZU_mktime(&fields), local - counts.tm_gmtoff) << zone << " flag " << flag;
                }
            }
        }
        for (int64_t time : times) {
            const ::tm there = host_time(time);
            ASSERT_EQ(shown(static_cast<ZU_time_t>(time)), shown(there)) << zone << " " << time;
            for (int flag : {-1, there.tm_isdst}) {
                const int64_t local = time + there.tm_gmtoff;
                ZU_tm fields = record_of(local, flag), same_day;
                const int64_t found = ZU_mktime(&fields);
                ZU_localtime(static_cast<ZU_time_t>(time), &same_day); // whose date the next call knows
                same_day.tm_hour -= flag < 0 ? 24 : 0;
                same_day.tm_sec += flag < 0 ? 24 * 3600 : 0;
                same_day.tm_wday = same_day.tm_yday = 9;
                same_day.tm_isdst = flag;
                ASSERT_EQ(ZU_mktime(&same_day), found) << zone << " " << time << " flag " << flag;
                ASSERT_EQ(shown(same_day), shown(fields)) << zone << " " << time << " flag " << flag;
                ASSERT_GE(found, time) << zone << " flag " << flag;
                ASSERT_EQ(found + host_time(found).tm_gmtoff, local) << zone << " " << time;
                ASSERT_EQ(shown(fields), shown(host_time(found)));
                if (flag >= 0) {
                    ASSERT_EQ(fields.tm_isdst, flag) << zone << " " << time;
                }
            }
        }
        for (int i = 0; i < 1000; ++i) { // within the years that the host searches, away from changes
            const int64_t time = 1'000'000'000 + random() % 900'000'000;
            const ::tm there = host_time(time);
            if (host_time(time - 172800).tm_gmtoff != host_time(time + 172800).tm_gmtoff)
                continue;
            ZU_tm fields = record_of(time + there.tm_gmtoff, there.tm_isdst == 0);
            const int64_t meant = has_daylight ? host_mktime(fields) : time;
            ASSERT_EQ(ZU_mktime(&fields), meant) << zone << " " << time;
            ASSERT_EQ(shown(fields), shown(host_time(meant)));
        }
    }
    set_zone("AAA0BBB,J100/1,J100/3"); // a season of two hours
    for (ZU_time_t time = 1144540800; time < 1144713600; time += 599)
        ASSERT_EQ(shown(time), shown(host_time(time)));
}

int hour_now_at_0() {
    ZU_tm fields;
    return ZU_localtime(0, &fields) ? fields.tm_hour : -1;
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
            const ZU_time_t time = i == 0 ? 846378000 : static_cast<ZU_time_t>(random() & last_time);
            ASSERT_EQ(shown(time), shown(host_time(time))) << testing::PrintToString(bytes);
        }
    }
}

// Whatever has changed it. A zone that could not be read serves one call, and one that another thread has read needs no
// descriptor.
TEST(zone_setting, counts_from_the_next_call) {
    char own[] = "TZ=AAA-5";
    putenv(own);
    EXPECT_EQ(hour_now_at_0(), 5);
    own[7] = '6'; // without a call that could be noticed
    EXPECT_EQ(hour_now_at_0(), 6);
    for (const bool whole_environment : {false, true}) {
        setenv("TZ", "AAA-7", 1);
        EXPECT_EQ(hour_now_at_0(), 7);
        whole_environment ? clearenv() : unsetenv("TZ");
        tzset();
        EXPECT_EQ(hour_now_at_0(), host_time(0).tm_hour) << "without TZ, the system's zone";
    }
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
    const bool has_mounts = in_private_network([] {
        set_zone(nullptr);
        const int before = hour_now_at_0();
        const char* other = before == 5 ? "/usr/share/zoneinfo/UTC" : "/usr/share/zoneinfo/Asia/Kolkata";
        ASSERT_EQ(mount(other, "/etc/localtime", nullptr, MS_BIND, nullptr), 0);
        for (int i = 0; i < 300 && hour_now_at_0() == before; ++i)
            usleep(10000);
        EXPECT_EQ(hour_now_at_0(), before == 5 ? 0 : 5);
    });
    if (!has_mounts)
        GTEST_SKIP() << "a changed zone of the system needs the right to mount in a namespace of its own";
}

// Readers on several threads while the zone goes to and fro: every answer is one of the two, and none stays behind.
TEST(zone_setting, zone_changes_under_threads) {
    constexpr ZU_time_t week = 7 * 86400, weeks = 1500;
    const char* const names[] = {"Europe/Berlin", "Asia/Kolkata"};
    std::vector<std::string> expected[2];
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
                const std::string text = shown(static_cast<ZU_time_t>(n) * week);
                ASSERT_TRUE(text == expected[0][n] || text == expected[1][n]) << text;
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

TEST(system_time, is_checked_and_round_trips) {
    using platform::SYSTEMTIME;
    const SYSTEMTIME refused[] = {
        {1600, 12, 0, 31, 0, 0, 0, 0}, {30828, 1, 0, 1, 0, 0, 0, 0},  {2006, 0, 0, 1, 0, 0, 0, 0},
        {2006, 13, 0, 1, 0, 0, 0, 0},  {2006, 1, 0, 0, 0, 0, 0, 0},   {2006, 4, 0, 31, 0, 0, 0, 0},
        {1900, 2, 0, 29, 0, 0, 0, 0},  {2006, 1, 0, 1, 24, 0, 0, 0},  {2006, 1, 0, 1, 0, 60, 0, 0},
        {2006, 1, 0, 1, 0, 0, 60, 0},  {2006, 1, 0, 1, 0, 0, 0, 1000}};
    const SYSTEMTIME valid[] = {
        {1601, 1, 1, 1, 0, 0, 0, 0}, {2000, 2, 2, 29, 0, 0, 0, 1}, {30827, 12, 5, 31, 23, 59, 59, 999}};
    FILETIME file_time = std::bit_cast<FILETIME>(int64_t{77});
    for (const SYSTEMTIME& time : refused)
        EXPECT_EQ(code_of(platform::SystemTimeToFileTime(&time, &file_time)), codes::invalid_parameter)
            << testing::PrintToString(time);
    EXPECT_EQ(std::bit_cast<int64_t>(file_time), 77);
    for (const SYSTEMTIME& time : valid) {
        SYSTEMTIME given = time;
        given.wDayOfWeek = 9; // ignored
        ASSERT_TRUE(platform::SystemTimeToFileTime(&given, &file_time));
        ASSERT_TRUE(platform::FileTimeToSystemTime(&file_time, &given));
        EXPECT_EQ(std::memcmp(&given, &time, sizeof time), 0) << time.wYear;
    }
}

} // namespace
