// The timer model: what all kinds of timer share. The kinds themselves are in zu_timer_kinds.cpp.
#include "zu/zu_timer.h"

#include <algorithm>
#include <atomic>
#include <bit>

namespace {

std::atomic<int32_t> valid_offset_seconds = 60;

bool is_too_late(int64_t scheduled, ZU_time_t now) {
    const int32_t offset = valid_offset_seconds.load(std::memory_order_relaxed);
    return offset != 0 && now - scheduled > offset;
}

// The record is passed by value, since the calendar writes to it.
ZU_time_t time_of(ZU_tm local) {
    return ZU_mktime(&local);
}

// An instant and its local time, computed once for each due test, in the zone that is set when the test begins.
struct moment {
    ZU_time_t time;
    bool converts;
    ZU_tm local{};

    explicit moment(ZU_time_t t) : time(t) {
        const platform::tm* record = platform::localtime(&t);
        converts = record != nullptr;
        if (converts)
            local = *record;
    }
};

// Computes the start again if the zone has changed.
void look_at_zone(const ZU_timer& timer, zu::known_start& start) {
    ZU_tzset();
    const uint32_t zone = platform::zone_number();
    if (zone == start.zone && zone != 0)
        return;
    ZU_tm local = timer.start;
    start = {};
    start.zone = zone;
    start.time = platform::mktime(&local);
    start.weekday = zu::weekday(local);
    start.end = INT32_MAX;
    if (timer.end) {
        local = *timer.end;
        start.end = platform::mktime(&local);
    }
}

// The start's wall-clock time, read in the daylight-saving state of `at`: whole days stay on it all year.
int64_t base_of_grid(const ZU_timer& timer, zu::known_start& start, const moment& at) {
    if (!at.converts)
        return start.time;
    const bool daylight = at.local.tm_isdst > 0;
    if (!start.is_base_known[daylight]) {
        ZU_tm local = timer.start;
        local.tm_isdst = at.local.tm_isdst;
        start.base[daylight] = platform::mktime(&local);
        start.is_base_known[daylight] = true;
    }
    return start.base[daylight];
}

bool is_excluded(const ZU_timer& timer, const zu::known_start& start, const moment& at) {
    if (at.time > start.end)
        return true;
    if (!at.converts)
        return true;
    if (zu::contains(timer.excluded_months, at.local.tm_mon + 1))
        return true;
    if (zu::names_day(timer.excluded_days, at.local))
        return true;
    if (zu::contains(timer.excluded_weekdays, zu::weekday(at.local)))
        return true;
    if (!timer.holidays)
        return false;
    const ZU_holiday today{static_cast<uint32_t>(at.local.tm_mon + 1),
                           static_cast<uint32_t>(at.local.tm_mday)};
    return ZU_timer_holidays_find(timer.holidays, &today);
}

// The scheduled time that a periodic timer is tested for, or -1. It may lie after `at`, and beyond 32 bits.
int64_t grid_point(ZU_timer& timer, zu::known_start& start, ZU_time_t low, const moment& at, int64_t period) {
    const int64_t base = base_of_grid(timer, start, at);
    if (base == -1)
        return -1;

    const int64_t last = timer.last;
    if (last != 0 && (last > at.time || last < base || (last - base) % period != 0))
        timer.last = 0;
    if (at.time < low)
        return -1;

    // The points up to `behind` are passed over: those up to the latest firing, or up to `low`, or none.
    const int64_t behind = timer.last != 0 ? timer.last : base >= low ? base - 1 : low;
    const int64_t latest = base + std::max<int64_t>(at.time - base, 0) / period * period;
    return latest > behind ? latest : latest + period;
}

// Whether a list of excluded days leaves no day of a month of 31 days; -1 counts as the 31st, -31 as the 1st.
bool fills_every_day(const ZU_int_list& days) {
    if (days.count < 31)
        return false;
    uint32_t slots = 0;
    for (int32_t i = 0; i < days.count; ++i) {
        if (days.values[i] != 0)
            slots |= 1u << (days.values[i] > 0 ? days.values[i] : 32 + days.values[i]);
    }
    return std::popcount(slots) == 31;
}

bool never_fires(const ZU_timer& timer, ZU_time_t now) {
    if (timer.end) {
        const ZU_time_t end = time_of(*timer.end);
        if (end < now || end < time_of(timer.start))
            return true;
    }
    return timer.excluded_months.count == 12 || timer.excluded_weekdays.count == 7
           || fills_every_day(timer.excluded_days);
}

// Tries first, first + step, ... and leaves the timer as it was. -1: past the end; -2: not found.
ZU_time_t search(ZU_timer& timer, int64_t first, int64_t step, int32_t max) {
    const ZU_time_t last_before = timer.last;
    const ZU_time_t end = timer.end ? time_of(*timer.end) : 0;
    ZU_time_t result = -2;
    int64_t t = first;
    for (int32_t tried = 0; tried < max; ++tried, t += step) {
        if (t <= 0 || t > INT32_MAX)
            break;
        if (timer.end && t > end) {
            result = -1;
            break;
        }
        if (timer.ops->due(&timer, static_cast<ZU_time_t>(first - 1), static_cast<ZU_time_t>(t)) == zu::due) {
            result = timer.last;
            break;
        }
    }
    timer.last = last_before;
    return result;
}

} // namespace

