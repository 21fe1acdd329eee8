// Making directories, and deleting files and directories.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <string>

#include "platform/api/files.h"
#include "platform/core/error.h"
#include "platform/files/attributes.h"
#include "platform/files/exclusive_claim.h"
#include "platform/files/place.h"
#include "platform/files/removal.h"
#include "platform/files/same_file.h"

namespace platform {

namespace {

DWORD unlink_entry(int at, const char* name, int flags) {
    if (unlinkat(at, name, flags) == 0)
        return ERROR_SUCCESS;
    // Hosts report a directory that is not empty in either way.
    return errno == EEXIST ? ERROR_DIR_NOT_EMPTY : code_of_errno(errno);
}

// A link counts as a directory when it leads to one, and is removed itself.
DWORD remove_link(int at, const char* name) {
    struct stat target;
    if (fstatat(at, name, &target, 0) != 0 || !S_ISDIR(target.st_mode))
        return ERROR_DIRECTORY;
    return unlink_entry(at, name, 0);
}

// The status of the entry itself: for a link, that of the link. 0 or a code.
DWORD look_at(place& where, const WCHAR* path, struct stat& status) {
    if (const DWORD code = where.set(path))
        return code;
    if (where.is_root())
        return ERROR_ACCESS_DENIED;
    const auto look = [&](int at, const char* name) {
        return fstatat(at, name, &status, AT_SYMLINK_NOFOLLOW);
    };
    return where.attempt(look) == 0 ? ERROR_SUCCESS : where.code_of(errno);
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
    struct stat status {};
    if (const DWORD code = look_at(where, path, status))
        return code;
    if (!S_ISLNK(status.st_mode))
        return remove_directory_entry(where.directory(), where.name(), status);
    // A link is unlinked as a file would be, so its directory is held from the look at it on.
    const std::string name(where.last_name());
    where.set_to_parent();
    const descriptor parent(where.attempt(
        [](int at, const char* folder) { return openat(at, folder, O_PATH | O_DIRECTORY | O_CLOEXEC); }));
    if (!parent || fstatat(parent.get(), name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0)
        return where.code_of(errno);
    return remove_directory_entry(parent.get(), name.c_str(), status);
}

DWORD delete_file(const WCHAR* path) {
    place where;
    struct stat status {};
    if (const DWORD code = look_at(where, path, status))
        return code;
    if (!S_ISDIR(status.st_mode) && where.ends_with_separator()) {
        hold held;
        const DWORD code = held.take(where.directory(), where.name(), status);
        return code ? code : ERROR_INVALID_NAME;
    }
    return delete_file_entry(where.directory(), where.name(), status);
}

} // namespace

DWORD remove_directory_entry(int at, const char* name, const struct stat& status) {
    if (S_ISLNK(status.st_mode))
        return remove_link(at, name);
    if (!S_ISDIR(status.st_mode))
        return ERROR_DIRECTORY;
    DWORD stored = 0;
    if (const DWORD code = read_stored_bits({at, name, AT_SYMLINK_NOFOLLOW}, stored))
        return code;
    if (stored & FILE_ATTRIBUTE_READONLY)
        return ERROR_ACCESS_DENIED;
    struct stat current;
    if (stat(".", &current) == 0 && is_same(current, status))
        return ERROR_SHARING_VIOLATION; // in use, by this process itself
    return unlink_entry(at, name, AT_REMOVEDIR);
}

DWORD delete_file_entry(int at, const char* name, struct stat& status) {
    hold held;
    if (const DWORD code = held.take(at, name, status))
        return code;
    if (S_ISDIR(status.st_mode) || is_read_only(status.st_mode))
        return ERROR_ACCESS_DENIED;
    const DWORD code = unlink_entry(at, name, 0);
    if (code == ERROR_SUCCESS && status.st_nlink == 1)
        held.forget(); // nobody can come to the file any more
    return code;
}

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
