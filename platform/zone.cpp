// The runtime library's calendar calls: local time both ways, over a 32-bit time value.
#include "platform/zone.h"

#include <ctime>

#include "platform/api/time.h"
#include "platform/civil.h"

namespace platform {

namespace {

// Fields beyond their range carry.
int64_t local_seconds(const tm& local) {
    const int64_t year = local.tm_year + int64_t{1900} + civil::floor_divide(local.tm_mon, 12);
    const int month = static_cast<int>(local.tm_mon - civil::floor_divide(local.tm_mon, 12) * 12) + 1;
    return civil::days_of(year, month, local.tm_mday) * civil::seconds_per_day + local.tm_hour * int64_t{3600}
           + local.tm_min * int64_t{60} + local.tm_sec;
}

void fill_record(int64_t time, const zone_span& span, tm& local) {
    const int64_t seconds = time + span.offset;
    const int64_t days = civil::floor_divide(seconds, civil::seconds_per_day);
    const int32_t second_of_day = static_cast<int32_t>(seconds - days * civil::seconds_per_day);
    const civil::date date = civil::date_of(days);
    local.tm_sec = second_of_day % 60;
    local.tm_min = second_of_day / 60 % 60;
    local.tm_hour = second_of_day / 3600;
    local.tm_mday = date.day;
    local.tm_mon = date.month - 1;
    local.tm_year = static_cast<int32_t>(date.year - 1900);
    local.tm_wday = civil::weekday_of(days);
    local.tm_yday = date.day_of_year;
    local.tm_isdst = span.daylight ? 1 : 0;
}

constexpr int64_t two_days = 2 * civil::seconds_per_day;

} // namespace

void _tzset() {
    zone::of_environment();
}

int32_t time(int32_t* out) {
    timespec now;
    clock_gettime(CLOCK_REALTIME, &now);
    const int32_t value = now.tv_sec >= 0 && now.tv_sec <= last_time ? static_cast<int32_t>(now.tv_sec) : -1;
    if (out)
        *out = value;
    return value;
}

int32_t mktime(tm* local) {
    const int64_t seconds = local_seconds(*local);
    if (seconds < -two_days || seconds > last_time + two_days)
        return -1;
    zone& here = zone::of_thread();
    const int64_t time = here.time_of_local(seconds, local->tm_isdst);
    if (time < 0 || time > last_time)
        return -1;
    fill_record(time, here.at(time), *local);
    return static_cast<int32_t>(time);
}

const tm* localtime(const int32_t* value) {
    static constinit thread_local tm local{};
    if (!value || *value < 0)
        return nullptr;
    fill_record(*value, zone::of_thread().at(*value), local);
    return &local;
}

} // namespace platform
