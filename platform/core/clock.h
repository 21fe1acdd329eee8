// Inside the layer: a monotonic clock that costs a few nanoseconds, and may be a few milliseconds behind.
#pragma once

#include <cstdint>
#include <ctime>

namespace platform {

inline int64_t coarse_now_ms() {
    timespec now;
    clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
    return int64_t{now.tv_sec} * 1000 + now.tv_nsec / 1'000'000;
}

} // namespace platform
