// The six kinds of timer. Each has a table of operations, fields of its own, and its own tests.
#include "zu/zu_timer.h"

namespace {

// ---- The records: the common part, the kind's own fields, and its start in the present zone ----

struct daily_timer {
    ZU_timer common;
    int32_t every_n_days; // 1 or more
    zu::known_start start;
};

struct interval_timer {
    ZU_timer common;
    int32_t hours; // hours, minutes and seconds as given; their sum is 1 second or more
    int32_t minutes;
    int32_t seconds;
    ZU_int_list excluded_hours; // 0 to 23
    zu::known_start start;
};

struct weekly_timer {
    ZU_timer common;
    ZU_int_list weekdays;  // never empty
    int32_t every_n_weeks; // 1 or more
    zu::known_start start;
};

struct monthly_timer {
    ZU_timer common;
    ZU_int_list days; // never empty
    zu::known_start start;
};

// The record of the two kinds that count within the month: calendar weeks, or occurrences of each weekday.
struct counted_timer {
    ZU_timer common;
    int32_t number;       // not 0; negative counts from the month's end
    ZU_int_list weekdays; // never empty
    zu::known_start start;
};

// The common part comes first, so that a timer's address is that of its kind's record.
template <class T>
T& as(ZU_timer* timer) {
    static_assert(std::is_standard_layout_v<T> && offsetof(T, common) == 0);
    return *reinterpret_cast<T*>(timer);
}
template <class T>
const T& as(const ZU_timer& timer) {
    return *reinterpret_cast<const T*>(&timer);
}

template <class T, ZU_int_list T::*list>
void destroy_with_list(ZU_timer* timer) {
    if (!timer)
        return;
    zu::free_list(as<T>(timer).*list);
    zu::destroy_timer(*timer);
}

// ---- Daily and interval: a period ----

int32_t daily_due(ZU_timer* timer, ZU_time_t low, ZU_time_t now) {
    auto& daily = as<daily_timer>(timer);
    const int64_t period = int64_t{daily.every_n_days} * zu::seconds_per_day;
    return zu::periodic_due(*timer, daily.start, low, now, period, {});
}

ZU_time_t daily_next(ZU_timer* timer) {
    const int32_t n = as<daily_timer>(timer).every_n_days;
    return zu::next_firing(*timer, int64_t{n} * zu::seconds_per_day, 3650 / n + 1);
}

void daily_destroy(ZU_timer* timer) {
    if (timer)
        zu::destroy_timer(*timer);
}

// The period in seconds. One value may be negative. A sum beyond 32 bits wraps instead of being undefined.
int32_t period_of(int32_t hours, int32_t minutes, int32_t seconds) {
    const auto unsigned_of = [](int32_t value) { return static_cast<uint32_t>(value); };
    return static_cast<int32_t>((unsigned_of(hours) * 60 + unsigned_of(minutes)) * 60 + unsigned_of(seconds));
}

int32_t period_of(const interval_timer& timer) {
    return period_of(timer.hours, timer.minutes, timer.seconds);
}

int32_t interval_due(ZU_timer* timer, ZU_time_t low, ZU_time_t now) {
    auto& interval = as<interval_timer>(timer);
    return zu::periodic_due(*timer, interval.start, low, now, period_of(interval), interval.excluded_hours);
}

// Looks ten years ahead for long intervals, one year for those under half a day, half a year for those under an hour.
ZU_time_t interval_next(ZU_timer* timer) {
    const auto& interval = as<interval_timer>(timer);
    if (interval.excluded_hours.count >= 24)
        return -1;
    const int32_t period = period_of(interval);
    const int32_t days = period >= 43200 ? 3650 : period >= 3600 ? 365 : 183;
    return zu::next_firing(*timer, period, days * zu::seconds_per_day / period + 1);
}

// ---- The day-based kinds ----

template <class T, const zu::day_rule& rule>
int32_t day_based_due(ZU_timer* timer, ZU_time_t low, ZU_time_t now) {
    return zu::day_due(*timer, as<T>(timer).start, low, now, rule);
}

ZU_time_t day_based_next(ZU_timer* timer) {
    return zu::next_firing(*timer, zu::seconds_per_day, 3651);
}

template <class T>
bool is_listed_weekday(const ZU_timer& timer, const ZU_tm& today) {
    return zu::contains(as<T>(timer).weekdays, zu::weekday(today));
}

// The difference counts seconds, not calendar days, and callers rely on that. So with n above 1 nothing fires while
// daylight saving differs from the start's: no difference is then a whole number of weeks.
bool is_nth_week(const ZU_timer& timer, const zu::firing& candidate) {
    const int32_t n = as<weekly_timer>(timer).every_n_weeks;
    if (n == 1)
        return true;
    const int32_t into_week = zu::weekday(candidate.today) - candidate.start.weekday;
    const int64_t difference =
        candidate.time - (int64_t{candidate.start.time} + into_week * zu::seconds_per_day);
    return difference % zu::seconds_per_week == 0 && difference / zu::seconds_per_week % n == 0;
}

bool is_listed_day(const ZU_timer& timer, const ZU_tm& today) {
    return zu::names_day(as<monthly_timer>(timer).days, today);
}

// The place of a day among the calendar weeks of its month.
struct month_place {
    int32_t row; // 1, 2, ... from the week of the 1st, or -1, -2, ... from that of the last day; 0 unknown
    int32_t edge_weekday; // the weekday of the 1st, or of the last day
};

month_place place_in_month(const ZU_tm& today, bool from_end) {
    const int32_t length = zu::days_in_month(today);
    ZU_tm edge = today;
    edge.tm_mday = from_end ? length : 1;
    edge.tm_isdst = -1;
    if (platform::mktime(&edge) == -1)
        return {0, 0};
    const int32_t weekday = zu::weekday(edge);
    const int32_t day = today.tm_mday;
    return {from_end ? -((length - weekday - day + 14) / 7) : (day + weekday + 5) / 7, weekday};
}

bool is_calendar_week(const ZU_timer& timer, const zu::firing& candidate) {
    const int32_t number = as<counted_timer>(timer).number;
    return number == place_in_month(candidate.today, number < 0).row;
}

bool is_occurrence(const ZU_timer& timer, const zu::firing& candidate) {
    const int32_t number = as<counted_timer>(timer).number;
    const month_place place = place_in_month(candidate.today, number < 0);
    const int32_t weekday = zu::weekday(candidate.today);
    if (number > 0)
        return number == (weekday >= place.edge_weekday ? place.row : place.row - 1);
    return number == (weekday <= place.edge_weekday ? place.row : place.row + 1);
}

constexpr zu::day_rule weekly_rule{is_listed_weekday<weekly_timer>, is_nth_week};
constexpr zu::day_rule monthly_rule{is_listed_day, nullptr};
constexpr zu::day_rule week_of_month_rule{is_listed_weekday<counted_timer>, is_calendar_week};
constexpr zu::day_rule weekday_of_month_rule{is_listed_weekday<counted_timer>, is_occurrence};

// ---- The operations tables ----

enum kind { daily, interval, weekly, monthly, week_of_month, weekday_of_month };

constexpr int32_t reserved = 16;

// clang-format off
constexpr ZU_timer_ops tables[] = {
    {reserved, daily_due,                                           daily_next,     daily_destroy},
    {reserved, interval_due,                                        interval_next,  destroy_with_list<interval_timer, &interval_timer::excluded_hours>},
    {reserved, day_based_due<weekly_timer, weekly_rule>,            day_based_next, destroy_with_list<weekly_timer, &weekly_timer::weekdays>},
    {reserved, day_based_due<monthly_timer, monthly_rule>,          day_based_next, destroy_with_list<monthly_timer, &monthly_timer::days>},
    {reserved, day_based_due<counted_timer, week_of_month_rule>,    day_based_next, destroy_with_list<counted_timer, &counted_timer::weekdays>},
    {reserved, day_based_due<counted_timer, weekday_of_month_rule>, day_based_next, destroy_with_list<counted_timer, &counted_timer::weekdays>},
};
// clang-format on

// ---- Construction ----

template <class T>
T* make(kind which, const zu::timer_inputs& inputs) {
    zu::owned<T> timer(static_cast<T*>(ZU_calloc(1, sizeof(T))));
    if (!zu::construct_timer(timer->common, tables[which], inputs))
        return nullptr;
    return timer.release();
}

// Makes a timer of a kind whose rule is a list. Without any usable value in the list there is no timer.
template <class T, ZU_int_list T::*list>
T* make_with_list(kind which, const zu::timer_inputs& inputs, const ZU_wchar* values, int32_t low,
                  int32_t high) {
    T* timer = make<T>(which, inputs);
    if (!timer)
        return nullptr;
    timer->*list = zu::read_list(values, low, high);
    if ((timer->*list).count == 0) {
        zu::destroy_timer(timer->common);
        return nullptr;
    }
    return timer;
}

ZU_timer* make_counted(kind which, const zu::timer_inputs& inputs, int32_t number, const ZU_wchar* weekdays) {
    if (number == 0 || zu::is_empty(weekdays))
        return nullptr;
    auto* timer = make_with_list<counted_timer, &counted_timer::weekdays>(which, inputs, weekdays, 1, 7);
    if (!timer)
        return nullptr;
    timer->number = number;
    return &timer->common;
}

} // namespace

