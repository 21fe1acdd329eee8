// Inside the layer: this computer's name, and the names by which callers mean this computer.
#pragma once

#include <string>

#include "platform/api/system.h"

namespace platform {

// As GetComputerNameW gives it.
std::u16string computer_name();

// Whether a machine's name, with or without two backslashes in front, means this computer: null, "", ".", "localhost"
// and its own name do.
bool is_this_computer(const WCHAR* name);

} // namespace platform
