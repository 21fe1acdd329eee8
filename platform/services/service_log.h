// Inside the layer: tells the administrator why a service did not start or run on.
#pragma once

#include <string_view>

#include "platform/api/base.h"

namespace platform {

// Writes one line to the system log: the service, the step that failed, and the code in words.
void log_failed_start(wide_view service, std::string_view step, DWORD code);

} // namespace platform
