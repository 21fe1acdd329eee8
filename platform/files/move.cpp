// Moving and renaming.
#include <fcntl.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "platform/api/files.h"
#include "platform/core/error.h"
#include "platform/files/attributes.h"
#include "platform/files/exclusive_claim.h"
#include "platform/files/place.h"
#include "platform/files/same_file.h"

namespace platform {

namespace {

constexpr int tries = 16;
constexpr DWORD moves_again = 0xFFFFFFFF; // stands in for a code: somebody has just made a file of that name

bool look(place& where, int flags, struct stat& status) {
    return where.attempt([&](int at, const char* path) { return fstatat(at, path, &status, flags); }) == 0;
}

// Whether two paths to one file lead through the same directory entry, and not through two hard links.
bool is_same_entry(const WCHAR* source_path, const WCHAR* destination_path, const place& source,
                   const place& destination) {
    place source_folder, destination_folder;
    struct stat status, other;
    return source.last_name() == destination.last_name() && source_folder.set(source_path) == ERROR_SUCCESS
           && destination_folder.set(destination_path) == ERROR_SUCCESS && source_folder.set_to_parent()
           && destination_folder.set_to_parent() && look(source_folder, 0, status)
           && look(destination_folder, 0, other) && is_same(status, other);
}

DWORD code_of_move(const place& destination, int error) {
    switch (error) {
    case EISDIR:
    case ENOTDIR:
    case ENOTEMPTY: return ERROR_ACCESS_DENIED;
    default: return destination.code_of(error);
    }
}

int rename_call(const place& source, const place& destination, unsigned flags) {
    return renameat2(source.directory(), source.name(), destination.directory(), destination.name(), flags);
}

// Moves to a name that was free. A file that has been made under that name since is left alone.
DWORD move_to_free_name(const place& source, const place& destination) {
    if (rename_call(source, destination, RENAME_NOREPLACE) == 0)
        return ERROR_SUCCESS;
    if (errno == EEXIST)
        return moves_again;
    // EINVAL: the file system lacks RENAME_NOREPLACE, or a directory moves into itself; the plain call repeats that
    // error.
    if (errno == EINVAL && rename_call(source, destination, 0) == 0)
        return ERROR_SUCCESS;
    return code_of_move(destination, errno);
}

// Renames an entry to the caller's spelling of its name, which differs from the stored one in case at most.
DWORD respell(place& source, place& destination) {
    if (destination.given_name() == source.last_name())
        return ERROR_SUCCESS;
    destination.use_given_name();
    return rename_call(source, destination, 0) == 0 ? ERROR_SUCCESS : code_of_move(destination, errno);
}

DWORD replace(place& source, const struct stat& source_status, place& destination,
              const struct stat& destination_status) {
    if (S_ISDIR(destination_status.st_mode) || S_ISDIR(source_status.st_mode)
        || is_read_only(destination_status.st_mode))
        return ERROR_ACCESS_DENIED;
    // One step replaces the file. A second one gives it the caller's spelling, and may fail without harm.
    if (rename_call(source, destination, 0) != 0)
        return code_of_move(destination, errno);
    if (destination.given_name() != destination.last_name()) {
        const std::string stored(destination.last_name());
        const int at = destination.directory();
        const std::string before = destination.name();
        destination.use_given_name();
        renameat2(at, before.c_str(), at, destination.name(), RENAME_NOREPLACE);
    }
    return ERROR_SUCCESS;
}

DWORD move_once(const WCHAR* source_path, const WCHAR* destination_path, bool replaces) {
    place source, destination;
    if (const DWORD code = source.set(source_path))
        return code;
    if (const DWORD code = destination.set(destination_path))
        return code;
    if (source.is_root())
        return ERROR_ACCESS_DENIED;
    hold source_held, destination_held;
    struct stat source_status, destination_status;
    if (const DWORD code = source_held.take(source, source_status))
        return code;
    if (source.ends_with_separator() && !S_ISDIR(source_status.st_mode))
        return ERROR_INVALID_NAME;
    if (destination.ends_with_separator())
        return ERROR_DIRECTORY;
    if (!look(destination, AT_SYMLINK_NOFOLLOW, destination_status)) {
        const DWORD code = destination.code_of(errno);
        return code == ERROR_FILE_NOT_FOUND ? move_to_free_name(source, destination) : code;
    }
    if (is_same(source_status, destination_status)
        && is_same_entry(source_path, destination_path, source, destination))
        return respell(source, destination);
    if (!replaces)
        return ERROR_ALREADY_EXISTS;
    if (is_same(source_status, destination_status)) {
        // Two links to one file: the host would leave both alone.
        const int result = unlinkat(source.directory(), source.name(), 0);
        return result == 0 ? ERROR_SUCCESS : code_of_move(source, errno);
    }
    if (const DWORD code = destination_held.take(destination, destination_status))
        return code == ERROR_SHARING_VIOLATION ? ERROR_ACCESS_DENIED : code;
    return replace(source, source_status, destination, destination_status);
}

DWORD move_file(const WCHAR* source, const WCHAR* destination, DWORD flags) {
    if (flags & ~MOVEFILE_REPLACE_EXISTING)
        return ERROR_NOT_SUPPORTED;
    const bool replaces = flags & MOVEFILE_REPLACE_EXISTING;
    DWORD code = moves_again;
    for (int i = 0; code == moves_again && i < tries; ++i) {
        code = move_once(source, destination, replaces);
        if (code == moves_again && !replaces)
            code = ERROR_ALREADY_EXISTS;
    }
    return code == moves_again ? ERROR_SHARING_VIOLATION : code;
}

} // namespace

BOOL MoveFileExW(const WCHAR* source, const WCHAR* destination, DWORD flags) {
    return result_of(move_file(source, destination, flags));
}

} // namespace platform
