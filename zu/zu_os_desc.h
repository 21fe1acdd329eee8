// The wording of the operating-system description, apart from where the version comes from.
#pragma once

#include "zu/zu_support.h"

namespace zu {

// Appends the description of a version to a string. Without the extended fields the edition of an NT version is read
// from the registry; if that fails, the result is false with the code of the failed step.
bool describe_version(const platform::OSVERSIONINFOEXW& version, bool is_extended, ZU_s* out);

} // namespace zu
