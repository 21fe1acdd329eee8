// Items that are held by a descriptor.
#include "platform/files/held_item.h"

#include <fcntl.h>
#include <sys/stat.h>

#include "platform/core/error.h"
#include "platform/core/retry.h"
#include "platform/files/same_file.h"

namespace platform {

int held_item::take(int at, const char* name, int flags) {
    const int link_flag = flags & AT_SYMLINK_NOFOLLOW ? O_NOFOLLOW : 0;
    descriptor_ = descriptor(openat(at, name, O_PATH | O_CLOEXEC | link_flag));
    is_bare_ = true;
    if (!descriptor_ || fstat(descriptor_.get(), &status_) != 0)
        return -1;
    if (!can_store(status_.st_mode))
        return 0;
    // A descriptor for reading, where the user may have one, serves all calls and needs no /proc.
    descriptor readable(
        retried([&] { return openat(at, name, O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC | link_flag); }));
    struct stat other;
    if (readable && fstat(readable.get(), &other) == 0 && is_same(status_, other)) {
        descriptor_ = std::move(readable);
        is_bare_ = false;
    }
    return 0;
}

DWORD held_item::read(DWORD& attributes) const {
    DWORD stored = 0;
    DWORD code = ERROR_SUCCESS;
    if (can_store(status_.st_mode))
        code = read_stored_bits(holder(), stored);
    attributes = attributes_of(status_.st_mode, stored);
    return code;
}

DWORD held_item::write(DWORD attributes) {
    if (S_ISLNK(status_.st_mode))
        return ERROR_NOT_SUPPORTED;
    const DWORD code = write_attributes(holder(), status_.st_mode, attributes);
    return fstat(descriptor_.get(), &status_) == 0 || code != ERROR_SUCCESS ? code : code_of_errno(errno);
}

} // namespace platform
