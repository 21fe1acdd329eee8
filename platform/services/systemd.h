// Inside the layer: the host's service manager, systemd, under which a service can run as the unit zu@NAME.service.
#pragma once

#include <initializer_list>
#include <string>

#include "platform/api/base.h"

namespace platform {

inline constexpr size_t longest_unit = 255; // systemd's own limit for a unit's name

// The unit of a service, the same for all spellings of its name; empty for a name that no unit can have.
std::string unit_of(wide_view service_name);

// Whether systemd runs this machine, and what is kept in the standard host directory is that of the whole machine.
bool runs_this_machine();

// Whether systemd runs the services that this caller installs, unless the administrator has decided. It does for root, if
// it runs the machine and has the template of the units, which names a helper that is there.
bool prefers_units();

// Runs systemctl, for the manager of the machine or of the user, and waits for it. The result is 0 if it succeeded, 5
// (ERROR_ACCESS_DENIED), 1053 (ERROR_SERVICE_REQUEST_TIMEOUT) if it failed or took more than thirty seconds, or the code
// of why it could not be started.
DWORD run_systemctl(bool for_user, std::initializer_list<std::string> arguments);

// The same for what it prints. 1722 (RPC_S_SERVER_UNAVAILABLE) if it failed or took more than ten seconds.
DWORD ask_systemctl(bool for_user, std::initializer_list<std::string> arguments, std::string& output);

} // namespace platform
