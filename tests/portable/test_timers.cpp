// The corners of the timer model: texts, lateness, the grid, the last firing, ends, and how far the search looks.
#include "support/portable.h"

namespace {

using text = const ZU_wchar*;

using timer_ptr = std::unique_ptr<ZU_timer, decltype([](ZU_timer* timer) { timer->ops->destroy(timer); })>;

ZU_time_t at(int year, int month, int day, int hour = 0, int minute = 0, int second = 0) {
    const std::chrono::sys_days date = std::chrono::year(year) / month / day;
    return static_cast<ZU_time_t>(date.time_since_epoch() / std::chrono::seconds(1)) + hour * 3600
           + minute * 60 + second;
}
bool due(const timer_ptr& timer, ZU_time_t low, ZU_time_t now) {
    return timer->ops->due(timer.get(), low, now) == 0;
}
ZU_time_t next(const timer_ptr& timer) {
    return timer->ops->next(timer.get());
}

// clang-format off
timer_ptr daily(text start, text end = u"", text last = u"", int32_t n = 1, text months = u"", text days = u"", text weekdays = u"") {
    return timer_ptr(ZU_timer_new_daily(start, end, last, n, months, days, weekdays, nullptr)); }
timer_ptr interval(text start, int32_t h, int32_t m, int32_t s, text hours = u"", text months = u"", text days = u"", text weekdays = u"") {
    return timer_ptr(ZU_timer_new_interval(start, u"", u"", h, m, s, hours, months, days, weekdays, nullptr)); }
timer_ptr weekly(text start, text weekdays, int32_t n) {
    return timer_ptr(ZU_timer_new_weekly(start, nullptr, nullptr, weekdays, n, nullptr, u"", nullptr)); }
timer_ptr monthly(text start, text days, text months = u"", text last = u"", text end = u"") {
    return timer_ptr(ZU_timer_new_monthly(start, end, last, days, months, nullptr, nullptr)); }
timer_ptr week(text start, int32_t number, text weekdays) {
    return timer_ptr(ZU_timer_new_week_of_month(start, u"", u"", number, weekdays, u"", u"", nullptr)); }
timer_ptr occurrence(text start, int32_t number, text weekdays) {
    return timer_ptr(ZU_timer_new_weekday_of_month(start, u"", u"", number, weekdays, u"", u"", nullptr)); }
// clang-format on

// The list of the numbers from 1 but one.
std::u16string all_but(int out, int high) {
    std::string list;
    for (int i = 1; i <= high; ++i)
        list += i == out ? "" : std::to_string(i) + ',';
    return {list.begin(), list.end()};
}

class timers : public testing::Test {
protected:
    timers() {
        set_zone("UTC");
        ZU_timer_set_valid_offset_seconds(60);
    }
};

TEST_F(timers, list_texts) {
    using list = std::vector<int32_t>;
    // The values as read with 1 to 12, and with -31 to 31.
    const std::tuple<const char*, text, list, list> rows[] = {
        {"every separator", u"1;3,5|7:9", {1, 3, 5, 7, 9}, {1, 3, 5, 7, 9}},
        {"order and twins", u"9,1,1,13,0", {1, 9}, {0, 1, 9, 13}},
        {"a space ends it", u"1 2", {1}, {1}},
        {"limits", u" 12,-31,31,32,-32,+4,5x,-1", {4, 5, 12}, {-31, -1, 4, 5, 12, 31}},
        {"separators only", u"|;:,", {}, {}},
        {"null", nullptr, {}, {}},
    };
    for (const auto& [name, given, months, days] : rows) {
        const timer_ptr timer = daily(u"2006-05-01 08:00", nullptr, nullptr, 1, given, given);
        for (const auto& [read, wanted] :
             {std::pair(timer->excluded_months, months), {timer->excluded_days, days}})
            EXPECT_EQ(list(read.values, read.values + read.count), wanted) << name;
    }
}

TEST_F(timers, what_constructors_refuse) {
    const text start = u"2006-05-01 08:00";
    // clang-format off
    const timer_ptr refused[] = {
        daily(u""), daily(u"2006-05-01"), daily(u"2039-01-01 00:00"), daily(start, u"x"), daily(start, u"2039-01-01 00:00"),
        daily(start, u"2007-01-01 00:00", u"2006-13-01 00:00"), daily(start, u"", u"", 0), daily(start, u"", u"", INT_MIN),
        interval(start, 0, 0, 0), interval(start, 1, -60, 0), interval(start, 600000, 0, 0), // 2,160,000,000 seconds
        weekly(start, u"", 1), weekly(start, u"0,8", 1), weekly(start, u"1", 0),
        monthly(start, u""), monthly(start, u"32", u"1", u"", u"2007-01-01 00:00"),
        week(start, 0, u"1"), week(start, 1, u"9"), occurrence(start, 0, u"1"), occurrence(start, 1, u"")};
    // clang-format on
    for (const timer_ptr& timer : refused)
        EXPECT_EQ(timer, nullptr) << "number " << &timer - refused;

    const timer_ptr kept = interval(start, 1, -30, 0, u"24");
    EXPECT_TRUE(due(kept, 0, at(2006, 5, 1, 8, 30)));
    EXPECT_FALSE(due(kept, 0, at(2006, 5, 2)));
    kept->ops->destroy(nullptr);
}

// A daily timer at 08:00 from May 1st 2006: what the low mark, the lateness and the last firing make of it.
TEST_F(timers, lateness_low_mark_and_last_firing) {
    const ZU_time_t eight = at(2006, 5, 10, 8), start = at(2006, 5, 1, 8), day = 86400;
    // The valid offset, the last firing, the low mark and the time of the test; whether it is due, and the last firing then.
    const std::tuple<const char*, int32_t, ZU_time_t, ZU_time_t, ZU_time_t, bool, ZU_time_t> rows[] = {
        {"early", 60, 0, 0, eight - 1, false, 0},
        {"a negative limit", -1, 0, 0, eight, false, 0},
        {"late", 60, 0, 0, eight + 60, true, eight},
        {"too late", 60, 0, 0, eight + 61, false, 0},
        {"any time", 0, 0, 0, eight + day - 1, true, eight},
        {"no such time", 0, 0, -10, -5, false, 0},
        {"fired already", 60, eight, 0, eight + 1, false, eight},
        {"fired the day before", 60, eight - day, eight + 1, eight + 2, true, eight},
        {"fired, but off the grid", 60, eight - 1, 0, eight, true, eight},
        {"fired in the future", 60, eight + day, 0, eight, true, eight},
        {"a point before the low mark", 60, eight - day, eight + 2, eight + 1, false, eight - day},
        {"low just before it", 0, 0, eight - 1, eight + 3600, true, eight},
        {"low at the start itself", 0, 0, start, start + 5, true, start},
    };
    for (const auto& [name, offset, last, low, now, is_due, last_then] : rows) {
        const timer_ptr timer = daily(u"2006-05-01 08:00");
        ZU_timer_set_valid_offset_seconds(offset);
        timer->last = last;
        EXPECT_EQ(due(timer, low, now), is_due) << name;
        EXPECT_EQ(timer->last, last_then) << name;
    }
    EXPECT_EQ(ZU_timer_set_valid_offset_seconds(60), 0);
    EXPECT_EQ(ZU_timer_get_valid_offset_seconds(), 60);
}

TEST_F(timers, the_day_of_the_last_firing_and_the_end) {
    const ZU_time_t eight = at(2006, 5, 31, 8);
    const timer_ptr seen = monthly(u"2006-05-01 08:00", u"-1", u"", u"2006-05-31 08:00");
    EXPECT_FALSE(due(seen, 0, eight + 5)) << "fired today, as the caller said";
    EXPECT_FALSE(due(seen, 0, eight - 5));
    EXPECT_EQ(seen->last, 0) << "it lay in the future";
    EXPECT_TRUE(due(seen, 0, eight));
    EXPECT_FALSE(due(seen, 0, eight + 1));
    seen->last = at(2006, 4, 30, 8); // before the start
    EXPECT_FALSE(due(seen, eight + 2, eight + 3)) << "the low mark is past today's firing";
    EXPECT_EQ(seen->last, 0);

    const ZU_time_t end = at(2006, 5, 3, 8); // the last moment
    const timer_ptr both[] = {daily(u"2006-05-01 08:00", u"2006-05-03 08:00"),
                              monthly(u"2006-05-01 08:00", u"1,2,3,4", u"", u"", u"2006-05-03 08:00")};
    for (const timer_ptr& timer : both) {
        EXPECT_FALSE(due(timer, 0, end + 1)) << "tested too late for its end";
        EXPECT_TRUE(due(timer, 0, end));
        EXPECT_EQ(next(timer), -1) << "over";
    }
}

TEST_F(timers, sums_beyond_32_bits) {
    ZU_timer_set_valid_offset_seconds(0);
    const text start = u"2006-05-01 08:00";
    const timer_ptr rare = daily(start, u"", u"", INT_MAX),
                    last_second = interval(u"2038-01-19 03:14:07", 0, 0, 1);
    EXPECT_TRUE(due(rare, 0, at(2006, 5, 1, 8, 30)));
    EXPECT_FALSE(due(rare, 0, INT_MAX)) << "the next is millions of years away";
    EXPECT_EQ(next(rare), -2);
    EXPECT_EQ(next(last_second), INT_MAX);
    EXPECT_TRUE(due(last_second, 0, INT_MAX));
    EXPECT_TRUE(due(monthly(u"2038-01-19 02:00", u"19"), 0, INT_MAX));
    EXPECT_FALSE(due(week(u"2038-01-19 02:00", -2, u"2"), 0, INT_MAX)) << "its last day does not convert";
    EXPECT_TRUE(due(interval(start, 1193047, 0, 0), 0, at(2006, 5, 1, 8, 31, 44))) << "2^32 + 1904";
}

// Where the search finds nothing, and how far it looks. Starts in the future are the first time that is tried.
TEST_F(timers, what_the_search_finds) {
    const text start = u"2006-05-01 08:00", in_2037 = u"2037-01-01 08:00";
    ZU_time_t now = ZU_time();
    const std::u16string hours = u"0," + all_but(0, 22), days = all_but(31, 31), to_28 = all_but(29, 29);
    const auto on_day = [](text begin, int minutes, int month, int day) {
        return interval(begin, 0, minutes, 0, u"", all_but(month, 12).c_str(), all_but(day, 31).c_str());
    };
    // The timer, and its next firing; 0 is some time from now.
    const std::tuple<const char*, timer_ptr, ZU_time_t> rows[] = {
        {"no month", daily(start, u"", u"", 1, all_but(0, 12).c_str()), -1},
        {"no day", daily(start, u"", u"", 1, u"", (days + u"-1").c_str()), -1},
        {"no day, from either end", daily(start, u"", u"", 1, u"", (to_28 + u"29,-1,-2").c_str()), -1},
        {"31 days of 30", daily(start, u"", u"", 1, u"", (days + u"-31").c_str()), 0},
        {"an hour", interval(start, 1, 0, 0, hours.c_str()), 0},
        {"midnight twice makes 24", interval(start, 1, 0, 0, (hours + u"24").c_str()), -1},
        {"an end before the start", daily(in_2037, u"2036-12-31 00:00"), -1},
        {"an end before the first firing", daily(in_2037, u"2037-01-20 08:00", u"", 1, u"1"), -1},
        {"a day that never comes", monthly(in_2037, u"30", all_but(2, 12).c_str()), -2},
        {"a month without it", monthly(u"2037-04-01 08:00", u"31"), at(2037, 5, 31, 8)},
        {"no sixth Monday", occurrence(in_2037, 6, u"1"), -2},
        {"a sixth week", week(in_2037, 6, u"1"), at(2037, 3, 30, 8)},
        {"183 days", on_day(u"2035-12-01 00:00", 30, 6, 1), at(2036, 6, 1)},
        {"183 days and half an hour", on_day(u"2035-11-30 23:30", 30, 6, 1), -2},
        {"365 days", on_day(u"2035-06-01 00:00", 60, 5, 31), at(2036, 5, 31)},
        {"366 days", on_day(u"2035-02-28 00:00", 60, 2, 29), -2},
        {"years, by half days", on_day(u"2034-02-28 12:00", 720, 2, 29), at(2036, 2, 29)},
        {"by less", on_day(u"2034-02-28 12:00", 719, 2, 29), -2},
    };
    for (const auto& [name, timer, expected] : rows) {
        const ZU_time_t found = next(timer);
        EXPECT_EQ(expected == 0 && found >= now ? 0 : found, expected) << name;
        EXPECT_EQ(timer->last, 0) << name;
    }

    const timer_ptr seconds = interval(start, 0, 0, 1);
    now = ZU_time();
    const ZU_time_t found = next(seconds);
    EXPECT_GE(found, now) << "the current time is the first that is tried";
    EXPECT_LE(found, ZU_time());

    const ZU_time_t ten_years = 3650 * 86400, friday = now / 604800 * 604800 + 604800 + 86400;
    if (friday > INT_MAX - ten_years - 86400)
        GTEST_SKIP() << "ten years from now no longer fit into 32 bits";
    ZU_wchar begin[20];
    ZU_write_time_t(friday, begin); // 3650 days after a Friday is a Monday
    EXPECT_EQ(next(daily(begin, u"", u"", 3650, u"", u"", u"5")), friday + ten_years);
    EXPECT_EQ(next(weekly(begin, u"1", 522)), friday + ten_years);
    EXPECT_EQ(next(weekly(begin, u"2", 522)), -2);
}

TEST_F(timers, a_change_of_zone_is_seen_at_the_next_test) {
    const timer_ptr both[] = {weekly(u"2012-07-02 08:00", u"1", 1),
                              daily(u"2012-07-02 08:00", u"2012-07-09 08:00")};
    for (const auto& [zone, hour] : {std::pair("UTC0", 8), {"AAA-2", 6}, {"EST5EDT", 12}}) {
        set_zone(zone);
        for (const timer_ptr& timer : both)
            for (int other : {6, 8, 12})
                EXPECT_EQ(due(timer, 0, at(2012, 7, 9, other)), other == hour)
                    << "eight o'clock in summer in " << zone;
    }
    const timer_ptr over_the_change = daily(u"2037-03-06 08:00", u"", u"", 1, u"", u"", u"5,6");
    EXPECT_EQ(next(over_the_change), at(2037, 11, 1, 13)) << "whole days are an hour late all summer";
    ZU_timer_set_valid_offset_seconds(3600);
    EXPECT_EQ(next(over_the_change), at(2037, 3, 8, 12));
}

} // namespace
