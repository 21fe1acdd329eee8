// File times, system times, and the runtime library's calendar calls over a 32-bit time value.
#pragma once

#include "platform/api/base.h"

namespace platform {

struct SYSTEMTIME {
    WORD wYear;      // full
    WORD wMonth;     // 1 to 12
    WORD wDayOfWeek; // Sunday = 0; ignored on input
    WORD wDay;
    WORD wHour;
    WORD wMinute;
    WORD wSecond;
    WORD wMilliseconds;
};

using tm = ::ZU_tm;

// These two apply the zone's offset in force now, whatever the date.
BOOL FileTimeToLocalFileTime(const FILETIME* utc, FILETIME* local);
BOOL LocalFileTimeToFileTime(const FILETIME* local, FILETIME* utc);
BOOL FileTimeToSystemTime(const FILETIME* file_time, SYSTEMTIME* system_time);
BOOL SystemTimeToFileTime(const SYSTEMTIME* system_time, FILETIME* file_time);

// The runtime's calendar over 0 ... 2^31 - 1. After `_tzset` the thread's next use of the zone reads TZ anew.
// `mktime` normalises its record in place, and leaves it as given with the result -1 outside that span; `localtime` fills
// a record of the calling thread.
void _tzset();

// The layer's own: a number that is another one for each zone that `_tzset` has found. What a caller has worked out of
// local times holds as long as the number is the same. 0: not known, nothing holds.
uint32_t zone_number();

int32_t time(int32_t* out);
int32_t mktime(tm* local);
const tm* localtime(const int32_t* value);

} // namespace platform
