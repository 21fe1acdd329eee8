// Inside the layer: services that need others. A function that gives a code gives 0 when it has done its work.
#pragma once

#include <functional>

#include "platform/services/service_manager.h"

namespace platform {

// 1059 (ERROR_CIRCULAR_DEPENDENCY) when a service of this record would have to be started before itself.
DWORD check_for_circle(service_manager& manager, const service_record& record);

// Starts a service after those that it depends on.
DWORD start_with_dependencies(service_manager& manager, installed_service& service);

// 0 if a service can be started by its record: it is not being deleted, not disabled, and no driver.
DWORD check_record(const installed_service& service);

// Starts the services that one depends on. `start` begins to start one of them, unless that one is alive.
using start_function = std::function<DWORD(installed_service& needed)>;
DWORD start_needed(service_manager& manager, const service_record& record, const start_function& start);

// 1051 (ERROR_DEPENDENT_SERVICES_RUNNING) while a service that has not stopped depends on this one.
DWORD check_for_dependents(service_manager& manager, const service_record& record);

} // namespace platform
