// Inside this folder: the wait for a mutex, which is owned by a thread and lives in the kernel.
#pragma once

#include "platform/api/base.h"

namespace platform {

// Waits up to a number of milliseconds: WAIT_OBJECT_0 or WAIT_ABANDONED_0 once the mutex is the calling thread's,
// WAIT_TIMEOUT, or WAIT_FAILED with the code set: 6 (ERROR_INVALID_HANDLE) for a handle that is not a mutex's, 5
// (ERROR_ACCESS_DENIED) for one without the right to wait.
DWORD wait_for_mutex(HANDLE handle, DWORD milliseconds);

} // namespace platform
