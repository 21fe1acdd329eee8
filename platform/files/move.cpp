// Moving and renaming.
#include <fcntl.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "platform/api/files.h"
#include "platform/core/error.h"
#include "platform/files/attributes.h"
#include "platform/files/directory_scan.h"
#include "platform/files/exclusive_claim.h"
#include "platform/files/name_map.h"
#include "platform/files/place.h"
#include "platform/files/same_file.h"

namespace platform {

namespace {

constexpr int tries = 16;
constexpr DWORD moves_again = 0xFFFFFFFF; // stands in for a code: somebody has just made a file of that name

bool look(place& where, int flags, struct stat& status) {
    return where.attempt([&](int at, const char* path) { return fstatat(at, path, &status, flags); }) == 0;
}

// Looks at the directory that a path is in. 0 or a code.
DWORD look_at_folder(const WCHAR* path, place& folder, struct stat& status) {
    if (const DWORD code = folder.set(path))
        return code;
    folder.set_to_parent();
    return look(folder, 0, status) ? DWORD{ERROR_SUCCESS} : folder.code_of(errno);
}

// Whether a directory lists both names. Only its list tells two links from one entry that the file system itself finds
// in any case of letters. 0 or a code.
DWORD has_both_entries(place& folder, std::string_view name, std::string_view other, bool& has_both) {
    directory_reader reader(
        descriptor(folder.attempt([](int at, const char* path) { return open_to_list(at, path); })));
    if (reader.directory() < 0)
        return folder.code_of(errno);
    int found = 0;
    while (reader.fill())
        for (directory_reader::entry entry; reader.take(entry);)
            found += entry.name == name || entry.name == other;
    has_both = found == 2;
    return code_of_errno(errno);
}

// Whether two paths to one file lead through the same directory entry, and not through two hard links. 0 or a code.
DWORD compare_entries(const WCHAR* source_path, const WCHAR* destination_path, const place& source,
                      const place& destination, bool& are_same) {
    place source_folder, destination_folder;
    struct stat status, other;
    are_same = false;
    if (!same_name(source.last_name(), destination.last_name()))
        return ERROR_SUCCESS;
    if (const DWORD code = look_at_folder(source_path, source_folder, status))
        return code;
    if (const DWORD code = look_at_folder(destination_path, destination_folder, other))
        return code;
    are_same = is_same(status, other);
    if (!are_same || source.last_name() == destination.last_name())
        return ERROR_SUCCESS;
    bool has_both = false;
    const DWORD code = has_both_entries(source_folder, source.last_name(), destination.last_name(), has_both);
    are_same = !has_both;
    return code;
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

// Moves a file to a path that leads to it already.
DWORD move_to_itself(const WCHAR* source_path, const WCHAR* destination_path, place& source,
                     place& destination, const struct stat& status, bool replaces) {
    bool are_same = false;
    if (const DWORD code = compare_entries(source_path, destination_path, source, destination, are_same))
        return code;
    if (are_same)
        return respell(source, destination);
    if (!replaces)
        return ERROR_ALREADY_EXISTS;
    // The host leaves two links to one file alone. With one link, the second name is a mount or an alias: taking the
    // first away would lose the file.
    const int result = status.st_nlink > 1 ? unlinkat(source.directory(), source.name(), 0)
                                           : rename_call(source, destination, 0);
    return result == 0 ? ERROR_SUCCESS : code_of_move(source, errno);
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
    if (is_same(source_status, destination_status))
        return move_to_itself(source_path, destination_path, source, destination, source_status, replaces);
    if (!replaces)
        return ERROR_ALREADY_EXISTS;
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
