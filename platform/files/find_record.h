// Inside this folder: the record that a search reports of an entry, made from the host's status.
#pragma once

#include <fcntl.h>
#include <sys/stat.h>

#include <string_view>

#include "platform/files/attributes.h"

namespace platform {

struct entry_status {
    DWORD attributes;
    FILETIME created;
    FILETIME accessed;
    FILETIME written;
    uint64_t size;
};

// Calls statx on the file that a path leads to, or with AT_SYMLINK_NOFOLLOW on a link at its end. 0, or -1 with errno.
int status_of(int at, const char* path, int flags, struct statx& out);

entry_status entry_of(const struct statx& status, const stored_attributes& stored);

void fill_find_data(std::string_view host_name, const entry_status& entry, WIN32_FIND_DATAW& out);

} // namespace platform
