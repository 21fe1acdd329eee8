// Making directories, and deleting files and directories.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "platform/api/files.h"
#include "platform/core/error.h"
#include "platform/files/attributes.h"
#include "platform/files/exclusive_claim.h"
#include "platform/files/place.h"

namespace platform {

namespace {

DWORD unlink_place(place& where, int flags) {
    if (where.attempt([&](int at, const char* path) { return unlinkat(at, path, flags); }) == 0)
        return ERROR_SUCCESS;
    // Hosts report a directory that is not empty in either way.
    return errno == EEXIST ? ERROR_DIR_NOT_EMPTY : where.code_of(errno);
}

DWORD make_directory(const WCHAR* path) {
    place where;
    if (const DWORD code = where.set(path))
        return code;
    if (where.find())
        return where.is_root() && !where.is_volume() ? ERROR_ACCESS_DENIED : ERROR_ALREADY_EXISTS;
    if (const DWORD code = where.code_of(errno); code != ERROR_FILE_NOT_FOUND)
        return code;
    if (where.attempt([](int at, const char* name) { return mkdirat(at, name, 0777); }) == 0)
        return ERROR_SUCCESS;
    return where.code_of(errno);
}

DWORD remove_directory(const WCHAR* path) {
    place where;
    if (const DWORD code = where.set(path))
        return code;
    if (where.is_root())
        return ERROR_ACCESS_DENIED;
    struct stat status;
    int flags = AT_SYMLINK_NOFOLLOW;
    const auto look = [&](int at, const char* name) { return fstatat(at, name, &status, flags); };
    if (where.attempt(look) != 0)
        return where.code_of(errno);
    if (S_ISLNK(status.st_mode)) {
        flags = 0;
        const bool leads_to_directory = where.attempt(look) == 0 && S_ISDIR(status.st_mode);
        return leads_to_directory ? unlink_place(where, 0) : ERROR_DIRECTORY;
    }
    if (!S_ISDIR(status.st_mode))
        return ERROR_DIRECTORY;
    if (read_stored_bits(holder(where)) & FILE_ATTRIBUTE_READONLY)
        return ERROR_ACCESS_DENIED;
    struct stat current;
    if (stat(".", &current) == 0 && current.st_ino == status.st_ino && current.st_dev == status.st_dev)
        return ERROR_SHARING_VIOLATION; // in use, by this process itself
    return unlink_place(where, AT_REMOVEDIR);
}

DWORD delete_file(const WCHAR* path) {
    place where;
    if (const DWORD code = where.set(path))
        return code;
    if (where.is_root())
        return ERROR_ACCESS_DENIED;
    hold held;
    struct stat status;
    if (const DWORD code = held.take(where, status))
        return code;
    if (S_ISDIR(status.st_mode))
        return ERROR_ACCESS_DENIED;
    if (where.ends_with_separator())
        return ERROR_INVALID_NAME;
    return is_read_only(status.st_mode) ? ERROR_ACCESS_DENIED : unlink_place(where, 0);
}

} // namespace

BOOL CreateDirectoryW(const WCHAR* path, SECURITY_ATTRIBUTES* attributes) {
    return result_of(attributes ? ERROR_NOT_SUPPORTED : make_directory(path));
}

BOOL RemoveDirectoryW(const WCHAR* path) {
    return result_of(remove_directory(path));
}

BOOL DeleteFileW(const WCHAR* path) {
    return result_of(delete_file(path));
}

} // namespace platform
