// Local time both ways, file times, and the text forms of dates.
#include "support/test.h"

namespace {

constexpr int64_t last_time = 0x7FFFFFFF;
constexpr int32_t hour = 3600;

void set_zone(const char* text) {
    text ? setenv("TZ", text, 1) : unsetenv("TZ");
    tzset(); // for the host's own answers
}

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
    const auto same = [](const ::tm& one, const ::tm& other) {
        return one.tm_gmtoff == other.tm_gmtoff && one.tm_isdst == other.tm_isdst;
    };
    std::vector<int64_t> found;
    ::tm before = host_time(0);
    for (int64_t time = step; time <= last_time; time += step) {
        const ::tm after = host_time(time);
        if (!same(before, after)) {
            int64_t low = time - step, high = time;
            while (high - low > 1) {
                const int64_t middle = (low + high) / 2;
                (same(host_time(middle), before) ? low : high) = middle;
            }
            found.push_back(high);
        }
        before = after;
    }
    return found;
}

TEST(local_time, agrees_with_the_host) {
    std::mt19937 random(1);
    for (const char* zone : zones) {
        set_zone(zone);
        std::vector<int64_t> times = {0, 1, last_time - 1, last_time};
        for (int i = 0; i < 4000; ++i)
            times.push_back(random() & last_time);
        for (int64_t change : changes())
            for (int64_t distance : {-86400, -3600, -1801, -1, 0, 1, 1799, 3600, 86400})
                times.push_back(std::min(change + distance, last_time));
        for (int64_t time : times)
            ASSERT_EQ(shown(static_cast<ZU_time_t>(time)), shown(host_time(time))) << zone << " " << time;
    }
    set_zone("AAA0BBB,J100/1,J100/3"); // a season of two hours
    for (ZU_time_t time = 1144540800; time < 1144713600; time += 599)
        ASSERT_EQ(shown(time), shown(host_time(time)));
}

// What a local time must give, straight from the host's answers: the latest instant that shows it; for one that is
// skipped, what the offset after the gap makes of it.
int64_t expected_time(int64_t local, int flag) {
    const auto offset_at = [](int64_t time) { return static_cast<int64_t>(host_time(time).tm_gmtoff); };
    const auto fits = [flag](int64_t time) { return flag < 0 || host_time(time).tm_isdst == flag; };
    int64_t fitting = -1; // stays: the flag contradicts the zone
    bool exists = false;
    for (int64_t around = local - 25 * hour; around <= local + 25 * hour; around += hour) {
        const int64_t time = local - offset_at(around);
        if (offset_at(time) != offset_at(around))
            continue;
        exists = true;
        if (fits(time))
            fitting = std::max(fitting, time);
    }
    if (exists)
        return fitting;
    const int64_t before_gap = local - offset_at(local - 25 * hour);
    const int64_t after_gap = local - offset_at(local + 25 * hour);
    return fits(before_gap) ? after_gap : fits(after_gap) ? before_gap : -1;
}

TEST(make_time, follows_the_rule_on_both_sides_of_each_change) {
    std::mt19937 random(2);
    for (const char* zone : zones) {
        if (std::strstr(zone, "J300"))
            continue; // changes by more than the model knows
        set_zone(zone);
        std::vector<int64_t> locals;
        for (int i = 0; i < 300; ++i)
            locals.push_back(random() & last_time);
        for (int64_t change : changes())
            for (int64_t offset : {host_time(change - 1).tm_gmtoff, host_time(change).tm_gmtoff})
                for (int64_t distance : {-7200, -3600, -1801, -1800, -1, 0, 1, 1799, 1800, 3599, 3600, 7200})
                    locals.push_back(change + offset + distance);
        for (int64_t local : locals) {
            if (local < 2 * 86400 || local > last_time - 2 * 86400)
                continue;
            for (int flag : {-1, 0, 1}) {
                const int64_t expected = expected_time(local, flag);
                if (expected < 0)
                    continue;
                // 1970, told as 30 years before 2000; all else is left to carry.
                const auto minutes = static_cast<int32_t>(local / 60),
                           seconds = static_cast<int32_t>(local % 60);
                ZU_tm fields{seconds, minutes, 24, 0, -360, 100, 9, 9, flag};
                ASSERT_EQ(ZU_mktime(&fields), expected) << zone << " local " << local << " flag " << flag;
                ASSERT_EQ(shown(fields), shown(host_time(expected)));
            }
        }
    }
}

