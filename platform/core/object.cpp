// The answers of an object that has no better ones.
#include "platform/core/object.h"

#include "platform/api/threads.h"
#include "platform/core/error.h"

namespace platform {

DWORD object::wait(DWORD) {
    return fail<DWORD>(ERROR_INVALID_HANDLE, WAIT_FAILED);
}

waitable* object::as_waitable() {
    return fail<waitable*>(ERROR_INVALID_HANDLE);
}

void object::destroy() {
    delete this;
}

} // namespace platform
