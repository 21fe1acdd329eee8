// Sleeping and the tick count.
#include <sched.h>
#include <unistd.h>

#include <cerrno>
#include <ctime>

#include "platform/api/threads.h"
#include "platform/core/futex.h"

namespace platform {

void Sleep(DWORD milliseconds) {
    if (milliseconds == 0) {
        sched_yield();
        return;
    }
    const deadline until(milliseconds);
    if (!until.moment()) {
        for (;;)
            pause();
    }
    while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, until.moment(), nullptr) == EINTR) {}
}

DWORD GetTickCount() {
    timespec now;
    clock_gettime(CLOCK_BOOTTIME, &now); // counts on while the machine is suspended
    const uint64_t milliseconds =
        static_cast<uint64_t>(now.tv_sec) * 1000 + static_cast<uint64_t>(now.tv_nsec) / 1'000'000;
    return static_cast<DWORD>(milliseconds);
}

} // namespace platform
