// Calendar time: 32-bit times, broken-down local times, file times, and the two text forms.
#include "zu/zu_support.h"

namespace {

constexpr ZU_time_t no_time = -1;
constexpr uint32_t text_size = 20; // "2006-04-30 10:50:42" and its terminator

// One field of a date text. The seconds alone may be missing.
struct date_field {
    int32_t ZU_tm::*target;
    int32_t first, last;
    int32_t stored_less; // the value that the record stores as 0
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

bool is_separator(ZU_wchar unit) {
    return unit == u'-' || unit == u':' || unit == u' ' || unit == u'/' || unit == u'\\';
}

int32_t number_as_the_runtime_reads_it(const ZU_wchar* begin, const ZU_wchar* end) {
    zu::scoped_string token;
    ZU_s_append_n(token.address(), begin, static_cast<uint32_t>(end - begin));
    return platform::_wtoi(token.text());
}

// Takes the next token from the front of a date text, as a number. False at the end of the text.
bool take_number(const ZU_wchar*& rest, int32_t& value) {
    while (is_separator(*rest))
        ++rest;
    const ZU_wchar* const begin = rest;
    value = 0;
    bool is_plain = true; // nothing but digits, few enough for 32 bits
    for (; *rest != 0 && !is_separator(*rest); ++rest) {
        const auto digit = static_cast<uint32_t>(*rest - u'0');
        is_plain = is_plain && digit <= 9 && rest - begin < 9;
        if (is_plain)
            value = value * 10 + static_cast<int32_t>(digit);
    }
    if (!is_plain)
        value = number_as_the_runtime_reads_it(begin, rest);
    return rest != begin;
}

// Writes a record whose fields have the usual numbers of digits. False, with nothing written, for any other record.
bool write_usual(const ZU_tm& local, ZU_wchar* buffer) {
    constexpr ZU_wchar form[text_size] = ZU_W("0000-00-00 00:00:00");
    const auto is_outside = [](int32_t value, uint32_t high) { return static_cast<uint32_t>(value) > high; };
    if (is_outside(local.tm_year, 9999 - 1900) || is_outside(local.tm_mon, 98)
        || is_outside(local.tm_mday, 99) || is_outside(local.tm_hour, 99) || is_outside(local.tm_min, 99)
        || is_outside(local.tm_sec, 99))
        return false;
    std::memcpy(buffer, form, text_size * sizeof(ZU_wchar));
    const auto put = [&](size_t place, int32_t value) {
        buffer[place] = static_cast<ZU_wchar>(u'0' + value / 10);
        buffer[place + 1] = static_cast<ZU_wchar>(u'0' + value % 10);
    };
    const int32_t year = local.tm_year + 1900;
    put(0, year / 100);
    put(2, year % 100);
    put(5, local.tm_mon + 1);
    put(8, local.tm_mday);
    put(11, local.tm_hour);
    put(14, local.tm_min);
    put(17, local.tm_sec);
    return true;
}

// Records are written as they are, with any values. So a sum wraps instead of being undefined.
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
    for (const date_field& field : date_fields) {
        int32_t value = 0;
        if (!take_number(text, value) && !field.optional)
            return no_time;
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
    if (write_usual(*local, buffer))
        return;
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
