// Inside the layer: the host's service manager, systemd, under which a service can run as the unit zu@NAME.service.
#pragma once

#include <unistd.h>

#include <initializer_list>
#include <string>

#include "platform/api/base.h"

namespace platform {

// The unit of a service, the same for all spellings of its name; empty for a name that no unit can have.
std::string unit_of(wide_view service_name);

// Whether systemd runs the services of this caller and this host directory by default. It does for root and the machine's
// own directory, if it runs and has the template of the units.
bool prefers_units();

// Runs systemctl, for the manager of the machine or of the user, and waits for it. The result is 0 if it succeeded, 5
// (ERROR_ACCESS_DENIED), 1053 (ERROR_SERVICE_REQUEST_TIMEOUT) if it failed or took more than thirty seconds, or the code
// of why it could not be started.
DWORD run_systemctl(bool for_user, std::initializer_list<std::string> arguments);

// The same, for the manager of this caller's own units.
inline DWORD run_systemctl(std::initializer_list<std::string> arguments) {
    return run_systemctl(geteuid() != 0, arguments);
}

// Whether the unit is in the failed state. What could not be asked is no failure of the unit: false.
bool has_failed(const std::string& unit);

} // namespace platform
