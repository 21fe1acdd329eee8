// Inside the layer: between the host's times of files and the platform's.
#pragma once

#include <sys/stat.h>
#include <time.h>

#include "platform/api/base.h"

namespace platform {

inline constexpr int64_t file_time_units_per_second = 10'000'000;
inline constexpr int64_t seconds_from_1601_to_1970 = 11'644'473'600;

inline uint64_t units_of(const FILETIME& file_time) {
    return uint64_t{file_time.dwHighDateTime} << 32 | file_time.dwLowDateTime;
}

inline FILETIME file_time_of_units(uint64_t units) {
    return {static_cast<uint32_t>(units), static_cast<uint32_t>(units >> 32)};
}

// A time before 1601 is 0, which stands for none.
inline FILETIME file_time_of(const struct statx_timestamp& host) {
    const int64_t seconds = host.tv_sec + seconds_from_1601_to_1970;
    if (seconds < 0 || seconds > INT64_MAX / file_time_units_per_second - 1)
        return {0, 0};
    return file_time_of_units(
        static_cast<uint64_t>(seconds * file_time_units_per_second + host.tv_nsec / 100));
}

inline timespec host_time_of(uint64_t units) {
    timespec host;
    host.tv_sec = static_cast<time_t>(static_cast<int64_t>(units / file_time_units_per_second)
                                      - seconds_from_1601_to_1970);
    host.tv_nsec = static_cast<long>(units % file_time_units_per_second * 100);
    return host;
}

} // namespace platform
