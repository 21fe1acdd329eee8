// File times: counts of 100 nanoseconds since 1601, their local form and their calendar form.
#include <ctime>

#include "platform/api/time.h"
#include "platform/time/civil.h"
#include "platform/time/host_time.h"
#include "platform/time/zone.h"

namespace platform {

namespace {

constexpr int64_t units_per_millisecond = 10000;
constexpr int64_t units_per_day = civil::seconds_per_day * file_time_units_per_second;
constexpr int64_t first_day = civil::days_of(1601, 1, 1);
constexpr WORD first_year = 1601;
constexpr WORD last_year = 30827;

// Local time minus UTC, as it is now. The arithmetic on it wraps, as the platform's does.
uint64_t offset_in_force_now() {
    timespec now;
    clock_gettime(CLOCK_REALTIME, &now);
    zone::expect_change();
    return static_cast<uint64_t>(zone::of_thread().at(now.tv_sec).offset * file_time_units_per_second);
}

bool is_valid(const SYSTEMTIME& time) {
    return time.wYear >= first_year && time.wYear <= last_year && time.wMonth >= 1 && time.wMonth <= 12
           && time.wDay >= 1 && time.wDay <= civil::days_in_month(time.wYear, time.wMonth) && time.wHour < 24
           && time.wMinute < 60 && time.wSecond < 60 && time.wMilliseconds < 1000;
}

} // namespace

BOOL FileTimeToLocalFileTime(const FILETIME* utc, FILETIME* local) {
    *local = file_time_of_units(units_of(*utc) + offset_in_force_now());
    return TRUE;
}

BOOL LocalFileTimeToFileTime(const FILETIME* local, FILETIME* utc) {
    *utc = file_time_of_units(units_of(*local) - offset_in_force_now());
    return TRUE;
}

BOOL FileTimeToSystemTime(const FILETIME* file_time, SYSTEMTIME* system_time) {
    const int64_t units = static_cast<int64_t>(units_of(*file_time));
    if (units < 0) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    const int64_t days = first_day + units / units_per_day;
    const int32_t milliseconds = static_cast<int32_t>(units % units_per_day / units_per_millisecond);
    const civil::date date = civil::date_of(days);
    system_time->wYear = static_cast<WORD>(date.year);
    system_time->wMonth = static_cast<WORD>(date.month);
    system_time->wDayOfWeek = static_cast<WORD>(civil::weekday_of(days));
    system_time->wDay = static_cast<WORD>(date.day);
    system_time->wHour = static_cast<WORD>(milliseconds / 3600000);
    system_time->wMinute = static_cast<WORD>(milliseconds / 60000 % 60);
    system_time->wSecond = static_cast<WORD>(milliseconds / 1000 % 60);
    system_time->wMilliseconds = static_cast<WORD>(milliseconds % 1000);
    return TRUE;
}

BOOL SystemTimeToFileTime(const SYSTEMTIME* system_time, FILETIME* file_time) {
    const SYSTEMTIME& time = *system_time;
    if (!is_valid(time)) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    const int64_t days = civil::days_of(time.wYear, time.wMonth, time.wDay) - first_day;
    const int64_t milliseconds =
        ((time.wHour * int64_t{60} + time.wMinute) * 60 + time.wSecond) * 1000 + time.wMilliseconds;
    *file_time = file_time_of_units(
        static_cast<uint64_t>(days * units_per_day + milliseconds * units_per_millisecond));
    return TRUE;
}

} // namespace platform
