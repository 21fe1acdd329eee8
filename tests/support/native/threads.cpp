#include "support/threads.h"

#include <windows.h>

namespace zu_test {

int this_thread_number() {
    return static_cast<int>(GetCurrentThreadId());
}

// The platform does not tell whether a thread sleeps. This gives it the time to get there.
void wait_until_asleep(int) {
    Sleep(100);
}

} // namespace zu_test
