// The program of a service, by its command line.
#pragma once

#include <string>
#include <vector>

#include "platform/api/base.h"

namespace zu_helper {

// Splits a service's command line into words for execve; the first is the program's path on the host. The result is 0, or
// the code of why the program cannot be started.
platform::DWORD find_program(platform::wide_view command_line, std::vector<std::string>& words);

} // namespace zu_helper
