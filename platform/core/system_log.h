// Inside the layer: lines for the administrator of the machine, who reads them in the system log.
#pragma once

#include <string_view>

namespace platform {

// Sends one line, as an error of a background service, to the socket /dev/log. Never blocks; where nobody keeps a log,
// the line is lost. Leaves errno alone.
void write_system_log(std::string_view line);

} // namespace platform
