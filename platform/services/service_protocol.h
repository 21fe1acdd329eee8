// Inside the layer: what the helper of a service and those who start and stop it agree on, beside the status.
#pragma once

#include <csignal>

namespace platform {

// The order to end the service.
inline constexpr int stop_signal = SIGTERM;

// Files of a service's directory that exist or do not.
inline constexpr const char* reports_mark = "reports"; // the service has reported its state
inline constexpr const char* deleted_mark = "deleted"; // it is to be removed
bool has_mark(int directory, const char* mark);
bool set_mark(int directory, const char* mark); // false with errno: EEXIST when it is set
void clear_mark(int directory, const char* mark);

} // namespace platform
