// Inside this folder: what a search reports of one entry, from what the host says.
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

// The status of what a path leads to, or with AT_SYMLINK_NOFOLLOW of a link at its end: one call.
int status_of(int at, const char* path, int flags, struct statx& out);

entry_status entry_of(const struct statx& status, const stored_attributes& stored);

void fill_find_data(std::string_view host_name, const entry_status& entry, WIN32_FIND_DATAW& out);

} // namespace platform
