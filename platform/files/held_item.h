// Inside this folder: an item of the file system that is held by a descriptor. It is looked at, changed and put back by
// that descriptor, so it stays the same item even when its path comes to name another.
#pragma once

#include "platform/core/descriptor.h"
#include "platform/files/attributes.h"

namespace platform {

class held_item {
public:
    // Takes the item that the name leads to, or with AT_SYMLINK_NOFOLLOW a link itself. 0, or -1 with errno.
    int take(int at, const char* name, int flags);

    const struct stat& status() const { return status_; }
    attribute_holder holder() const { return platform::holder(descriptor_.get(), is_bare_); }

    // As GetFileAttributesW and SetFileAttributesW: 0 or a code.
    DWORD read(DWORD& attributes) const;
    DWORD write(DWORD attributes);

private:
    descriptor descriptor_;
    bool is_bare_ = true;
    struct stat status_ = {};
};

// Makes a call on the item that a path leads to, and for a link that leads nowhere (to nothing, in a circle, through a
// file) on the link itself: call(directory, name, flags) gives -1 and errno when it fails.
template <class Call>
int call_through_links(place& where, Call call) {
    int flags = 0;
    const auto made = [&](int at, const char* name) { return call(at, name, flags); };
    const int result = where.attempt(made);
    if (result >= 0 || (errno != ENOENT && errno != ELOOP && errno != ENOTDIR && errno != ENAMETOOLONG))
        return result;
    flags = AT_SYMLINK_NOFOLLOW;
    return where.attempt(made);
}

} // namespace platform
