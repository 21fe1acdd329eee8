// Calendar time: 32-bit times, broken-down local times, file times, and the two text forms.
#include "zu/zu_support.h"

namespace {

constexpr ZU_time_t no_time = -1;
constexpr uint32_t text_size = 20; // "2006-04-30 10:50:42" and its terminator

// One field of a date text. The seconds alone may be missing.
struct date_field {
    int32_t ZU_tm::*target;
    int32_t first, last;
    int32_t stored_less; // what the record counts from
    bool optional;
};

constexpr date_field date_fields[] = {
    {&ZU_tm::tm_year, 1900, INT32_MAX, 1900, false},
    {&ZU_tm::tm_mon, 1, 12, 1, false},
    {&ZU_tm::tm_mday, 1, 31, 0, false},
    {&ZU_tm::tm_hour, 0, 23, 0, false},
    {&ZU_tm::tm_min, 0, 59, 0, false},
    {&ZU_tm::tm_sec, 0, 59, 0, true},
};

// Records are written as they stand, so that a sum may wrap.
int32_t sum(int32_t value, int32_t other) {
    return static_cast<int32_t>(static_cast<uint32_t>(value) + static_cast<uint32_t>(other));
}

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

ZU_time_t ZU_read_tm(const ZU_wchar* text, ZU_tm* local) {
    constexpr const ZU_wchar* separators = ZU_W(":-/\\ ");
    const zu::owned<ZU_wchar> copy(ZU_strdup(text));
    ZU_wchar* context = nullptr;
    ZU_wchar* source = copy.get();
    for (const date_field& field : date_fields) {
        const ZU_wchar* token = ZU_strtok(source, separators, &context);
        source = nullptr;
        if (!token && !field.optional)
            return no_time;
        const int32_t value = token ? platform::_wtoi(token) : 0;
        if (value < field.first || value > field.last)
            return no_time;
        local->*field.target = value - field.stored_less;
    }
    local->tm_isdst = -1;
    return ZU_mktime(local);
}

ZU_time_t ZU_read_time_t(const ZU_wchar* text) {
    ZU_tm local;
    return ZU_read_tm(text, &local);
}

void ZU_write_tm(const ZU_tm* local, ZU_wchar* buffer) {
    platform::_snwprintf(buffer, text_size, ZU_W("%04d-%02d-%02d %02d:%02d:%02d"), sum(local->tm_year, 1900),
                         sum(local->tm_mon, 1), local->tm_mday, local->tm_hour, local->tm_min, local->tm_sec);
    buffer[text_size - 1] = 0;
}

ZU_bool ZU_write_time_t(ZU_time_t time, ZU_wchar* buffer) {
    ZU_tm local;
    if (!ZU_localtime(time, &local)) {
        buffer[0] = 0;
        return 0;
    }
    ZU_write_tm(&local, buffer);
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
