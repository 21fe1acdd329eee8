// The wording of the operating-system description, apart from where the version comes from.
#pragma once

#include "zu/zu_support.h"

namespace zu {

// Appends the description of a version to a string. Without the extended fields, an edition of the NT family is read
// from the registry: false, with the code of the failed step, when it is not there.
bool describe_version(const platform::OSVERSIONINFOEXW& version, bool is_extended, ZU_s* out);

} // namespace zu