ZU_timer* ZU_timer_new_daily(const ZU_wchar* start, const ZU_wchar* end, const ZU_wchar* last,
                             int32_t every_n_days, const ZU_wchar* excluded_months,
                             const ZU_wchar* excluded_days, const ZU_wchar* excluded_weekdays,
                             ZU_timer_holidays* holidays) {
    if (every_n_days < 1)
        return nullptr;
    auto* timer = make<daily_timer>(
        daily, {start, end, last, excluded_months, excluded_days, excluded_weekdays, holidays});
    if (!timer)
        return nullptr;
    timer->every_n_days = every_n_days;
    return &timer->common;
}

ZU_timer* ZU_timer_new_interval(const ZU_wchar* start, const ZU_wchar* end, const ZU_wchar* last,
                                int32_t hours, int32_t minutes, int32_t seconds,
                                const ZU_wchar* excluded_hours, const ZU_wchar* excluded_months,
                                const ZU_wchar* excluded_days, const ZU_wchar* excluded_weekdays,
                                ZU_timer_holidays* holidays) {
    if (period_of(hours, minutes, seconds) < 1)
        return nullptr;
    auto* timer = make<interval_timer>(
        interval, {start, end, last, excluded_months, excluded_days, excluded_weekdays, holidays});
    if (!timer)
        return nullptr;
    timer->excluded_hours = zu::read_list(excluded_hours, 0, 24);
    for (int32_t i = 0; i < timer->excluded_hours.count; ++i) {
        if (timer->excluded_hours.values[i] == 24) // another name of hour 0
            timer->excluded_hours.values[i] = 0;
    }
    timer->hours = hours;
    timer->minutes = minutes;
    timer->seconds = seconds;
    return &timer->common;
}

