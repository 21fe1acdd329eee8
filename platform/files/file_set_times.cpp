// The times of open files.
#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>

#include "platform/api/files.h"
#include "platform/core/error.h"
#include "platform/files/file.h"
#include "platform/files/find_record.h"
#include "platform/time/host_time.h"

namespace platform {

namespace {

constexpr uint64_t keeps_time = UINT64_MAX; // asks that later use of the handle leave the time alone
constexpr uint64_t top_bit = uint64_t{1} << 63;

// A file that is open for its attributes alone has a bare descriptor.
attribute_holder holder_of(const file& opened) {
    return holder(opened.number(), (fcntl(opened.number(), F_GETFL) & O_PATH) != 0);
}

bool is_given(const FILETIME* time) {
    return time && units_of(*time) != 0 && units_of(*time) != keeps_time;
}

bool is_wrong(const FILETIME* time) {
    return time && units_of(*time) != keeps_time && units_of(*time) >= top_bit;
}

timespec to_set(const FILETIME* time) {
    return is_given(time) ? host_time_of(units_of(*time)) : timespec{0, UTIME_OMIT};
}

// 0 or a code; all of the times or none.
DWORD set_times(const file& opened, const FILETIME* creation, const FILETIME* access, const FILETIME* write) {
    const attribute_holder to = holder_of(opened);
    struct stat status;
    if (fstat(opened.number(), &status) != 0)
        return code_of_errno(errno);
    stored_attributes before;
    if (is_given(creation)) {
        if (const DWORD code = read_stored(to, before))
            return code;
        if (const DWORD code = write_created(to, status.st_mode, units_of(*creation)))
            return code;
    }
    const timespec times[] = {to_set(access), to_set(write)};
    const DWORD code = write_host_times(to, times);
    if (code != ERROR_SUCCESS && is_given(creation))
        write_created(to, status.st_mode, before.created);
    return code;
}

} // namespace

BOOL GetFileTime(HANDLE handle, FILETIME* creation, FILETIME* access, FILETIME* write) {
    file* opened = object_of<file>(handle);
    if (!opened)
        return FALSE;
    struct statx status;
    if (status_of(opened->number(), "", AT_EMPTY_PATH, status) != 0)
        return fail(code_of_errno(errno));
    stored_attributes stored;
    if (creation && can_store(status.stx_mode))
        if (const DWORD code = read_stored(holder_of(*opened), stored))
            return fail(code);
    const entry_status entry = entry_of(status, stored);
    if (creation)
        *creation = entry.created;
    if (access)
        *access = entry.accessed;
    if (write)
        *write = entry.written;
    return TRUE;
}

BOOL SetFileTime(HANDLE handle, const FILETIME* creation, const FILETIME* access, const FILETIME* write) {
    file* opened = object_of<file>(handle);
    if (!opened)
        return FALSE;
    DWORD code = ERROR_SUCCESS;
    if (!opened->writes_attributes())
        code = ERROR_ACCESS_DENIED;
    else if (is_wrong(creation) || is_wrong(access) || is_wrong(write))
        code = ERROR_INVALID_PARAMETER;
    else if (is_given(creation) || is_given(access) || is_given(write))
        code = set_times(*opened, creation, access, write);
    return result_of(code);
}

} // namespace platform