namespace zu {

bool construct_timer(ZU_timer& timer, const ZU_timer_ops& ops, const timer_inputs& inputs) {
    timer = {};
    if (ZU_read_tm(inputs.start, &timer.start) == -1)
        return false;
    timer.start.tm_isdst = -1;
    if (!is_empty(inputs.last)) {
        timer.last = ZU_read_time_t(inputs.last);
        if (timer.last == -1)
            return false;
    }
    if (!is_empty(inputs.end)) {
        ZU_tm end;
        if (ZU_read_tm(inputs.end, &end) == -1)
            return false;
        end.tm_isdst = -1;
        timer.end = allocate<ZU_tm>();
        *timer.end = end;
    }
    timer.excluded_months = read_list(inputs.excluded_months, 1, 12);
    timer.excluded_days = read_list(inputs.excluded_days, -31, 31);
    timer.excluded_weekdays = read_list(inputs.excluded_weekdays, 1, 7);
    timer.holidays = inputs.holidays;
    timer.ops = &ops;
    return true;
}

void destroy_timer(ZU_timer& timer) {
    ZU_free(timer.end);
    free_list(timer.excluded_months);
    free_list(timer.excluded_days);
    free_list(timer.excluded_weekdays);
    ZU_free(&timer);
}

ZU_int_list read_list(const ZU_wchar* text, int32_t low, int32_t high) {
    if (is_empty(text))
        return {};
    uint64_t found = 0; // bit k stands for low + k
    const owned<ZU_wchar> copy(ZU_strdup(text));
    ZU_wchar* context = nullptr;
    for (const ZU_wchar* token = ZU_strtok(copy.get(), ZU_W("|:;,"), &context); token;
         token = ZU_strtok(nullptr, ZU_W("|:;,"), &context)) {
        const int32_t value = platform::_wtoi(token);
        if (value >= low && value <= high)
            found |= uint64_t{1} << (value - low);
    }
    if (found == 0)
        return {};
    ZU_int_list list{std::popcount(found), nullptr};
    list.values = allocate<int32_t>(static_cast<uint32_t>(list.count));
    for (int32_t *place = list.values, value = low; value <= high; ++value) {
        if (found >> (value - low) & 1)
            *place++ = value;
    }
    return list;
}

void free_list(ZU_int_list& list) {
    ZU_free(list.values);
    list = {};
}

bool names_day(const ZU_int_list& days, const ZU_tm& local) {
    if (days.count == 0)
        return false;
    return contains(days, local.tm_mday) || contains(days, local.tm_mday - days_in_month(local) - 1);
}

int32_t weekday(const ZU_tm& local) {
    return local.tm_wday == 0 ? 7 : local.tm_wday;
}

int32_t days_in_month(const ZU_tm& local) {
    constexpr int32_t days[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    if (local.tm_mon < 0 || local.tm_mon > 11)
        return 0;
    const int32_t year = local.tm_year + 1900;
    const bool leap = year % 400 == 0 || (year % 4 == 0 && year % 100 != 0);
    return local.tm_mon == 1 && leap ? 29 : days[local.tm_mon];
}

int32_t periodic_due(ZU_timer& timer, known_start& start, ZU_time_t low, ZU_time_t now, int64_t period,
                     const ZU_int_list& excluded_hours) {
    look_at_zone(timer, start);
    const moment at(now);
    const int64_t scheduled = grid_point(timer, start, low, at, period);
    if (scheduled == -1 || now < scheduled || is_too_late(scheduled, now))
        return not_due;
    if (is_excluded(timer, start, at) || contains(excluded_hours, at.local.tm_hour))
        return not_due;
    timer.last = static_cast<ZU_time_t>(scheduled);
    return due;
}

int32_t day_due(ZU_timer& timer, known_start& start, ZU_time_t low, ZU_time_t now, const day_rule& rule) {
    look_at_zone(timer, start);
    if (start.time == -1)
        return not_due;
    if (timer.last != 0 && (timer.last > now || timer.last < start.time))
        timer.last = 0;
    if (now < low || start.time > now)
        return not_due;

    const moment at(now);
    if (!at.converts || !rule.fits_day(timer, at.local) || is_excluded(timer, start, at))
        return not_due;

    ZU_tm local = at.local;
    local.tm_sec = timer.start.tm_sec;
    local.tm_min = timer.start.tm_min;
    local.tm_hour = timer.start.tm_hour;
    local.tm_isdst = -1;
    const ZU_time_t time = platform::mktime(&local);
    if (time == -1 || time < low || time < start.time || time <= timer.last || time > now
        || is_too_late(time, now))
        return not_due;
    if (rule.fits_firing && !rule.fits_firing(timer, {time, at.local, start}))
        return not_due;
    timer.last = time;
    return due;
}

ZU_time_t next_firing(ZU_timer& timer, int64_t step, int32_t max) {
    const ZU_time_t now = ZU_time();
    if (now == -1 || never_fires(timer, now))
        return -1;
    const ZU_time_t start = time_of(timer.start);
    if (start == -1)
        return -1;
    const int64_t steps = start >= now ? 0 : (int64_t{now} - start + step - 1) / step;
    return search(timer, start + steps * step, step, max);
}

} // namespace zu

int32_t ZU_timer_set_valid_offset_seconds(int32_t seconds) {
    return valid_offset_seconds.exchange(seconds, std::memory_order_relaxed);
}

int32_t ZU_timer_get_valid_offset_seconds() {
    return valid_offset_seconds.load(std::memory_order_relaxed);
}
