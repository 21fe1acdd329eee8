// Local time, file times, and the text forms of dates, in zones that both platforms know.
#include <bit>

#include "support/portable.h"

namespace {

constexpr int64_t last_time = 0x7FFFFFFF;

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

// The platform's own answers.
TEST(make_time, gaps_and_overlaps_of_the_pacific_zone) {
    const struct {
        const ZU_wchar* date;
        int flag;
        ZU_time_t time;
    } rows[] = {
        // clang-format off
        {u"2007-03-11 01:59", 1, 1173603540}, {u"2007-03-11 02:30", -1, 1173605400},
        {u"2007-03-11 02:30", 0, 1173609000}, {u"2007-03-11 03:00", 0, 1173610800},
        {u"2007-11-04 00:59", 0, 1194166740}, {u"2007-11-04 01:30", -1, 1194168600},
        {u"2007-11-04 01:30", 1, 1194165000}, {u"2007-11-04 02:00", 1, 1194166800},
        {u"2007-07-15 12:00", 0, 1184529600}, {u"2007-07-15 12:00", 9, 1184526000},
        {u"2007-01-15 12:00", 1, 1168887600},
        // clang-format on
    };
    for (const auto& row : rows) {
        ZU_tm fields;
        set_zone("UTC0"); // takes the text as it stands
        ZU_read_tm(row.date, &fields);
        set_zone("PST8PDT");
        fields.tm_isdst = row.flag;
        EXPECT_EQ(ZU_mktime(&fields), row.time) << narrow(row.date);
        EXPECT_EQ(shown(fields), shown(row.time)) << narrow(row.date);
    }
}

TEST(make_time, the_first_second_lies_in_the_year_before) {
    set_zone("PST8PDT");
    ZU_tm fields{0, 0, 16, 31, 11, 69, 0, 0, -1};
    EXPECT_EQ(ZU_mktime(&fields), 0);
}

TEST(make_time, what_does_not_convert) {
    set_zone("AAA-1");
    const ZU_tm rows[] = {
        {8, 14, 4, 19, 0, 138, 77, 88, -1}, // a second late
        {59, 59, 0, 1, 0, 70, 77, 88, -1},  // a second early
        {INT32_MAX, INT32_MAX, INT32_MAX, INT32_MAX, INT32_MAX, INT32_MAX, 1, 1, -1},
        {INT32_MIN, INT32_MIN, INT32_MIN, INT32_MIN, INT32_MIN, INT32_MIN, 1, 1, 1},
    };
    for (const ZU_tm& row : rows) {
        ZU_tm given = row;
        EXPECT_EQ(ZU_mktime(&given), -1);
        EXPECT_EQ(std::memcmp(&given, &row, sizeof row), 0) << row.tm_sec;
    }
    ZU_tm fields;
    EXPECT_FALSE(ZU_localtime(-1, &fields));
    EXPECT_EQ(shown(fields), shown(ZU_tm{}));
}

// File times count in tenths of a microsecond.
constexpr int64_t units_1970 = 116444736000000000, second = 10000000;

TEST(file_time, what_does_not_convert) {
    set_zone("UTC0");
    FILETIME file_time;
    for (int64_t units : {int64_t{0}, units_1970 - 1, units_1970 + (last_time + 1) * second, int64_t{-1}}) {
        file_time = std::bit_cast<FILETIME>(units);
        EXPECT_EQ(ZU_FILETIME_2_time_t(&file_time), -1) << units;
    }
    EXPECT_EQ(GetLastError(), codes::invalid_parameter);
    file_time = std::bit_cast<FILETIME>(int64_t{77});
    for (ZU_time_t time : {-1, -2})
        EXPECT_EQ(Zu_time_t_2_FILETIME(time, &file_time), nullptr);
    EXPECT_EQ(std::bit_cast<int64_t>(file_time), 77);
}

TEST(date_text, is_read_field_by_field) {
    set_zone("UTC0");
    constexpr ZU_time_t start = 1146394242; // 2006-04-30 10:50:42
    const struct {
        const ZU_wchar* text;
        ZU_time_t time;
        int fields_stored;
    } rows[] = {
        // clang-format off
        {u"2006-04-30 10:50:42", start, 6}, {u"2006\\04\\30-10:50:42", start, 6}, {u"2006-04-30 10", -1, 4},
        {u"::2006/4/30//10 50 - 42:", start, 6}, {u"2006-04-30 10:50:42 trailing words", start, 6}, {u"", -1, 0},
        {u"2006x-+4-30y 10z:50:42", start, 6}, {u"2006-04-30 10:50 trailing", start - 42, 6}, {u" :-/\\", -1, 0},
        {u"2006-02-31 00:00", 1141344000, 6}, {u"2038-01-19 03:14:07", INT32_MAX, 6}, {u"2006-04-30", -1, 3},
        {u"2038-01-19 03:14:08", -1, 6}, {u"1970-01-01 00:00", 0, 6}, {u"99999999999-01-01 00:00", -1, 6},
        {u"1899-12-31 23:59", -1, 0}, {u"2006-13-01 00:00", -1, 1}, {u"2006-0-01 00:00", -1, 1},
        {u"2006-04-32 00:00", -1, 2}, {u"2006-04-0 00:00", -1, 2}, {u"2006-04-30 24:00", -1, 3},
        {u"2006-04-30 10:60", -1, 4}, {u"2006-04-30 10:50:60", -1, 5},
        // clang-format on
    };
    for (const auto& row : rows) {
        ZU_tm fields{-9, -9, -9, -9, -9, -9, -9, -9, -9};
        EXPECT_EQ(ZU_read_tm(row.text, &fields), row.time) << narrow(row.text);
        EXPECT_EQ(ZU_read_time_t(row.text), row.time) << narrow(row.text);
        if (row.time >= 0) {
            EXPECT_EQ(shown(fields), shown(row.time));
        }
        const int32_t in_order[] = {fields.tm_year, fields.tm_mon, fields.tm_mday,
                                    fields.tm_hour, fields.tm_min, fields.tm_sec};
        EXPECT_EQ(6 - std::count(in_order, in_order + 6, -9), row.fields_stored) << narrow(row.text);
    }
    set_zone("PST8PDT");
    EXPECT_EQ(ZU_read_time_t(u"2007-07-15 12:00"), 1184526000) << "in summer time, without being told so";
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
    set_zone("IST-5:30");
    EXPECT_TRUE(ZU_write_time_t(0, buffer));
    EXPECT_EQ(std::u16string(buffer), u"1970-01-01 05:30:00");
    EXPECT_FALSE(ZU_write_time_t(-1, buffer));
    EXPECT_EQ(buffer[0], 0);
}

} // namespace
