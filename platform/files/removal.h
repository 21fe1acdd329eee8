// Inside this folder: removing an entry of a directory, by its name there. `status` is that of the entry itself, for
// a link that of the link. Each gives 0 or a code.
#pragma once

#include <sys/stat.h>

#include "platform/api/base.h"

namespace platform {

// As RemoveDirectoryW.
DWORD remove_directory_entry(int at, const char* name, const struct stat& status);

// As DeleteFileW. On entry only the kind of file in `status` counts, and it may be out of date.
DWORD delete_file_entry(int at, const char* name, struct stat& status);

} // namespace platform
