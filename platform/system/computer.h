// Inside the layer: this computer's name, and the names by which callers mean this computer.
#pragma once

#include <string>

#include "platform/api/system.h"

namespace platform {

// The name that GetComputerNameW gives.
std::u16string computer_name();

// Whether a machine's name means this computer, with or without two backslashes in front. Null, "", ".", "localhost" and
// the computer's own name do.
bool is_this_computer(const WCHAR* name);

} // namespace platform
