// Inside this folder: the Gregorian calendar as plain arithmetic over days since 1970-01-01, without a zone.
#pragma once

#include <cstdint>

namespace platform::civil {

inline constexpr int64_t seconds_per_day = 86400;

constexpr int64_t floor_divide(int64_t value, int64_t divisor) {
    return value / divisor - (value % divisor < 0 ? 1 : 0);
}

constexpr bool is_leap_year(int64_t year) {
    return year % 4 == 0 && (year % 100 != 0 || year % 400 == 0);
}

constexpr int days_in_month(int64_t year, int month) {
    constexpr int lengths[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    return month == 2 && is_leap_year(year) ? 29 : lengths[month - 1];
}

constexpr int days_before_month(int64_t year, int month) {
    constexpr int16_t sums[] = {0, 31, 59, 90, 120, 151, 181, 212, 243, 273, 304, 334};
    return sums[month - 1] + (month > 2 && is_leap_year(year) ? 1 : 0);
}

// The days from 1970-01-01 to the first of January.
constexpr int64_t days_before_year(int64_t year) {
    constexpr int64_t days_before_1970 = 719162; // counted from 0001-01-01
    const int64_t past = year - 1;
    return past * 365 + floor_divide(past, 4) - floor_divide(past, 100) + floor_divide(past, 400)
           - days_before_1970;
}

// Month 1 to 12; the day may be any number and carries.
constexpr int64_t days_of(int64_t year, int month, int64_t day) {
    return days_before_year(year) + days_before_month(year, month) + day - 1;
}

struct date {
    int64_t year;
    int month;       // 1 to 12
    int day;         // 1 to 31
    int day_of_year; // 0 to 365
};

// The calendar repeats after eras of 400 years. Counted from March, the leap day ends its year, and the lengths of
// the months follow one line: (153 * month + 2) / 5 days stand before month 0, 1, ... 11.
constexpr date date_of(int64_t days) {
    constexpr int64_t days_per_era = 146097;
    constexpr int64_t days_before_1970 = 719468; // counted from 0000-03-01
    days += days_before_1970;
    const int64_t era = floor_divide(days, days_per_era);
    const uint32_t day_of_era = static_cast<uint32_t>(days - era * days_per_era);
    const uint32_t year_of_era =
        (day_of_era - day_of_era / 1460 + day_of_era / 36524 - day_of_era / 146096) / 365;
    const uint32_t march_day = day_of_era - (365 * year_of_era + year_of_era / 4 - year_of_era / 100);
    const uint32_t march_month = (5 * march_day + 2) / 153;
    const int month = static_cast<int>(march_month < 10 ? march_month + 3 : march_month - 9);
    const int day = static_cast<int>(march_day - (153 * march_month + 2) / 5 + 1);
    const int64_t year = era * 400 + year_of_era + (month <= 2 ? 1 : 0);
    const int day_of_year = static_cast<int>(march_day) + (month <= 2 ? -306 : 59 + is_leap_year(year));
    return {year, month, day, day_of_year};
}

// Sunday = 0.
constexpr int weekday_of(int64_t days) {
    return static_cast<int>((days + 4) - floor_divide(days + 4, 7) * 7);
}

} // namespace platform::civil
