// Attributes by path.
#include <cerrno>

#include "platform/api/files.h"
#include "platform/core/error.h"
#include "platform/files/attributes.h"
#include "platform/files/place.h"

namespace platform {

namespace {

// What the path leads to; a link that leads nowhere stands for itself. 0 or a code.
DWORD look_at(const WCHAR* path, place& where, struct stat& status) {
    if (const DWORD code = where.set(path))
        return code;
    if (where.is_volume())
        return ERROR_BAD_DEV_TYPE;
    int flags = 0;
    const auto look = [&](int at, const char* name) { return fstatat(at, name, &status, flags); };
    int result = where.attempt(look);
    if (result != 0 && errno == ENOENT) {
        flags = AT_SYMLINK_NOFOLLOW;
        result = where.attempt(look);
    }
    if (result != 0)
        return where.code_of(errno);
    return where.ends_with_separator() && !S_ISDIR(status.st_mode) ? ERROR_INVALID_NAME : ERROR_SUCCESS;
}

} // namespace

DWORD GetFileAttributesW(const WCHAR* path) {
    place where;
    struct stat status {};
    if (const DWORD code = look_at(path, where, status)) {
        SetLastError(code);
        return INVALID_FILE_ATTRIBUTES;
    }
    const DWORD stored = can_store(status.st_mode) ? read_stored_bits(holder(where)) : 0;
    return attributes_of(status.st_mode, stored);
}

BOOL SetFileAttributesW(const WCHAR* path, DWORD attributes) {
    place where;
    struct stat status {};
    DWORD code = look_at(path, where, status);
    if (code == ERROR_SUCCESS)
        code = S_ISLNK(status.st_mode) ? ERROR_NOT_SUPPORTED
                                       : write_attributes(holder(where), status.st_mode, attributes);
    if (code == ERROR_SUCCESS)
        return TRUE;
    SetLastError(code);
    return FALSE;
}

} // namespace platform
