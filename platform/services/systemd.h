// Inside the layer: the host's service manager, systemd, under which a service can run as the unit zu@NAME.service.
#pragma once

#include <unistd.h>

#include <initializer_list>
#include <string>

#include "platform/api/base.h"

namespace platform {

// The unit of a service, the same for all spellings of its name; empty for a name that no unit can have.
std::string unit_of(wide_view service_name);

// Whether services of this caller and this host directory are run by systemd unless the administrator says otherwise:
// those of root and the machine are, where systemd runs and has the template of their units.
bool prefers_units();

// Runs systemctl, for the manager of the machine or of the user, and waits for it. 0 when it has done its work, 5
// (ERROR_ACCESS_DENIED), 1053 (ERROR_SERVICE_REQUEST_TIMEOUT) when it has not in thirty seconds or has failed, or why it
// could not be started.
DWORD run_systemctl(bool for_user, std::initializer_list<std::string> arguments);

// The same for the manager that this caller's services are units of.
inline DWORD run_systemctl(std::initializer_list<std::string> arguments) {
    return run_systemctl(geteuid() != 0, arguments);
}

} // namespace platform