// "s" is standard time, "d" daylight time. The platform's own answers for the Pacific zone lead; the others are flags
// that contradict other zones.
TEST(make_time, gaps_overlaps_and_flags_that_do_not_fit) {
    const struct {
        const char* zone;
        struct {
            const char* date;
            int flag;
            int64_t time;
            const char* becomes;
        } rows[20];
    } tables[] = {
        // clang-format off
        {"America/Los_Angeles", {
            {"2007-03-11 01:59", -1, 1173607140, "01:59 s"}, {"2007-03-11 01:59", 0, 1173607140, "01:59 s"},
            {"2007-03-11 01:59", 1, 1173603540, "00:59 s"},  {"2007-03-11 02:30", -1, 1173605400, "01:30 s"},
            {"2007-03-11 02:30", 0, 1173609000, "03:30 d"},  {"2007-03-11 02:30", 1, 1173605400, "01:30 s"},
            {"2007-03-11 03:00", -1, 1173607200, "03:00 d"}, {"2007-03-11 03:00", 0, 1173610800, "04:00 d"},
            {"2007-11-04 00:59", -1, 1194163140, "00:59 d"}, {"2007-11-04 00:59", 0, 1194166740, "01:59 d"},
            {"2007-11-04 01:30", -1, 1194168600, "01:30 s"}, {"2007-11-04 01:30", 0, 1194168600, "01:30 s"},
            {"2007-11-04 01:30", 1, 1194165000, "01:30 d"},  {"2007-11-04 02:00", 1, 1194166800, "01:00 s"},
            {"2006-04-02 02:30", -1, 1143970200, "01:30 s"}, {"2006-10-29 01:30", -1, 1162114200, "01:30 s"},
            {"2007-07-15 12:00", 0, 1184529600, "13:00 d"},  {"2007-07-15 12:00", 9, 1184526000, "12:00 d"},
            {"2007-01-15 12:00", 1, 1168887600, "11:00 s"},  {"1969-12-31 16:00", -1, 0, "16:00 s"}}},
        {"Europe/Berlin", { // without daylight time until 1980
            {"1975-07-01 12:00", 0, 173444400, "12:00 s"},   {"1975-07-01 12:00", 1, 173440800, "11:00 s"}}},
        {"Australia/Lord_Howe", { // shifts by half an hour
            {"2006-12-01 12:00", 0, 1164936600, "12:30 d"},  {"2006-07-01 12:00", 1, 1151715600, "11:30 s"}}},
        {"Europe/Moscow", { // the nearest summer counts: that of 2010 had what was standard in 2012
            {"2012-01-15 12:00", 1, 1326614400, "12:00 s"},  {"1991-12-01 12:00", 1, 691578000, "11:00 s"},
            {"1992-02-15 12:00", 1, 698140800, "11:00 s"}}},
        {"Asia/Pyongyang", {{"2015-08-14 23:45", 0, 1439565300, "23:45 s"}}}, // the standard offset went back
        {"Asia/Kolkata", {{"2006-07-01 12:00", 1, 1151735400, "12:00 s"}}}, // no daylight time since 1970
        {"No/Such", {{"2006-07-01 12:00", 1, 1151755200, "12:00 s"}}},
        // clang-format on
    };
    for (const auto& table : tables) {
        set_zone(table.zone);
        for (const auto& row : table.rows) {
            if (!row.date)
                break;
            ZU_tm fields{};
            std::sscanf(row.date, "%d-%d-%d %d:%d", &fields.tm_year, &fields.tm_mon, &fields.tm_mday,
                        &fields.tm_hour, &fields.tm_min);
            fields.tm_year -= 1900;
            fields.tm_mon -= 1;
            fields.tm_isdst = row.flag;
            EXPECT_EQ(ZU_mktime(&fields), row.time) << table.zone << " " << row.date << " flag " << row.flag;
            char becomes[32];
            std::snprintf(becomes, sizeof becomes, "%02d:%02d %c", fields.tm_hour, fields.tm_min,
                          fields.tm_isdst ? 'd' : 's');
            EXPECT_STREQ(becomes, row.becomes) << table.zone << " " << row.date << " flag " << row.flag;
        }
    }
}

