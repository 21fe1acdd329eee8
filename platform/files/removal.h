// Inside this folder: removing an entry of a directory, by its name there. `status` is that of the entry itself, a link
// for one. Each gives 0 or a code.
#pragma once

#include <sys/stat.h>

#include "platform/api/base.h"

namespace platform {

// As RemoveDirectoryW.
DWORD remove_directory_entry(int at, const char* name, const struct stat& status);

// As DeleteFileW. Of the status, the kind alone has to be right, and may be out of date.
DWORD delete_file_entry(int at, const char* name, struct stat& status);

} // namespace platform
