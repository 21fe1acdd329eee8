// Inside this folder: the spelling that a directory has for a name whose letters may be of another case.
#pragma once

#include <string>
#include <string_view>

#include "platform/core/descriptor.h"

namespace platform {

// The entry of an open directory that has the wanted name but for the case of letters: an exact match first, else the
// first in byte order. Empty, with errno, when there is none: ENOENT when no entry has that name, or the errno of a read
// that failed.
std::string find_spelling_in(descriptor directory, std::string_view wanted);

} // namespace platform