TEST(make_time, what_does_not_convert_leaves_the_record_as_given) {
    const struct {
        const char* zone;
        ZU_tm fields;
    } rows[] = {
        {"UTC", {8, 14, 3, 19, 0, 138, 77, 88, -1}},        // a second late
        {"UTC", {-1, 0, 0, 1, 0, 70, 77, 88, -1}},          // a second early
        {"Europe/Berlin", {0, 0, 0, 1, 0, 70, 77, 88, -1}}, // negative east of Greenwich
        {"UTC", {0, 0, 0, 40, 13, 1000, 77, 88, 1}},        // not carried either
        {"UTC", {INT32_MAX, INT32_MAX, INT32_MAX, INT32_MAX, INT32_MAX, INT32_MAX, 1, 1, -1}},
        {"UTC", {INT32_MIN, INT32_MIN, INT32_MIN, INT32_MIN, INT32_MIN, INT32_MIN, 1, 1, 1}},
    };
    for (const auto& row : rows) {
        set_zone(row.zone);
        ZU_tm fields = row.fields;
        EXPECT_EQ(ZU_mktime(&fields), -1);
        EXPECT_EQ(std::memcmp(&fields, &row.fields, sizeof fields), 0) << "row " << &row - rows;
        for (ZU_time_t time : {-1, INT32_MIN}) { // nor does local time, which leaves zeros
            EXPECT_FALSE(ZU_localtime(time, &fields));
            EXPECT_EQ(shown(fields), shown(ZU_tm{}));
        }
    }
}

int hour_now_at_0() {
    ZU_tm fields;
    ZU_localtime(0, &fields);
    return fields.tm_hour;
}

TEST(zone_setting, a_changed_environment_counts_from_the_next_call) {
    for (const char* zone : {"AAA-3", "AAA-4"}) {
        setenv("TZ", zone, 1);
        EXPECT_EQ(hour_now_at_0(), zone[4] - '0');
    }
    char own[] = "TZ=AAA-5";
    putenv(own);
    EXPECT_EQ(hour_now_at_0(), 5);
    own[7] = '6'; // without a call that could be noticed
    EXPECT_EQ(hour_now_at_0(), 6);
    for (const bool whole_environment : {false, true}) {
        setenv("TZ", "AAA-7", 1);
        EXPECT_EQ(hour_now_at_0(), 7);
        whole_environment ? clearenv() : unsetenv("TZ");
        const int hour_there = hour_now_at_0();
        tzset();
        EXPECT_EQ(hour_there, host_time(0).tm_hour) << "without TZ, the system's zone";
    }
}

TEST(zone_setting, a_changed_system_zone_is_seen) {
    const outcome child = run_child([] {
        set_zone(nullptr);
        const int before = hour_now_at_0();
        const char* other = before == 5 ? "/usr/share/zoneinfo/UTC" : "/usr/share/zoneinfo/Asia/Kolkata";
        if (unshare(CLONE_NEWNS) != 0 || mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0
            || mount(other, "/etc/localtime", nullptr, MS_BIND, nullptr) != 0)
            _exit(77);
        for (int i = 0; i < 300 && hour_now_at_0() == before; ++i)
            usleep(10000);
        _exit(hour_now_at_0() == (before == 5 ? 0 : 5) ? 0 : 1);
    });
    if (child.exit_code == 77)
        GTEST_SKIP() << "needs the right to mount in a namespace of its own";
    EXPECT_EQ(child.exit_code, 0);
}

// Readers on several threads while the zone goes to and fro: every answer is one of the two, and none stays behind.
TEST(zone_setting, threads_agree_with_a_zone_that_changes_under_them) {
    constexpr ZU_time_t week = 7 * 86400;
    constexpr size_t weeks = 1500;
    std::vector<std::string> expected[2];
    for (int zone : {1, 0}) {
        set_zone(zone ? "Asia/Kolkata" : "Europe/Berlin");
        for (size_t i = 0; i < weeks; ++i)
            expected[zone].push_back(shown(static_cast<ZU_time_t>(i) * week));
    }
    std::atomic<bool> stop{false};
    std::atomic<int> answers{0};
    const auto read = [&] {
        for (size_t n = 0; !stop; n = (n + 7) % weeks, ++answers) {
            const std::string text = shown(static_cast<ZU_time_t>(n) * week);
            ASSERT_TRUE(text == expected[0][n] || text == expected[1][n]) << text;
        }
        for (size_t n = 0; n < weeks; ++n)
            ASSERT_EQ(shown(static_cast<ZU_time_t>(n) * week), expected[0][n]);
    };
    crew readers;
    for (int i = 0; i < 4; ++i)
        readers.add(read);
    for (int flip = 1; flip <= 40; ++flip) {
        for (const int seen = answers; answers < seen + 200 && !HasFailure();)
            std::this_thread::yield();
        setenv("TZ", flip % 2 ? "Asia/Kolkata" : "Europe/Berlin", 1);
    }
    stop = true;
    readers.join();
}

