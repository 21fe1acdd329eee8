// The parts that the kinds of timer share: construction, exclusions, the frames of their due tests, and the search for
// the next firing. Internal.
#pragma once

#include <algorithm>

#include "zu/zu_support.h"

namespace zu {

inline constexpr int32_t due = 0;
inline constexpr int32_t not_due = -1;
inline constexpr int32_t seconds_per_day = 86400;
inline constexpr int32_t seconds_per_week = 7 * seconds_per_day;

// The arguments that every constructor takes; all but the start may be null or empty.
struct timer_inputs {
    const ZU_wchar* start;
    const ZU_wchar* end;
    const ZU_wchar* last;
    const ZU_wchar* excluded_months;
    const ZU_wchar* excluded_days;
    const ZU_wchar* excluded_weekdays;
    ZU_timer_holidays* holidays;
};

// A timer's start and end as times, in the zone of its latest due test. They are kept, so that a scan need not compute
// them for every timer.
struct known_start {
    uint32_t zone; // platform::zone_number; 0: nothing is known
    ZU_time_t time;
    int32_t weekday;
    ZU_time_t end;         // INT32_MAX for a timer without end
    ZU_time_t base[2];     // the first instant of the period's grid, in standard and in daylight time
    bool is_base_known[2]; // whether the element of `base` has been computed
};

// Fills the common part. False when a date cannot be read; the timer then owns nothing.
bool construct_timer(ZU_timer& timer, const ZU_timer_ops& ops, const timer_inputs& inputs);

// Frees the common part and the record.
void destroy_timer(ZU_timer& timer);

// The values from `low` to `high`, at most 64 apart, that a list text holds. Free it with free_list.
ZU_int_list read_list(const ZU_wchar* text, int32_t low, int32_t high);
void free_list(ZU_int_list& list);

inline bool contains(const ZU_int_list& list, int32_t value) {
    return std::find(list.values, list.values + list.count, value) != list.values + list.count;
}

// Whether a list of days of the month, negative ones counted from the month's end, names the day of a local time.
bool names_day(const ZU_int_list& days, const ZU_tm& local);

// Monday = 1 to Sunday = 7.
int32_t weekday(const ZU_tm& local);

int32_t days_in_month(const ZU_tm& local);

// The due test of the kinds with a period in seconds: a grid of instants, counted from the start.
int32_t periodic_due(ZU_timer& timer, known_start& start, ZU_time_t low, ZU_time_t now, int64_t period,
                     const ZU_int_list& excluded_hours);

// A firing that fits all but the last test of its kind.
struct firing {
    ZU_time_t time;
    const ZU_tm& today; // local time of the test, not of the firing
    const known_start& start;
};

// The two tests that set a day-based kind apart. The day test comes first and is cheap; the other one may be null.
struct day_rule {
    bool (*fits_day)(const ZU_timer& timer, const ZU_tm& today);
    bool (*fits_firing)(const ZU_timer& timer, const firing& candidate);
};

// The due test of the kinds that fire at most once a day, at the start's time of day.
int32_t day_due(ZU_timer& timer, known_start& start, ZU_time_t low, ZU_time_t now, const day_rule& rule);

// Tries up to `max` times, whole steps after the start, from the current time on. -1, -2 as ops->next.
ZU_time_t next_firing(ZU_timer& timer, int64_t step, int32_t max);

} // namespace zu
