// Inside the layer: starting a service, telling its state, and reaching the helper that runs it. A function that gives
// a code gives 0 when it has done its work.
#pragma once

#include <optional>

#include "platform/api/services.h"
#include "platform/services/service_lock.h"
#include "platform/services/service_record.h"
#include "platform/services/service_status.h"

namespace platform {

// The status that a service has by its record and by what lives of it.
SERVICE_STATUS status_of(const service_record& record, const service_life& life);

// Whether a starter that has taken its lock may go on. 1056 (ERROR_SERVICE_ALREADY_RUNNING) when another has the lock, or
// something of the service lives.
DWORD check_start(int directory, const service_lock& lock);

// A start that has been begun: nobody else can start the service before the lock is given back.
struct begun_start {
    std::optional<service_lock> lock;
    descriptor status;
};

// Begins to start the service of a directory. 1056 (ERROR_SERVICE_ALREADY_RUNNING) when something of it lives or it is
// being started.
DWORD begin_start(int directory, const service_record& record, begun_start& out);

// Starts the program of the service in a directory, under a helper. 1056 (ERROR_SERVICE_ALREADY_RUNNING) when something
// of it lives or it is being started.
DWORD start_service(int directory, const service_record& record);

// Orders the helper to stop the service, and waits until it has begun to.
DWORD stop_service(int directory);

// Waits until a helper that has been told to stop has begun to. 1053 when it does not.
DWORD wait_for_stop(int directory, status_watch& watch, const service_life& told);

// Ends what is left of a service whose helper was killed, unless the helper's keeper does.
DWORD finish_off_service(int directory);

} // namespace platform
