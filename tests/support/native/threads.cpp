#include "support/threads.h"

#include <windows.h>

namespace zu_test {

// The platform does not tell whether a thread sleeps. This gives it the time to get there.
void wait_until_asleep(uint32_t) {
    Sleep(100);
}

} // namespace zu_test
