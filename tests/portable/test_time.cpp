// Local time, file times, and the text forms of dates, in zones that both platforms know.
#include <bit>

#include "support/portable.h"

namespace {

TEST(make_time, the_first_second_lies_in_the_year_before) {
    set_zone("PST8PDT");
    ZU_tm fields{0, 0, 16, 31, 11, 69, 0, 0, -1};
    EXPECT_EQ(ZU_mktime(&fields), 0);
}

TEST(file_time, what_does_not_convert) {
    set_zone("UTC0"); // file times count in tenths of a microsecond
    constexpr int64_t units_1970 = 116444736000000000, end = units_1970 + (int64_t{INT32_MAX} + 1) * 10000000;
    for (int64_t units : {int64_t{0}, units_1970 - 1, end, int64_t{-1}}) {
        const FILETIME file_time = std::bit_cast<FILETIME>(units);
        EXPECT_EQ(ZU_FILETIME_2_time_t(&file_time), -1) << units;
    }
    EXPECT_EQ(GetLastError(), codes::invalid_parameter);
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
        {u"2006-04-30 10:50:60", -1, 5}, {u"2006-00-01 00:00", -1, 1},
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
