// Calendar times in the zone of the environment and in others that both platforms know.
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

constexpr int32_t least = INT32_MIN + 1, most = INT32_MAX;
// clang-format off
constexpr fields local_times[] = {
    {69, 12, 31, 23, 59, 59}, {70, 1, 1, 0, 0, 0},    {70, 1, 1, 13, 0, 0},    {100, 2, 29, 12, 0, 0},
    {106, 2, 29, 0, 0, 0},    {106, 13, 1, 0, 0, 0},  {106, 1, 0, 0, 0, 0},    {106, 1, 1, 0, 0, 86400},
    {106, -11, 1, 0, 0, 0},   {106, 1, 400, 0, 0, 0}, {106, 1, 1, -1, -1, -1}, {108, 3, 9, 1, 59, 59},
    {108, 3, 9, 2, 0, 0},     {108, 3, 9, 2, 30, 0},  {108, 3, 9, 3, 0, 0},    {108, 3, 30, 2, 30, 0},
    {108, 3, 30, 3, 0, 0},    {108, 10, 26, 2, 0, 0}, {108, 10, 26, 2, 30, 0}, {108, 10, 26, 3, 0, 0},
    {108, 11, 2, 1, 0, 0},    {108, 11, 2, 1, 30, 0}, {108, 11, 2, 2, 0, 0},   {108, 1, 1, 12, 0, 0},
    {108, 7, 1, 12, 0, 0},    {126, 1, 1, 12, 0, 0},  {126, 7, 1, 12, 0, 0},   {138, 1, 18, 0, 0, 0},
    {138, 1, 19, 3, 14, 7},   {138, 1, 19, 3, 14, 8}, {139, 1, 1, 0, 0, 0},    {1100, 12, 31, 0, 0, 0},
    {0, 1, 1, 0, 0, 0},       {least, least, least, least, least, least}, {most, most, most, most, most, most}};
// clang-format on

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
        time.dwLowDateTime |= 0xFFFFFF; // more than a second
        if (moment > 86400)
            RESULT(zone + " near " + results::show(moment), ZU_FILETIME_2_time_t(&time));
    }
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
}

} // namespace results