FILETIME file_time_of(int64_t units) {
    return {static_cast<uint32_t>(units), static_cast<uint32_t>(units >> 32)};
}

int64_t units_of(const FILETIME& file_time) {
    return static_cast<int64_t>(uint64_t{file_time.dwHighDateTime} << 32 | file_time.dwLowDateTime);
}

constexpr int64_t units_1970 = 116444736000000000;
constexpr int64_t second = 10000000;

// In one of these zones it is summer now, so that the offset of now and that of the date differ for some date.
TEST(file_time, takes_the_offset_in_force_now) {
    for (const char* zone :
         {"UTC", "Europe/Berlin", "Australia/Sydney", "Australia/Lord_Howe", "Asia/Kolkata"}) {
        set_zone(zone);
        const int64_t offset_now = host_time(::time(nullptr)).tm_gmtoff;
        for (int64_t time = 5 * 86400; time < last_time - 5 * 86400; time += 10 * 86400 + 1234) {
            const FILETIME utc = file_time_of(units_1970 + time * second + 9999999);
            ASSERT_EQ(ZU_FILETIME_2_time_t(&utc), expected_time(time + offset_now, -1)) << time;
            FILETIME back{};
            ASSERT_EQ(Zu_time_t_2_FILETIME(static_cast<ZU_time_t>(time), &back), &back);
            const int64_t offset_then = host_time(time).tm_gmtoff;
            ASSERT_EQ(units_of(back), units_1970 + (time + offset_then - offset_now) * second) << time;
        }
    }
}

TEST(file_time, what_does_not_convert) {
    set_zone("UTC");
    for (int64_t units : {int64_t{0}, units_1970 - 1, units_1970 + (last_time + 1) * second, INT64_MAX}) {
        const FILETIME file_time = file_time_of(units);
        EXPECT_EQ(ZU_FILETIME_2_time_t(&file_time), -1) << units;
    }
    FILETIME file_time = file_time_of(-1);
    EXPECT_EQ(ZU_FILETIME_2_time_t(&file_time), -1);
    EXPECT_EQ(GetLastError(), 87u);
    file_time = file_time_of(77);
    for (ZU_time_t time : {-1, -2})
        EXPECT_EQ(Zu_time_t_2_FILETIME(time, &file_time), nullptr);
    EXPECT_EQ(units_of(file_time), 77);
    set_zone("AAA3");
    const FILETIME zero{};
    EXPECT_TRUE(platform::FileTimeToLocalFileTime(&zero, &file_time));
    EXPECT_EQ(units_of(file_time), -3 * hour * second) << "the sum wraps";
}

TEST(system_time, is_checked_and_round_trips) {
    using platform::SYSTEMTIME;
    // clang-format off
    const SYSTEMTIME refused[] = {
        {1600, 12, 0, 31, 0, 0, 0, 0}, {30828, 1, 0, 1, 0, 0, 0, 0}, {2006, 0, 0, 1, 0, 0, 0, 0},
        {2006, 13, 0, 1, 0, 0, 0, 0},  {2006, 1, 0, 0, 0, 0, 0, 0},  {2006, 4, 0, 31, 0, 0, 0, 0},
        {2006, 2, 0, 29, 0, 0, 0, 0},  {1900, 2, 0, 29, 0, 0, 0, 0}, {2004, 2, 0, 30, 0, 0, 0, 0},
        {2006, 1, 0, 1, 24, 0, 0, 0},  {2006, 1, 0, 1, 0, 60, 0, 0}, {2006, 1, 0, 1, 0, 0, 60, 0},
        {2006, 1, 0, 1, 0, 0, 0, 1000}};
    const SYSTEMTIME valid[] = {{1601, 1, 1, 1, 0, 0, 0, 0}, {2000, 2, 2, 29, 0, 0, 0, 1},
                                {30827, 12, 5, 31, 23, 59, 59, 999}};
    // clang-format on
    FILETIME file_time = file_time_of(77);
    for (const SYSTEMTIME& time : refused) {
        EXPECT_EQ(code_of(platform::SystemTimeToFileTime(&time, &file_time)), 87u) << &time - refused;
    }
    EXPECT_EQ(units_of(file_time), 77);
    SYSTEMTIME back{};
    for (const SYSTEMTIME& time : valid) {
        SYSTEMTIME given = time;
        given.wDayOfWeek = 9; // ignored
        ASSERT_TRUE(platform::SystemTimeToFileTime(&given, &file_time));
        ASSERT_TRUE(platform::FileTimeToSystemTime(&file_time, &back));
        EXPECT_EQ(std::memcmp(&back, &time, sizeof back), 0) << time.wYear;
    }
}

