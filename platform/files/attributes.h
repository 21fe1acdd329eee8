// Inside this folder: the platform's attributes and creation times on files of the host.
//
//   - read-only is a file without any write permission; the layer enforces it, also for root;
//   - the other bits, and a directory's read-only, lie in the extended attribute user.DOSATTRIB, as text (`0x22`), where
//     file servers keep them too;
//   - the creation time is the file system's birth time, or user.zu.created once it has been set.
#pragma once

#include <sys/stat.h>

#include <cstdint>

#include "platform/files/place.h"

namespace platform {

// What has extended attributes: a path below a directory, or without one the descriptor itself. A link is followed, so
// ask for the links themselves first.
struct attribute_holder {
    int at;
    const char* path;
};

inline attribute_holder holder(int descriptor) {
    return {descriptor, nullptr};
}
inline attribute_holder holder(const char* path) {
    return {AT_FDCWD, path};
}
inline attribute_holder holder(const place& where) {
    return {where.directory(), where.name()};
}

struct stored_attributes {
    DWORD bits = 0;
    uint64_t created = 0; // a file time; 0: never set
};

// One call when nothing is stored, as is the rule.
stored_attributes read_stored(const attribute_holder& from);

// The attribute bits alone.
DWORD read_stored_bits(const attribute_holder& from);

// The attributes of a file or directory with this mode.
DWORD attributes_of(mode_t mode, DWORD stored_bits);

inline bool is_read_only(mode_t mode) {
    return !S_ISDIR(mode) && !S_ISLNK(mode) && (mode & 0222) == 0;
}

// Whether such a file can have extended attributes of ours at all.
inline bool can_store(mode_t mode) {
    return S_ISREG(mode) || S_ISDIR(mode);
}

// Gives a file or directory with this mode new attributes. 0 or a code, with nothing changed: 50 where the file
// system cannot keep them.
DWORD write_attributes(const attribute_holder& to, mode_t mode, DWORD attributes);

// Sets the creation time (0: that of the file system again). 0 or a code.
DWORD write_created(const attribute_holder& to, mode_t mode, uint64_t created);

} // namespace platform
