// Inside this folder: keeping everybody away from a file while it is deleted, moved or replaced.
#pragma once

#include <sys/stat.h>

#include "platform/core/descriptor.h"
#include "platform/files/place.h"
#include "platform/files/sharing.h"

namespace platform {

// Holds a claim on all use of a file's data until the end of the scope. An opener that claims
// the file later looks whether the file still has its name.
class hold {
public:
    hold() = default;
    ~hold() { reset(); }
    hold(const hold&) = delete;
    hold& operator=(const hold&) = delete;

    // 0 with the status of the entry that is now held, for a link that of the link itself; 32 (ERROR_SHARING_VIOLATION)
    // when a handle is open, or another code. Directories, links and special files have no data to claim, and a file
    // that may not be opened at all is left to the host's permissions.
    DWORD take(place& where, struct stat& status);

    // The same for an entry of a directory. On entry only the kind of file in `status` counts, and it may be out of
    // date.
    DWORD take(int at, const char* name, struct stat& status);

    // The file is gone for everybody: closing is enough, even while a forked child has a copy of the descriptor.
    void forget() { has_claim_ = false; }

    void reset();

private:
    // False when the name has become another file's.
    bool try_take(int at, const char* name, struct stat& status, DWORD& code);
    DWORD claim(const descriptor_rights& rights);

    descriptor descriptor_;
    bool has_claim_ = false;
};

} // namespace platform