TEST(date_text, is_read_field_by_field) {
    set_zone("UTC");
    constexpr ZU_time_t start = 1146394242; // 2006-04-30 10:50:42
    const struct {
        const ZU_wchar* text;
        ZU_time_t time;
        int fields_stored;
    } rows[] = {
        // clang-format off
        {u"2006-04-30 10:50:42", start, 6}, {u"2006\\04\\30-10:50:42", start, 6}, {u"2006-04-30 10", -1, 4},
        {u"::2006/4/30//10 50 - 42:", start, 6}, {u"2006-04-30 10:50:42 trailing words", start, 6},
        {u"2006-04-30 10:50", start - 42, 6}, {u"  2006--04--30  10:50  ", start - 42, 6}, {u"", -1, 0},
        {u"2006x-+4-30y 10z:50:42", start, 6}, {u"2006-04-30 10:50 trailing", start - 42, 6},
        {u"2006-02-31 00:00", 1141344000, 6}, {u"2038-01-19 03:14:07", INT32_MAX, 6}, {u" :-/\\", -1, 0},
        {u"2038-01-19 03:14:08", -1, 6}, {u"1970-01-01 00:00", 0, 6}, {u"99999999999-01-01 00:00", -1, 6},
        {u"1899-12-31 23:59", -1, 0}, {u"x-12-31 23:59", -1, 0}, {u"2006-13-01 00:00", -1, 1},
        {u"2006-0-01 00:00", -1, 1}, {u"2006-04-32 00:00", -1, 2}, {u"2006-04-0 00:00", -1, 2}, {u"2006-04-30", -1, 3},
        {u"2006-04-30 24:00", -1, 3}, {u"2006-04-30 10:60", -1, 4}, {u"2006-04-30 10:50:60", -1, 5},
        // clang-format on
    };
    for (const auto& row : rows) {
        ZU_tm fields{-9, -9, -9, -9, -9, -9, -9, -9, -9};
        EXPECT_EQ(ZU_read_tm(row.text, &fields), row.time) << &row - rows;
        EXPECT_EQ(ZU_read_time_t(row.text), row.time) << &row - rows;
        if (row.time >= 0) {
            EXPECT_EQ(shown(fields), shown(host_time(row.time)));
        }
        const int32_t in_order[] = {fields.tm_year, fields.tm_mon, fields.tm_mday,
                                    fields.tm_hour, fields.tm_min, fields.tm_sec};
        for (int i = 0; i < 6; ++i)
            EXPECT_EQ(in_order[i] != -9, i < row.fields_stored) << &row - rows;
    }
    set_zone("Europe/Berlin");
    EXPECT_EQ(ZU_read_time_t(u"2006-07-01 12:00"), 1151748000) << "in summer time, without being told so";
}

TEST(date_text, is_written_in_nineteen_characters) {
    const struct {
        ZU_tm fields;
        const ZU_wchar* text;
    } rows[] = {
        {{42, 50, 10, 30, 3, 106, 0, 0, 0}, u"2006-04-30 10:50:42"},
        {{0, 0, 0, 1, 0, 8100, 0, 0, 0}, u"10000-01-01 00:00:0"},
        {{-5, 75, -1, 0, 12, 106, 0, 0, 0}, u"2006-13-00 -1:75:-5"},
        {{0, 0, 0, 1, INT32_MAX, INT32_MAX, 0, 0, 0}, u"-2147481749--214748"}, // the sums wrap
    };
    for (const auto& row : rows) {
        std::u16string buffer(21, u'#');
        ZU_write_tm(&row.fields, buffer.data());
        EXPECT_EQ(buffer, row.text + std::u16string(u"\0#", 2));
    }
    ZU_wchar buffer[20] = u"old";
    set_zone("Asia/Kolkata");
    EXPECT_TRUE(ZU_write_time_t(0, buffer));
    EXPECT_EQ(std::u16string(buffer), u"1970-01-01 05:30:00");
    EXPECT_FALSE(ZU_write_time_t(-1, buffer));
    EXPECT_EQ(buffer[0], 0);
}

} // namespace
