// The program of a service, by its command line.
#pragma once

#include <string>
#include <vector>

#include "platform/api/base.h"

namespace zu_helper {

// The words of a service's command line as the host takes them, its program by a path of the host. 0, or the code of why
// it cannot be started.
platform::DWORD find_program(platform::wide_view command_line, std::vector<std::string>& words);

} // namespace zu_helper
