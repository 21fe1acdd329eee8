// Searches: FindFirstFileW, FindNextFileW, FindClose.
#include <dirent.h>
#include <fcntl.h>

#include <cerrno>
#include <new>
#include <string>
#include <vector>

#include "platform/api/files.h"
#include "platform/core/error.h"
#include "platform/core/handle.h"
#include "platform/files/directory_scan.h"
#include "platform/files/find_record.h"
#include "platform/files/held_item.h"
#include "platform/files/place.h"
#include "platform/files/wildcard.h"

namespace platform {

namespace {

// A search that has found its one entry.
class search : public object {
public:
    static constexpr object_kind kind{};
    search() : object(kind) {}

    // The next entry: false with the code set, which is 18 (ERROR_NO_MORE_FILES) at the end.
    virtual bool next(WIN32_FIND_DATAW&) { return fail<bool>(ERROR_NO_MORE_FILES); }
};

// A search with wildcards. Entries are taken from the directory a block at a time, each with its status. A
// directory that fits into one block is read whole at the start and closed, so a walk down a deep tree keeps none open.
class directory_search : public search {
public:
    directory_search(descriptor directory, const std::u16string& pattern)
        : pattern_(pattern), reader_(std::move(directory)) {}

    // Reads the first block. `has_dots`: "." and ".." come first. 0 or a code.
    DWORD begin(bool has_dots);
    bool next(WIN32_FIND_DATAW& out) override;

private:
    bool next_known(WIN32_FIND_DATAW& out);

    struct known_entry {
        size_t name_end; // index in names_
        entry_status status;
    };

    bool is_wanted(std::string_view name) const;
    DWORD look_at(const char* name, unsigned char type, entry_status& out) const;
    DWORD keep_if_wanted(const char* name, unsigned char type);

