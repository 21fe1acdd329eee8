// The runtime library's calendar calls: local time both ways, over a 32-bit time value.
#include "platform/time/zone.h"

#include <ctime>

#include "platform/api/time.h"
#include "platform/time/civil.h"

namespace platform {

namespace {

// The reading of a record on a clock without a zone. Fields beyond their range carry.
struct clock_reading {
    int64_t seconds; // since 1970-01-01 00:00:00 on that clock
    int day_of_year;
    int weekday;
    bool carries;
};

int64_t time_of_day(const tm& local) {
    return local.tm_hour * int64_t{3600} + local.tm_min * int64_t{60} + local.tm_sec;
}

bool is_within_day(const tm& local) {
    return local.tm_sec >= 0 && local.tm_sec <= 59 && local.tm_min >= 0 && local.tm_min <= 59
           && local.tm_hour >= 0 && local.tm_hour <= 23;
}

bool is_day_of(const zone::shown_time& shown, const tm& local) {
    return local.tm_mday == shown.local.tm_mday && local.tm_mon == shown.local.tm_mon
           && local.tm_year == shown.local.tm_year;
}

clock_reading reading_of(const tm& local) {
    int64_t year = local.tm_year + int64_t{1900};
    int month = local.tm_mon;
    bool carries = false;
    if (month < 0 || month > 11) {
        const int64_t years = civil::floor_divide(month, 12);
        year += years;
        month = static_cast<int>(month - years * 12);
        carries = true;
    }
    const int64_t day_of_year = civil::days_before_month(year, month + 1) + int64_t{local.tm_mday} - 1;
    const int64_t days = civil::days_before_year(year) + day_of_year;
    carries = carries || !is_within_day(local) || local.tm_mday < 1
              || local.tm_mday > civil::days_in_month(year, month + 1);
    return {days * civil::seconds_per_day + time_of_day(local), static_cast<int>(day_of_year),
            civil::weekday_of(days), carries};
}

// The same, when the date is that of the time broken down last, whose day is known.
clock_reading reading_of(const tm& local, const zone::shown_time& shown) {
    return {shown.days * civil::seconds_per_day + time_of_day(local), shown.local.tm_yday,
            shown.local.tm_wday, !is_within_day(local)};
}

void set_day(int64_t days, tm& local) {
    const civil::date date = civil::date_of(days);
    local.tm_mday = date.day;
    local.tm_mon = date.month - 1;
    local.tm_year = static_cast<int32_t>(date.year - 1900);
    local.tm_wday = civil::weekday_of(days);
    local.tm_yday = date.day_of_year;
}

void set_time_of_day(int32_t seconds, tm& local) {
    local.tm_sec = seconds % 60;
    local.tm_min = seconds / 60 % 60;
    local.tm_hour = seconds / 3600;
}

constexpr int64_t two_days = 2 * civil::seconds_per_day;

} // namespace

void _tzset() {
    zone::expect_change();
}

int32_t time(int32_t* out) {
    // The clock of the latest tick costs a fraction, and shows the same second, except in a second's last milliseconds.
    constexpr long surely_before_the_end = 900'000'000;
    timespec now;
    clock_gettime(CLOCK_REALTIME_COARSE, &now);
    if (now.tv_nsec >= surely_before_the_end)
        clock_gettime(CLOCK_REALTIME, &now);
    const int32_t value = now.tv_sec >= 0 && now.tv_sec <= last_time ? static_cast<int32_t>(now.tv_sec) : -1;
    if (out)
        *out = value;
    return value;
}

int32_t mktime(tm* local) {
    zone& here = zone::of_thread();
    const zone::shown_time& shown = here.latest_shown();
    const clock_reading given = is_day_of(shown, *local) ? reading_of(*local, shown) : reading_of(*local);
    if (given.seconds < -two_days || given.seconds > last_time + two_days)
        return -1;
    const int64_t time = here.time_of_local(given.seconds, local->tm_isdst);
    if (time < 0 || time > last_time)
        return -1;
    const zone_span& span = here.at(time);
    const int64_t seconds = time + span.offset;
    if (seconds == given.seconds && !given.carries) {
        local->tm_wday = given.weekday;
        local->tm_yday = given.day_of_year;
    } else {
        const int64_t days = civil::floor_divide(seconds, civil::seconds_per_day);
        set_day(days, *local);
        set_time_of_day(static_cast<int32_t>(seconds - days * civil::seconds_per_day), *local);
    }
    local->tm_isdst = span.daylight ? 1 : 0;
    return static_cast<int32_t>(time);
}

const tm* localtime(const int32_t* value) {
    if (!value || *value < 0)
        return nullptr;
    zone& here = zone::of_thread();
    zone::shown_time& latest = here.latest_shown();
    if (latest.time == *value)
        return &latest.local;
    const zone_span& span = here.at(*value);
    const int64_t seconds = *value + int64_t{span.offset};
    const int64_t days = civil::floor_divide(seconds, civil::seconds_per_day);
    if (days != latest.days) {
        set_day(days, latest.local);
        latest.days = days;
    }
    set_time_of_day(static_cast<int32_t>(seconds - days * civil::seconds_per_day), latest.local);
    latest.local.tm_isdst = span.daylight ? 1 : 0;
    latest.time = *value;
    return &latest.local;
}

uint32_t zone_number() {
    return zone::of_thread().number();
}

} // namespace platform
