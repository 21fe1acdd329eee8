// Firings of every kind over ten years and the changes of daylight saving, beside dates worked out here by plain
// calendar arithmetic.
#include "support/portable.h"

namespace {

using namespace std::chrono;

// A zone with the same pair of changes each year, or none.
struct zone_model {
    const char* name;
    seconds standard, daylight;
    sys_seconds (*begins)(year) = nullptr;
    sys_seconds (*ends)(year) = nullptr;

    bool is_daylight(sys_seconds t) const {
        if (!begins)
            return false;
        const year y = year_month_day(floor<days>(t)).year();
        const sys_seconds from = begins(y), to = ends(y);
        return from < to ? from <= t && t < to : t < to || t >= from;
    }
    seconds offset(sys_seconds t) const { return is_daylight(t) ? daylight : standard; }
    local_seconds local(sys_seconds t) const { return local_seconds(t.time_since_epoch() + offset(t)); }
    // A local time that exists twice is the later one, in standard time; one that does not exist goes back.
    sys_seconds utc(local_seconds t) const {
        const sys_seconds as_standard(t.time_since_epoch() - standard);
        return is_daylight(as_standard) ? sys_seconds(t.time_since_epoch() - daylight) : as_standard;
    }
};

// A day that may see a firing: the local time of the test, and what lies between the start and the firing.
struct occasion {
    local_seconds now;
    seconds since_start;
    int start_weekday;
    local_days today = floor<days>(now);
    year_month_day date{today};
    local_days first{date.year() / date.month() / 1}, last_day{date.year() / date.month() / last};
    int month = int(unsigned(date.month())), day = int(unsigned(date.day()));
    int from_end = day - int(unsigned(year_month_day(last_day).day())) - 1; // -1 is the last day of the month
    int weekday = iso(today);                                               // Monday = 1 to Sunday = 7

    static int iso(local_days d) { return int(std::chrono::weekday(d).iso_encoding()); }
    static local_days monday(local_days d) { return d - days(iso(d) - 1); }
    int week() const { return int((monday(today) - monday(first)) / weeks(1)) + 1; }
    int week_from_end() const { return int((monday(today) - monday(last_day)) / weeks(1)) - 1; }
    int hour() const { return int((now - today) / 1h); }

    static bool any_of(int value, std::initializer_list<int> values) {
        return std::find(values.begin(), values.end(), value) != values.end();
    }
    bool on(std::initializer_list<int> weekdays) const { return any_of(weekday, weekdays); }
    bool is_holiday() const { return any_of(month * 100 + day, {1225, 229, 101}); }
    // As promised: seconds between the instants, so it is silent in the other daylight-saving state.
    bool is_nth_week(int n) const { return (since_start - days(weekday - start_weekday)) % weeks(n) == 0s; }
};

using holidays = ZU_timer_holidays*;

struct schedule {
    const char* name;
    ZU_timer* (*make)(holidays);
    seconds period; // 0: at most once a day at the start's time of day
    bool (*fires)(const occasion&);

