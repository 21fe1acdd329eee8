// Calendar time: 32-bit times, broken-down local times, file times, and the two text forms.
#include "zu/zu_support.h"

namespace {

constexpr ZU_time_t no_time = -1;
platform::WORD narrowed(int32_t value) {
    return static_cast<platform::WORD>(value);
}

} // namespace

void ZU_tzset() {
    platform::_tzset();
}

ZU_time_t ZU_time() {
    ZU_tzset();
    return platform::time(nullptr);
}

ZU_time_t ZU_mktime(ZU_tm* local) {
    ZU_tzset();
    return platform::mktime(local);
}

ZU_bool ZU_localtime(ZU_time_t time, ZU_tm* local) {
    ZU_tzset();
    const platform::tm* record = platform::localtime(&time);
    if (!record) {
        *local = ZU_tm{};
        return 0;
    }
    *local = *record;
    return 1;
}

ZU_time_t ZU_FILETIME_2_time_t(const FILETIME* file_time) {
    FILETIME local_file_time;
    platform::SYSTEMTIME date;
    if (!platform::FileTimeToLocalFileTime(file_time, &local_file_time)
        || !platform::FileTimeToSystemTime(&local_file_time, &date))
        return no_time;
    ZU_tm local{};
    local.tm_sec = date.wSecond;
    local.tm_min = date.wMinute;
    local.tm_hour = date.wHour;
    local.tm_mday = date.wDay;
    local.tm_mon = date.wMonth - 1;
    local.tm_year = date.wYear - 1900;
    local.tm_isdst = -1;
    return ZU_mktime(&local);
}

FILETIME* Zu_time_t_2_FILETIME(ZU_time_t time, FILETIME* file_time) {
    ZU_tm local;
    if (time == no_time || !ZU_localtime(time, &local))
        return nullptr;
    platform::SYSTEMTIME date{};
    date.wYear = narrowed(local.tm_year + 1900);
    date.wMonth = narrowed(local.tm_mon + 1);
    date.wDay = narrowed(local.tm_mday);
    date.wHour = narrowed(local.tm_hour);
    date.wMinute = narrowed(local.tm_min);
    date.wSecond = narrowed(local.tm_sec);
    FILETIME local_file_time;
    if (!platform::SystemTimeToFileTime(&date, &local_file_time)
        || !platform::LocalFileTimeToFileTime(&local_file_time, file_time))
        return nullptr;
    return file_time;
}
