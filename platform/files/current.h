// Inside this folder: where the process is.
#pragma once

#include <string>

#include "platform/api/base.h"

namespace platform {

// The host's working directory as a drive path, or as a network path where only a share leads there; without a
// separator at its end but that of a drive's root. 0, 3 (ERROR_PATH_NOT_FOUND) when it is on neither, or another code.
DWORD current_directory(std::u16string& out);

} // namespace platform