    const std::u16string pattern_;
    directory_reader reader_;
    std::string names_;
    std::vector<known_entry> known_; // read already: the dots, or all of a small directory
    size_t position_ = 0;            // index in known_
    size_t name_start_ = 0;
};

DWORD directory_search::begin(bool has_dots) {
    if (!reader_.fill() && errno != 0) // ENOENT: the directory was removed after the opening
        return errno == ENOENT ? ERROR_PATH_NOT_FOUND : code_of_errno(errno);
    DWORD code = ERROR_SUCCESS;
    for (const char* dots : {".", ".."})
        if (has_dots && code == ERROR_SUCCESS)
            code = keep_if_wanted(dots, DT_DIR);
    if (code != ERROR_SUCCESS || !reader_.at_end())
        return code;
    for (directory_reader::entry entry; code == ERROR_SUCCESS && reader_.take(entry);)
        code = keep_if_wanted(entry.name.data(), entry.type);
    reader_.close();
    return code;
}

bool directory_search::is_wanted(std::string_view name) const {
    if (matches_all(pattern_))
        return true;
    std::u16string text;
    append_wide_name(name, text);
    return matches(pattern_, text);
}

// 0, 2 (ERROR_FILE_NOT_FOUND) when the entry is gone, or another code for want of memory or descriptors. An entry whose
// status is refused is reported with its kind alone: a user may be allowed to list a directory, but not to look at its
// entries.
DWORD directory_search::look_at(const char* name, unsigned char type, entry_status& out) const {
    struct statx status = {};
    stored_attributes stored;
    DWORD code = ERROR_SUCCESS;
    if (status_of(reader_.directory(), name, AT_SYMLINK_NOFOLLOW, status) != 0) {
        code = code_of_errno(errno);
        status.stx_mode = static_cast<uint16_t>((type == DT_UNKNOWN ? S_IFREG : DTTOIF(type)) | 0777);
    } else if (can_store(status.stx_mode)) {
        code = read_stored({reader_.directory(), name, AT_SYMLINK_NOFOLLOW}, stored);
    }
    out = entry_of(status, stored);
    const bool fails =
        code == ERROR_FILE_NOT_FOUND || code == ERROR_NOT_ENOUGH_MEMORY || code == ERROR_TOO_MANY_OPEN_FILES;
    return fails ? code : ERROR_SUCCESS;
}

DWORD directory_search::keep_if_wanted(const char* name, unsigned char type) {
    known_entry entry;
    if (!is_wanted(name))
        return ERROR_SUCCESS;
    if (const DWORD code = look_at(name, type, entry.status))
        return code == ERROR_FILE_NOT_FOUND ? ERROR_SUCCESS : code;
    names_ += name;
    entry.name_end = names_.size();
    known_.push_back(entry);
    return ERROR_SUCCESS;
}

bool directory_search::next_known(WIN32_FIND_DATAW& out) {
    if (position_ == known_.size())
        return false;
    const known_entry& entry = known_[position_++];
    fill_find_data({names_.data() + name_start_, entry.name_end - name_start_}, entry.status, out);
    name_start_ = entry.name_end;
    return true;
}

bool directory_search::next(WIN32_FIND_DATAW& out) {
    if (next_known(out))
        return true;
    while (reader_.directory() >= 0) {
        for (directory_reader::entry entry; reader_.take(entry);) {
            entry_status status;
            if (!is_wanted(entry.name))
                continue;
            const DWORD code = look_at(entry.name.data(), entry.type, status);
            if (code == ERROR_FILE_NOT_FOUND)
                continue;
            if (code != ERROR_SUCCESS)
                return fail<bool>(code);
            fill_find_data(entry.name, status, out);
            return true;
        }
        if (!reader_.fill()) {
            if (errno != 0 && errno != ENOENT) // ENOENT: a removed directory has no more entries
                return fail<bool>(code_of_errno(errno));
            reader_.close();
        }
    }
    return fail<bool>(ERROR_NO_MORE_FILES);
}

HANDLE handle_of(search* opened) {
    const HANDLE handle = new_handle(opened);
    return handle ? handle : INVALID_HANDLE_VALUE;
}

// ENOTDIR comes when any component of the path is a file. 267 (ERROR_DIRECTORY) is for a file that is searched itself;
// a file further up gives 3 (ERROR_PATH_NOT_FOUND).
DWORD code_of_search(place& where, int error, bool is_directory) {
    if (error == ENOENT && is_directory)
        return ERROR_PATH_NOT_FOUND;
    if (error != ENOTDIR)
        return where.code_of(error);
    if (!is_directory && !where.set_to_parent())
        return ERROR_PATH_NOT_FOUND;
    return where.find() ? ERROR_DIRECTORY : ERROR_PATH_NOT_FOUND;
}

HANDLE find_name(place& where, WIN32_FIND_DATAW& found) {
    if (where.is_volume())
        return fail(ERROR_INVALID_NAME, INVALID_HANDLE_VALUE);
    if (where.is_root())
        return fail(ERROR_FILE_NOT_FOUND, INVALID_HANDLE_VALUE);
    struct statx status;
    int flags_in_use = 0;
    const int result = call_through_links(where, [&](int at, const char* name, int flags) {
        flags_in_use = flags;
        return status_of(at, name, flags, status);
    });
    if (where.ends_with_separator()) {
        if (result != 0)
            return fail(code_of_search(where, errno, true), INVALID_HANDLE_VALUE);
        return fail(S_ISDIR(status.stx_mode) ? ERROR_FILE_NOT_FOUND : ERROR_DIRECTORY, INVALID_HANDLE_VALUE);
    }
    if (result != 0)
        return fail(code_of_search(where, errno, false), INVALID_HANDLE_VALUE);
    stored_attributes stored;
    if (can_store(status.stx_mode))
        if (const DWORD code = read_stored({where.directory(), where.name(), flags_in_use}, stored))
            return fail(code, INVALID_HANDLE_VALUE);
    fill_find_data(where.last_name(), entry_of(status, stored), found);
    return handle_of(new (std::nothrow) search);
}

HANDLE find_pattern(place& where, WIN32_FIND_DATAW& found) {
    descriptor directory(where.attempt([](int at, const char* path) { return open_to_list(at, path); }));
    if (!directory)
        return fail(code_of_search(where, errno, true), INVALID_HANDLE_VALUE);
    auto* opened = new (std::nothrow) directory_search(std::move(directory), where.pattern());
    const HANDLE handle = handle_of(opened);
    if (handle == INVALID_HANDLE_VALUE)
        return handle;
    DWORD code = opened->begin(!where.is_drive_directory());
    if (code == ERROR_SUCCESS && !opened->next(found))
        code = GetLastError() == ERROR_NO_MORE_FILES ? ERROR_FILE_NOT_FOUND : GetLastError();
    if (code == ERROR_SUCCESS)
        return handle;
    CloseHandle(handle);
    return fail(code, INVALID_HANDLE_VALUE);
}

} // namespace

HANDLE FindFirstFileW(const WCHAR* pattern, WIN32_FIND_DATAW* found) {
    place where;
    if (const DWORD code = where.set(pattern, path_use::search))
        return fail(code, INVALID_HANDLE_VALUE);
    return where.pattern().empty() ? find_name(where, *found) : find_pattern(where, *found);
}

BOOL FindNextFileW(HANDLE handle, WIN32_FIND_DATAW* found) {
    search* opened = object_of<search>(handle);
    return opened && opened->next(*found);
}

BOOL FindClose(HANDLE handle) {
    return object_of<search>(handle) && CloseHandle(handle);
}

} // namespace platform
