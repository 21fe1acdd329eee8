// Events and semaphores.
#include <new>

#include "platform/api/threads.h"
#include "platform/core/error.h"
#include "platform/core/waitable.h"

namespace platform {

namespace {

struct event : waitable {
    static constexpr object_kind kind{};
    explicit event(bool manual_reset, bool signalled)
        : waitable(kind, manual_reset ? when_taken::stays : when_taken::counts_down, signalled ? 1 : 0) {}
};

struct semaphore : waitable {
    static constexpr object_kind kind{};
    semaphore(uint32_t initial, uint32_t most)
        : waitable(kind, when_taken::counts_down, initial), maximum(most) {}
    const uint32_t maximum;
};

// Events and semaphores have no names here, and security attributes mean nothing to an object without a name. Both are
// refused, not ignored.
bool is_plain(const SECURITY_ATTRIBUTES* attributes, const WCHAR* name) {
    if (!attributes && !name)
        return true;
    return fail<bool>(ERROR_NOT_SUPPORTED);
}

// The platform reports "new" by a code of 0.
HANDLE new_handle_reported(object* opened) {
    const HANDLE handle = new_handle(opened, waitable_mark);
    if (handle)
        SetLastError(ERROR_SUCCESS);
    return handle;
}

} // namespace

HANDLE CreateEventW(SECURITY_ATTRIBUTES* attributes, BOOL manual_reset, BOOL initial_state,
                    const WCHAR* name) {
    if (!is_plain(attributes, name))
        return nullptr;
    return new_handle_reported(new (std::nothrow) event(manual_reset, initial_state));
}

BOOL SetEvent(HANDLE handle) {
    event* signalled = object_of<event>(handle);
    if (!signalled)
        return FALSE;
    signalled->set();
    return TRUE;
}

BOOL ResetEvent(HANDLE handle) {
    event* cleared = object_of<event>(handle);
    if (!cleared)
        return FALSE;
    cleared->reset();
    return TRUE;
}

HANDLE CreateSemaphoreW(SECURITY_ATTRIBUTES* attributes, LONG initial_count, LONG maximum_count,
                        const WCHAR* name) {
    if (maximum_count < 1 || initial_count < 0 || initial_count > maximum_count)
        return fail<HANDLE>(ERROR_INVALID_PARAMETER);
    if (!is_plain(attributes, name))
        return nullptr;
    return new_handle_reported(new (std::nothrow) semaphore(static_cast<uint32_t>(initial_count),
                                                            static_cast<uint32_t>(maximum_count)));
}

BOOL ReleaseSemaphore(HANDLE handle, LONG release_count, LONG* previous_count) {
    semaphore* posted = object_of<semaphore>(handle);
    if (!posted)
        return FALSE;
    if (release_count < 1)
        return fail(ERROR_INVALID_PARAMETER);
    uint32_t before = 0;
    if (!posted->add(static_cast<uint32_t>(release_count), posted->maximum, before))
        return fail(ERROR_TOO_MANY_POSTS);
    if (previous_count)
        *previous_count = static_cast<LONG>(before);
    return TRUE;
}

} // namespace platform