ZU_timer* ZU_timer_new_weekly(const ZU_wchar* start, const ZU_wchar* end, const ZU_wchar* last,
                              const ZU_wchar* weekdays, int32_t every_n_weeks,
                              const ZU_wchar* excluded_months, const ZU_wchar* excluded_days,
                              ZU_timer_holidays* holidays) {
    if (zu::is_empty(weekdays) || every_n_weeks < 1)
        return nullptr;
    auto* timer = make_with_list<weekly_timer, &weekly_timer::weekdays>(
        weekly, {start, end, last, excluded_months, excluded_days, nullptr, holidays}, weekdays, 1, 7);
    if (!timer)
        return nullptr;
    timer->every_n_weeks = every_n_weeks;
    return &timer->common;
}

ZU_timer* ZU_timer_new_monthly(const ZU_wchar* start, const ZU_wchar* end, const ZU_wchar* last,
                               const ZU_wchar* days, const ZU_wchar* excluded_months,
                               const ZU_wchar* excluded_weekdays, ZU_timer_holidays* holidays) {
    if (zu::is_empty(days))
        return nullptr;
    auto* timer = make_with_list<monthly_timer, &monthly_timer::days>(
        monthly, {start, end, last, excluded_months, nullptr, excluded_weekdays, holidays}, days, -31, 31);
    return timer ? &timer->common : nullptr;
}

ZU_timer* ZU_timer_new_week_of_month(const ZU_wchar* start, const ZU_wchar* end, const ZU_wchar* last,
                                     int32_t week, const ZU_wchar* weekdays, const ZU_wchar* excluded_months,
                                     const ZU_wchar* excluded_days, ZU_timer_holidays* holidays) {
    return make_counted(week_of_month, {start, end, last, excluded_months, excluded_days, nullptr, holidays},
                        week, weekdays);
}

ZU_timer* ZU_timer_new_weekday_of_month(const ZU_wchar* start, const ZU_wchar* end, const ZU_wchar* last,
                                        int32_t occurrence, const ZU_wchar* weekdays,
                                        const ZU_wchar* excluded_months, const ZU_wchar* excluded_days,
                                        ZU_timer_holidays* holidays) {
    return make_counted(weekday_of_month,
                        {start, end, last, excluded_months, excluded_days, nullptr, holidays}, occurrence,
                        weekdays);
}
