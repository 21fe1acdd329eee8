// Attributes by path, and those of an item that is held.
#include <cerrno>

#include "platform/api/files.h"
#include "platform/core/error.h"
#include "platform/files/held_item.h"
#include "platform/files/place.h"

namespace platform {

namespace {

DWORD set_place(place& where, const WCHAR* path) {
    if (const DWORD code = where.set(path))
        return code;
    return where.is_volume() ? ERROR_BAD_DEV_TYPE : ERROR_SUCCESS;
}

DWORD check_ending(const place& where, mode_t mode) {
    return where.ends_with_separator() && !S_ISDIR(mode) ? ERROR_INVALID_NAME : ERROR_SUCCESS;
}

DWORD read_attributes(const WCHAR* path, DWORD& attributes) {
    place where;
    if (const DWORD code = set_place(where, path))
        return code;
    struct stat status;
    int flags_in_use = 0;
    const auto look = [&](int at, const char* name, int flags) {
        flags_in_use = flags;
        return fstatat(at, name, &status, flags);
    };
    if (call_through_links(where, look) != 0)
        return where.code_of(errno);
    if (const DWORD code = check_ending(where, status.st_mode))
        return code;
    DWORD stored = 0;
    if (can_store(status.st_mode))
        if (const DWORD code = read_stored_bits({where.directory(), where.name(), flags_in_use}, stored))
            return code;
    attributes = attributes_of(status.st_mode, stored);
    return ERROR_SUCCESS;
}

// Holds the item that the path leads to, or with `takes_links` a link at its end. 0 or a code.
DWORD hold(const WCHAR* path, bool takes_links, held_item& out) {
    place where;
    if (const DWORD code = set_place(where, path))
        return code;
    const auto take = [&](int at, const char* name, int flags) {
        return out.take(at, name, takes_links ? AT_SYMLINK_NOFOLLOW : flags);
    };
    if (call_through_links(where, take) != 0)
        return where.code_of(errno);
    return check_ending(where, out.status().st_mode);
}

} // namespace

DWORD GetFileAttributesW(const WCHAR* path) {
    if (path && is_null_device(path))
        return FILE_ATTRIBUTE_ARCHIVE; // the platform's answer for a device's name
    DWORD attributes = INVALID_FILE_ATTRIBUTES;
    if (const DWORD code = read_attributes(path, attributes))
        return fail<DWORD>(code, INVALID_FILE_ATTRIBUTES);
    return attributes;
}

BOOL SetFileAttributesW(const WCHAR* path, DWORD attributes) {
    held_item item;
    const DWORD code = hold(path, false, item);
    return result_of(code ? code : item.write(attributes));
}

item_attributes::item_attributes(const WCHAR* path, DWORD flags) : item_(std::make_unique<held_item>()) {
    code_ = hold(path, flags & FILE_FLAG_OPEN_REPARSE_POINT, *item_);
}

item_attributes::~item_attributes() = default;

DWORD item_attributes::get() const {
    DWORD attributes = INVALID_FILE_ATTRIBUTES;
    const DWORD code = code_ ? code_ : item_->read(attributes);
    return code ? fail<DWORD>(code, INVALID_FILE_ATTRIBUTES) : attributes;
}

BOOL item_attributes::set(DWORD attributes) {
    return result_of(code_ ? code_ : item_->write(attributes));
}

} // namespace platform