    // The firing that is due at t, or -1; `late` is the valid offset.
    int64_t due_at(const zone_model& zone, local_seconds start, sys_seconds low, sys_seconds t,
                   seconds late) const {
        const local_seconds now = zone.local(t);
        sys_seconds firing = zone.utc(floor<days>(now) + (start - floor<days>(start))),
                    begin = zone.utc(start);
        if (period != 0s) { // the start's wall-clock time, in the daylight-saving state of t
            begin = sys_seconds(start.time_since_epoch() - zone.offset(t));
            const sys_seconds first = begin >= low ? begin : begin + ((low - begin) / period + 1) * period;
            firing = t < first ? first : t - (t - first) % period;
        }
        if (begin > t || firing < begin || firing < low || firing > t || (late != 0s && t - firing > late))
            return -1;
        const occasion o{now, firing - begin, occasion::iso(floor<days>(start))};
        return !o.is_holiday() && fires(o) ? firing.time_since_epoch().count() : -1;
    }
};

// clang-format off
// With the rules that held from 2009 to 2019.
const zone_model zones[] = {
    {"Europe/Berlin", 1h, 2h,
     [](year y) { return sys_days(y/March/Sunday[last]) + 3600s; }, [](year y) { return sys_days(y/October/Sunday[last]) + 3600s; }},
    {"EST5EDT", -5h, -4h,
     [](year y) { return sys_days(y/March/Sunday[2]) + 25200s; }, [](year y) { return sys_days(y/November/Sunday[1]) + 21600s; }},
    {"Australia/Lord_Howe", 630min, 11h,
     [](year y) { return sys_days(y/October/Sunday[1]) - 30600s; }, [](year y) { return sys_days(y/April/Sunday[1]) - 32400s; }},
    {"IST-5:30", 330min, 330min},
};

// All of them keep the holidays free. Some start in the hour of the changes on purpose.
const schedule schedules[] = {
    {"daily", [](holidays h) { return ZU_timer_new_daily(u"2009-07-01 02:00", u"", nullptr, 1, u"", nullptr, u"", h); },
     24h, [](const occasion&) { return true; }},
    {"every 3 days, filtered", [](holidays h) { return ZU_timer_new_daily(u"2009-02-28 01:30", u"", u"", 3, u"8", u"-1;13", u"7", h); },
     72h, [](const occasion& o) { return o.month != 8 && o.day != 13 && o.from_end != -1 && o.weekday != 7; }},
    {"90 minutes by day", [](holidays h) { return ZU_timer_new_interval(u"2009-01-01 00:30", u"", u"", 1, 30, 0, u"24,1,22;23|2", u"", u"", u"6", h); },
     90min, [](const occasion& o) { return o.hour() >= 3 && o.hour() < 22 && o.weekday != 6; }},
    {"weekly", [](holidays h) { return ZU_timer_new_weekly(u"2009-01-01 02:00", u"", u"", u"1,3:7", 1, u"2", u"-3", h); },
     0s, [](const occasion& o) { return o.on({1, 3, 7}) && o.month != 2 && o.from_end != -3; }},
    {"2 weeks from winter", [](holidays h) { return ZU_timer_new_weekly(u"2009-01-14 08:00", u"", u"", u"1,3,5", 2, u"", u"", h); },
     0s, [](const occasion& o) { return o.on({1, 3, 5}) && o.is_nth_week(2); }},
    {"3 weeks from summer", [](holidays h) { return ZU_timer_new_weekly(u"2009-07-19 01:30", u"", u"", u"7;2", 3, u"", u"", h); },
     0s, [](const occasion& o) { return o.on({2, 7}) && o.is_nth_week(3); }},
    {"monthly", [](holidays h) { return ZU_timer_new_monthly(u"2009-01-31 02:30", u"", u"", u"1;29|-1,-30", u"", u"1", h); },
     0s, [](const occasion& o) { return (o.any_of(o.day, {1, 29}) || o.any_of(o.from_end, {-1, -30})) && o.weekday != 1; }},
    {"first week", [](holidays h) { return ZU_timer_new_week_of_month(u"2009-01-01 08:00", u"", u"", 1, u"1,2,3,4,5,6,7", u"", u"", h); },
     0s, [](const occasion& o) { return o.week() == 1; }},
    {"last week but one", [](holidays h) { return ZU_timer_new_week_of_month(u"2009-01-01 12:00", u"", u"", -2, u"1,7", u"", u"", h); },
     0s, [](const occasion& o) { return o.week_from_end() == -2 && o.on({1, 7}); }},
    {"fifth of every weekday", [](holidays h) { return ZU_timer_new_weekday_of_month(u"2009-01-01 08:00", u"", u"", 5, u"1,2,3,4,5,6,7", u"", u"", h); },
     0s, [](const occasion& o) { return o.day >= 29; }},
    {"last Friday and Sunday", [](holidays h) { return ZU_timer_new_weekday_of_month(u"2009-01-01 02:00", u"", u"", -1, u"5,7", u"", u"", h); },
     0s, [](const occasion& o) { return o.from_end >= -7 && o.on({5, 7}); }},
};
// clang-format on

// Each half hour from 2009 to 2019: all changes and firings lie on half hours. And late at odd times, without a limit.
TEST(timer_dates, of_ten_years) {
    ZU_timer_holidays free_days;
    ZU_timer_holidays_init(&free_days);
    for (const ZU_holiday& each : {ZU_holiday{12, 25}, {2, 29}, {1, 1}, {2, 30}})
        ZU_timer_holidays_add(&free_days, &each);
    const sys_seconds low = sys_days(2009y / 1 / 1), end = sys_days(2019y / 1 / 1);
    for (const zone_model& zone : zones) {
        if (!has_zone(zone.name)) {
            std::printf("not in %s: this platform does not know it\n", zone.name);
            continue;
        }
        set_zone(zone.name);
        for (const seconds late : {60s, 0s}) {
            ZU_timer_set_valid_offset_seconds(static_cast<int32_t>(late.count()));
            for (const schedule& each : schedules) {
                ZU_timer* timer = each.make(&free_days);
                const ZU_tm& at = timer->start; // on a whole minute
                const local_seconds start = local_days(year(at.tm_year + 1900) / (at.tm_mon + 1) / at.tm_mday)
                                            + hours(at.tm_hour) + minutes(at.tm_min);
                int firings = 0;
                int64_t fired = 0;
                bool was_daylight = false;
                seconds step = 30min;
                for (sys_seconds t = low; t < end; t += step) {
                    const bool is_daylight = zone.is_daylight(t);
                    if (std::exchange(was_daylight, is_daylight) != is_daylight && each.period != 0s)
                        fired = 0; // the grid has moved, and the last firing does not lie on it
                    const auto now = static_cast<ZU_time_t>(t.time_since_epoch().count());
                    const int64_t found = each.due_at(zone, start, low, t, late);
                    const bool is_due = found != -1 && found != fired;
                    ASSERT_EQ(timer->ops->due(timer, 1230768000, now), is_due ? 0 : -1)
                        << zone.name << ", " << each.name << ", " << now;
                    if (is_due) {
                        ASSERT_EQ(fired = timer->last, found) << each.name << ", " << now;
                        ++firings;
                    }
                    if (late == 0s)
                        step = (step * 37 + 11s) % 30011;
                }
                EXPECT_GE(firings, 5) << each.name;
                timer->ops->destroy(timer);
            }
        }
    }
    ZU_timer_holidays_destroy(&free_days);
}

} // namespace
