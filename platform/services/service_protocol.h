// Inside the layer: the signal and the marks by which a service's helper and its callers understand each other. The
// status is in service_status.h.
#pragma once

#include <csignal>

namespace platform {

// The order to end the service.
inline constexpr int stop_signal = SIGTERM;

// Marks: empty files of a service's directory, which mean something by existing.
inline constexpr const char* reports_mark = "reports"; // the service has reported its state
inline constexpr const char* deleted_mark = "deleted"; // the service is marked for deletion
inline constexpr const char* restarts_mark =
    "restarts"; // it has ended, and the host's manager may start it again
bool has_mark(int directory, const char* mark);
bool set_mark(int directory, const char* mark); // false with errno: EEXIST when it is set
void clear_mark(int directory, const char* mark);

} // namespace platform
