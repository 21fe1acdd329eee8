// Inside the layer: the directory of an installed service, in `services` of the host directory.
//
//     .lock              held while services are added or removed (service_lock.h)
//     .manager           says "helper" or "systemd": what runs the services that are installed from now on
//     .new, .gone        a service on its way in or out: only a whole one has its name
//     <name>/record      what was installed; never changed. Every open handle holds a reader's lock on it
//     <name>/status      what lives (service_status.h); replaced by every start
//     <name>/start       locked by its starter, and by the helper until it has answered
//     <name>/order       locked by the starter of a unit, whose helper takes `start`
//     <name>/reports     exists once the service has reported its state (service_protocol.h)
//     <name>/restarts    exists when the host's manager may start the service again, which has ended, by a rule
//     <name>/deleted     exists once it is marked for deletion
#pragma once

#include <string>

#include "platform/core/descriptor.h"
#include "platform/services/service_record.h"

namespace platform {

// The record of a directory. 0, 1060 (ERROR_SERVICE_DOES_NOT_EXIST) when there is none, 13 (ERROR_INVALID_DATA) when it
// is damaged, or why it could not be read.
DWORD read_service(int directory, service_record& out);

// The directory of an installed service. 0, 1060, or why it could not be opened.
DWORD open_service_directory(wide_view name, descriptor& out);

// Removes a service that is marked for deletion, unless something of it lives or somebody has it open. `path` is the
// directory of all services.
void remove_if_unused(const std::string& path, const std::string& directory_name);

// The same for the service of an open directory, by its last process.
void remove_if_deleted(int directory);

} // namespace platform
