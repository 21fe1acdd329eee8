// Local time both ways beside the C library's, in the zones that this platform knows; file times, and the text forms of
// dates.
#include <bit>

#include "support/portable.h"

namespace {

constexpr int64_t last_time = 0x7FFFFFFF;

// Both hemispheres, a shift of half an hour, zones that changed their standard offset or skipped a day, one whose
// winter time counts as daylight time, rules and names in all spellings, texts that name nothing, and the system's own.
const char* const zones[] = {
    // clang-format off
    "Europe/Berlin", "America/New_York", "Australia/Lord_Howe", "Asia/Kolkata", "America/Sao_Paulo", "Pacific/Apia",
    "Africa/Casablanca", "Europe/Dublin", "Europe/Moscow", "Asia/Pyongyang", "America/Boa_Vista", "Antarctica/Troll",
    "UTC", "CET-1CEST", "EST5EDT,M3.2.0,M11.1.0", "<+0330>-3:30", ":Australia/Sydney", ":CET-1CEST,M3.5.0,M10.5.0/3",
    "AAA24", "AAA-24:59:59", "AAA24BBB-24,J50,J300", "No/Such_Zone", "garbage", "", nullptr,
    // clang-format on
};

// The reading of a clock in seconds, in years of which every fourth has a day more.
int64_t reading_of(const std::tm& fields) {
    const int64_t days = fields.tm_yday + (fields.tm_year - 70) * 365 + (fields.tm_year - 69) / 4;
    return days * 86400 + fields.tm_hour * 3600 + fields.tm_min * 60 + fields.tm_sec;
}

// The offset of the present zone, and its flag.
std::pair<int64_t, int> kind_at(int64_t time) {
    const std::tm fields = c_library_time(time);
    return {reading_of(fields) - time, fields.tm_isdst};
}

// Every instant at which the present zone changes, as the C library tells them.
std::vector<int64_t> changes() {
    constexpr int64_t step = 2 * 86400;
    std::vector<int64_t> found;
    auto kind = kind_at(0);
    for (int64_t from = 0; from <= last_time - step; from += step) {
        const auto before = std::exchange(kind, kind_at(from + step));
        if (kind == before)
            continue;
        int64_t low = from, high = from + step;
        while (high - low > 1) {
            const int64_t middle = low + (high - low) / 2;
            (kind_at(middle) == before ? low : high) = middle;
        }
        found.push_back(high);
    }
    return found;
}

// 1970, told as 30 years before 2000; all else is left to carry.
ZU_tm record_of(int64_t local, int flag) {
    return {static_cast<int32_t>(local % 60), static_cast<int32_t>(local / 60), 24, 0, -360, 100, 9, 9, flag};
}

// Each instant shows what the C library says, and its fields lead back to it, or to the latest other that shows them.
// What is skipped takes the offset after the gap, unless only the one before it has the flag. A flag that does not fit
// means what it does to the C library, in a zone with daylight saving.
TEST(local_time, agrees_with_the_c_library_both_ways) {
    std::mt19937 random(1);
    for (const char* zone : zones) {
        if (zone && !has_zone(zone))
            continue;
        set_zone(zone);
        SCOPED_TRACE(zone ? zone : "the system's zone");
        std::vector<int64_t> times = {0, 1, last_time - 1, last_time};
        for (int i = 0; i < 3000; ++i)
            times.push_back(random() & last_time);
        bool has_daylight = false;
        for (int64_t change : changes()) {
            for (int64_t distance : {-86400, -3600, -1801, -1800, -1, 0, 1, 1799, 1800, 3599, 3600, 86400})
                times.push_back(std::min(change + distance, last_time));
            const auto [before, flag_before] = kind_at(change - 1);
            const auto [after, flag_after] = kind_at(change);
            has_daylight = has_daylight || flag_before != flag_after;
            for (int flag : {-1, flag_before, flag_after}) {
                for (int64_t local : {change + before, change + after - 1}) {
                    ZU_tm fields = record_of(local, flag);
                    const int64_t meant = local - (flag < 0 || flag == flag_after ? after : before);
                    ASSERT_TRUE(before >= after || ZU_mktime(&fields) == meant) << local << " flag " << flag;
                }
            }
        }
        for (int64_t time : times) {
            const std::tm there = c_library_time(time);
            ASSERT_EQ(shown(static_cast<ZU_time_t>(time)), shown(there)) << time;
            if (there.tm_year < 70)
                continue; // make_time asks for that
            for (int flag : {-1, there.tm_isdst}) {
                const int64_t local = reading_of(there);
                ZU_tm fields = record_of(local, flag), same_day;
                const int64_t found = ZU_mktime(&fields);
                ZU_localtime(static_cast<ZU_time_t>(time), &same_day); // whose date the next call knows
                same_day.tm_hour -= flag < 0 ? 24 : 0;
                same_day.tm_sec += flag < 0 ? 24 * 3600 : 0;
                same_day.tm_wday = same_day.tm_yday = 9;
                same_day.tm_isdst = flag;
                ASSERT_EQ(ZU_mktime(&same_day), found) << time << " flag " << flag;
                ASSERT_EQ(shown(same_day), shown(fields)) << time << " flag " << flag;
                ASSERT_GE(found, time) << " flag " << flag;
                ASSERT_EQ(reading_of(c_library_time(found)), local) << time;
                ASSERT_EQ(shown(fields), shown(c_library_time(found)));
                ASSERT_TRUE(flag < 0 || fields.tm_isdst == flag) << time;
            }
        }
        for (int i = 0; i < 400 && has_daylight; ++i) { // within the years that it searches by weeks
            const int64_t time = 1'000'000'000 + random() % 900'000'000;
            const auto meant = [](int64_t at, ZU_tm& fields) {
                const std::tm there = c_library_time(at);
                std::tm record{};
                fields = record_of(reading_of(there), there.tm_isdst == 0);
                std::memcpy(&record, &fields, sizeof fields); // which the C library's begins with
                return int64_t{std::mktime(&record)};
            };
            constexpr int64_t week = 7 * 86400;
            ZU_tm fields;
            const int64_t before = meant(time - week, fields), after = meant(time + week, fields),
                          expected = meant(time, fields);
            if (after - before == 2 * week) { // no change is near, nor the middle between two
                ASSERT_EQ(ZU_mktime(&fields), expected) << time;
                ASSERT_EQ(shown(fields), shown(c_library_time(expected)));
            }
        }
    }
}

TEST(make_time, the_first_second_lies_in_the_year_before) {
    set_zone("PST8PDT");
    ZU_tm fields{0, 0, 16, 31, 11, 69, 0, 0, -1};
    EXPECT_EQ(ZU_mktime(&fields), 0);
}

TEST(file_time, both_ways_and_what_does_not_convert) {
    set_zone("UTC0"); // file times count in tenths of a microsecond
    constexpr int64_t units_1970 = 116444736000000000, end = units_1970 + (int64_t{INT32_MAX} + 1) * 10000000;
    for (int64_t units : {int64_t{0}, units_1970 - 1, end, int64_t{-1}}) {
        const FILETIME file_time = std::bit_cast<FILETIME>(units);
        EXPECT_EQ(ZU_FILETIME_2_time_t(&file_time), -1) << units;
    }
    EXPECT_EQ(GetLastError(), codes::invalid_parameter);
    for (int64_t time = 0; time <= last_time; time += 86399) {
        FILETIME whole{}, fraction = std::bit_cast<FILETIME>(units_1970 + time * 10000000 + 9999999);
        ASSERT_EQ(Zu_time_t_2_FILETIME(static_cast<ZU_time_t>(time), &whole), &whole) << time;
        ASSERT_EQ(std::bit_cast<int64_t>(whole), units_1970 + time * 10000000);
        ASSERT_EQ(ZU_FILETIME_2_time_t(&fraction), time);
    }
    FILETIME left = std::bit_cast<FILETIME>(int64_t{77});
    for (ZU_time_t time : {-1, -2})
        EXPECT_EQ(Zu_time_t_2_FILETIME(time, &left), nullptr);
    EXPECT_EQ(std::bit_cast<int64_t>(left), 77);
}

TEST(date_text, is_read_field_by_field) {
    set_zone("UTC0");
    constexpr ZU_time_t start = 1146394242; // 2006-04-30 10:50:42
    // The text, its time, and how many fields are stored.
    const std::tuple<const ZU_wchar*, ZU_time_t, int> rows[] = {
        // clang-format off
        {u"2006\\04\\30-10:50:42", start, 6}, {u"2006-04-30 10", -1, 4}, {u"::2006/4/30//10 50 - 42:", start, 6}, {u" :-/\\", -1, 0},
        {u"2006x-+4-30y 10z:50:42", start, 6}, {u"2006-04-30 10:50 trailing", start - 42, 6}, {u"2006-02-31 00:00", 1141344000, 6},
        {u"2038-01-19 03:14:07", INT32_MAX, 6}, {u"1970-01-01 00:00", 0, 6}, {u"1899-12-31 23:59", -1, 0}, {u"2006-13-01 00:00", -1, 1},
        {u"2006-04-32 00:00", -1, 2}, {u"2006-04-0 00:00", -1, 2}, {u"2006-04-30 24:00", -1, 3}, {u"2006-04-30 10:60", -1, 4},
        {u"2006-04-30 10:50:60", -1, 5}, {u"2006-00-01 00:00", -1, 1}, {u"+-2006-04-30", -1, 0}, {u"+ 2006-04-30", -1, 0},
        {u"\u00a0\t\u3000\r2006x-\uff10\u0664-+30y 10:50:42", start, 6}, {u"\u0662\uff10\u09660006-04-30", -1, 3}, {u"\u200b2006-04-30", -1, 0},
        // clang-format on
    };
    for (const auto& [text, time, stored] : rows) {
        ZU_tm fields{-9, -9, -9, -9, -9, -9, -9, -9, -9};
        EXPECT_EQ(ZU_read_tm(text, &fields), time) << narrow(text);
        EXPECT_EQ(ZU_read_time_t(text), time) << narrow(text);
        ZU_tm expected = fields;
        if (time >= 0)
            ZU_localtime(time, &expected);
        EXPECT_EQ(std::memcmp(&fields, &expected, sizeof fields), 0) << narrow(text);
        const int32_t in_order[] = {fields.tm_year, fields.tm_mon, fields.tm_mday,
                                    fields.tm_hour, fields.tm_min, fields.tm_sec};
        EXPECT_EQ(6 - std::count(in_order, in_order + 6, -9), stored) << narrow(text);
    }
    set_zone("PST8PDT");
    EXPECT_EQ(ZU_read_time_t(u"2007-07-15 12:00"), 1184526000) << "in summer time, without being told so";
}

TEST(date_text, is_written_in_nineteen_characters) {
    const std::pair<ZU_tm, const ZU_wchar*> rows[] = {
        {{42, 50, 10, 30, 3, 106, 0, 0, 0}, u"2006-04-30 10:50:42"},
        {{0, 0, 0, 1, 0, 8100, 0, 0, 0}, u"10000-01-01 00:00:0"},
        {{-5, 75, -1, 0, 12, 106, 0, 0, 0}, u"2006-13-00 -1:75:-5"},
        {{0, 0, 0, 1, INT32_MAX, INT32_MAX, 0, 0, 0}, u"-2147481749--214748"}, // the sums wrap
    };
    for (const auto& [fields, text] : rows) {
        std::u16string buffer(21, u'#');
        ZU_write_tm(&fields, buffer.data());
        EXPECT_EQ(buffer, text + std::u16string(u"\0#", 2));
    }
    ZU_wchar buffer[20] = u"old";
    set_zone("IST-5:30");
    EXPECT_TRUE(ZU_write_time_t(0, buffer));
    EXPECT_EQ(std::u16string(buffer), u"1970-01-01 05:30:00");
    EXPECT_FALSE(ZU_write_time_t(-1, buffer));
    EXPECT_EQ(buffer[0], 0);
    ZU_tm fields{9, 9, 9, 9, 9, 9, 9, 9, 9}, zeros{};
    EXPECT_FALSE(ZU_localtime(-1, &fields));
    EXPECT_EQ(std::memcmp(&fields, &zeros, sizeof zeros), 0);
}

} // namespace
