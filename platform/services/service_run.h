// Inside this folder: starting a service, telling its state, and reaching the helper that runs it. A function that gives
// a code gives 0 when it has done its work.
#pragma once

#include "platform/api/services.h"
#include "platform/services/service_record.h"
#include "platform/services/service_status.h"

namespace platform {

// The status that a service has by its record and by what lives of it.
SERVICE_STATUS status_of(const service_record& record, const service_life& life);

// Starts the program of the service in a directory, under a helper. 1056 (ERROR_SERVICE_ALREADY_RUNNING) when something
// of it lives or it is being started.
DWORD start_service(int directory, const service_record& record);

// Orders the helper to stop the service, and waits until it has begun to.
DWORD stop_service(int directory);

// Ends what is left of a service whose helper was killed, unless that happens by itself.
DWORD finish_off_service(int directory);

} // namespace platform
