// Calendar times in the zone of the environment and in others that both platforms know, and firings of timers.
#include <cstdio>
#include <cstdlib>

#include "results.h"
#include "support/environment.h"

namespace results {
namespace {

constexpr int32_t moments[] = {
    INT32_MIN,  -1,         0,          1,          43199,      43200,      86399,      86400,
    951782399,  951782400,  951868800,  978307199,  1000000000, 1199145600, 1205056799, 1205056800,
    1206838799, 1206838800, 1214870400, 1224982799, 1224982800, 1225605599, 1225605600, 1225609200,
    1332064800, 1600000000, 1793500000, 1900000000, 2145916800, 2147483646, INT32_MAX};

std::string show(const ZU_tm& tm) {
    std::string text;
    for (const int32_t field : {tm.tm_year, tm.tm_mon, tm.tm_mday, tm.tm_hour, tm.tm_min, tm.tm_sec,
                                tm.tm_wday, tm.tm_yday, tm.tm_isdst})
        text += results::show(field) + ' ';
    return text;
}

struct fields {
    int32_t year, month, day, hour, minute, second;
};

constexpr fields local_times[] = {
    {69, 12, 31, 23, 59, 59}, {70, 1, 1, 0, 0, 0},    {70, 1, 1, 13, 0, 0},    {100, 2, 29, 12, 0, 0},
    {106, 2, 29, 0, 0, 0},    {106, 13, 1, 0, 0, 0},  {106, 1, 0, 0, 0, 0},    {106, 1, 1, 0, 0, 86400},
    {106, -11, 1, 0, 0, 0},   {106, 1, 400, 0, 0, 0}, {106, 1, 1, -1, -1, -1}, {108, 3, 9, 1, 59, 59},
    {108, 3, 9, 2, 0, 0},     {108, 3, 9, 2, 30, 0},  {108, 3, 9, 3, 0, 0},    {108, 3, 30, 2, 30, 0},
    {108, 3, 30, 3, 0, 0},    {108, 10, 26, 2, 0, 0}, {108, 10, 26, 2, 30, 0}, {108, 10, 26, 3, 0, 0},
    {108, 11, 2, 1, 0, 0},    {108, 11, 2, 1, 30, 0}, {108, 11, 2, 2, 0, 0},   {108, 1, 1, 12, 0, 0},
    {108, 7, 1, 12, 0, 0},    {126, 1, 1, 12, 0, 0},  {126, 7, 1, 12, 0, 0},   {138, 1, 18, 0, 0, 0},
    {138, 1, 19, 3, 14, 7},   {138, 1, 19, 3, 14, 8}, {139, 1, 1, 0, 0, 0},    {1100, 12, 31, 0, 0, 0},
    {0, 1, 1, 0, 0, 0}};

void in_zone(const std::string& zone) {
    ZU_tm tm = {};
    for (const int32_t moment : moments) {
        RESULT(zone + ' ' + results::show(moment), ZU_localtime(moment, &tm));
        add(zone + " local time of " + results::show(moment), show(tm));
    }
    for (const fields& local : local_times)
        for (const int32_t isdst : {-1, 0, 1}) {
            tm = {local.second, local.minute, local.hour, local.day, local.month - 1, local.year, 0, 0,
                  isdst};
            const std::string given = show(tm);
            RESULT(zone + ' ' + given, ZU_mktime(&tm));
            add(zone + ' ' + given + "carried", show(tm));
        }
}

void file_times(const std::string& zone) {
    for (const uint32_t high : {0u, 0x19DB1DEu, 0x19DB800u, 0x1C66000u, 0x1E9FD00u, 0x1E9FE00u, 0x40000000u,
                                0x80000000u, 0xFFFFFFFFu}) {
        const FILETIME time = {high, high};
        RESULT(zone + ' ' + hex(high), ZU_FILETIME_2_time_t(&time));
    }
    for (const int32_t moment : moments) {
        FILETIME time = {};
        RESULT(zone + ' ' + results::show(moment), Zu_time_t_2_FILETIME(moment, &time) != nullptr);
        add(zone + " file time of " + results::show(moment),
            hex(time.dwHighDateTime) + ' ' + hex(time.dwLowDateTime));
    }
}

void readings() {
    for (
        const std::u16string& text : split(
            uR"(2006-04-30 10:50:42;2006/4/30 1:2;2006-04-30;2006-13-01 00:00:00;2006-00-01 00:00:00;)"
            uR"(2006-04-31 00:00:00;2006-04-30 24:00:00;2006-04-30 23:60:00;1969-12-31 00:00:00;2038-01-19 03:14:08;;)"
            uR"(99999999999-01-01 00:00:00;2006-04-30 10:50:42 more;2006 4 30 10 50;+2006-04-30 10:50;2006--04-30 10:50;)"
            uR"(2006\04\30\10\50; 2006-04-30 10:50;2006-0x4-30 10:50;2006-04-30 10:50:4a)")) {
        ZU_tm tm = {};
        RESULT(results::show(text), ZU_read_tm(text.c_str(), &tm));
        add("fields of " + results::show(text), show(tm));
    }
}

void firings(const std::string& name, ZU_timer* timer) {
    add("timer " + name, results::show(static_cast<const void*>(timer)));
    if (!timer)
        return;
    // The start lies ahead of every clock, so what is next from now on does not depend on now.
    add("timer " + name + ": next", results::show(timer->ops->next(timer)));
    for (const int32_t now :
         {2082758400, 2082758460, 2083017600, 2085550000, 2090000000, 2093209200, 2115000000}) {
        timer->last = 0;
        const int32_t due = timer->ops->due(timer, 2082000000, now);
        add("timer " + name + ": due at " + results::show(now),
            results::show(due) + ' ' + results::show(timer->last));
    }
    timer->ops->destroy(timer);
}

void timers() {
    const int32_t offset = ZU_timer_set_valid_offset_seconds(0);
    const ZU_wchar* const start = u"2036-01-01 00:00:00"; // 2082758400
    for (const std::u16string& text : split(u";1;1,15;-1;31;-31,5;2:4:6;0,8,32;a"))
        for (const int32_t n : {-1, 0, 1, 2, 5, 7, 1000}) {
            const ZU_wchar *const list = text.c_str(), *const no = nullptr;
            const std::string name = results::show(n) + " with " + results::show(text);
            firings("daily " + name, ZU_timer_new_daily(start, no, no, n, no, list, no, nullptr));
            firings("weekly " + name, ZU_timer_new_weekly(start, no, no, list, n, no, no, nullptr));
            firings("interval " + name,
                    ZU_timer_new_interval(start, no, no, n, 30, 0, list, no, no, no, nullptr));
            firings("monthly " + name, ZU_timer_new_monthly(start, no, no, list, u"2", no, nullptr));
            firings("week " + name, ZU_timer_new_week_of_month(start, no, no, n, list, no, no, nullptr));
            firings("weekday " + name,
                    ZU_timer_new_weekday_of_month(start, no, no, n, list, no, no, nullptr));
        }
    ZU_timer_set_valid_offset_seconds(offset);
}

} // namespace

void times() {
    // Natively the zone that the program was started in is the system's, which has no name in TZ.
    const char* const started = std::getenv("TZ");
    const std::string zone = started ? started : "";
    if (!zu_test::has_zone(zone.c_str()))
        zu_test::set_zone(nullptr);
    in_zone(zone);
    file_times(zone);
    // A name of three letters and an offset is all that the native runtime takes.
    for (const char* fixed : {"EST5", "JST-9", "NST3:30", "IST-5:30", "ABC-13", "XYZ12", "UTC0"}) {
        zu_test::set_zone(fixed);
        in_zone(fixed);
    }
    readings();
    timers();
}

} // namespace results
