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

// The item that attributes are read from: a name below a directory, or a descriptor. Attributes are written to
// descriptors alone: a name may have become another file's since its mode was read.
struct attribute_holder {
    int at;
    const char* name;     // null: `at` is the descriptor
    int flags = 0;        // AT_SYMLINK_NOFOLLOW: the name of a link is that of the link itself
    bool is_bare = false; // the descriptor was opened with O_PATH, and serves few calls
};

inline attribute_holder holder(int descriptor, bool is_bare = false) {
    return {descriptor, nullptr, 0, is_bare};
}
inline attribute_holder holder(const place& where) {
    return {where.directory(), where.name()};
}

struct stored_attributes {
    DWORD bits = 0;
    uint64_t created = 0; // a file time; 0: never set
};

// Reads what is stored, with a single system call for the usual file, which has nothing stored. 0 or a code; attributes
// that the caller may not read count as not stored.
DWORD read_stored(const attribute_holder& from, stored_attributes& out);

// The attribute bits alone.
DWORD read_stored_bits(const attribute_holder& from, DWORD& out);

// The attributes of an item with this mode; of a link, those of the link itself.
DWORD attributes_of(mode_t mode, DWORD stored_bits);

inline bool is_read_only(mode_t mode) {
    return !S_ISDIR(mode) && !S_ISLNK(mode) && (mode & 0222) == 0;
}

// Whether such a file can have extended attributes of ours at all.
inline bool can_store(mode_t mode) {
    return S_ISREG(mode) || S_ISDIR(mode);
}

// Gives a descriptor's file or directory, which has this mode, new attributes. 0 or a code, with nothing changed: 50
// (ERROR_NOT_SUPPORTED) where the file system cannot keep them, 120 (ERROR_CALL_NOT_IMPLEMENTED) where /proc would be
// needed and is not there.
DWORD write_attributes(const attribute_holder& to, mode_t mode, DWORD attributes);

// Sets the creation time (0: that of the file system again). 0 or a code.
DWORD write_created(const attribute_holder& to, mode_t mode, uint64_t created);

// Sets the times of access and modification, as utimensat takes them. 0 or a code.
DWORD write_host_times(const attribute_holder& to, const timespec (&times)[2]);

} // namespace platform
