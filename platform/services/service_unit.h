// Inside the layer: a service as a unit of the host's manager, which starts and stops it. While something of it lives, its
// status is that of every service; only where nothing does, the manager is asked. A function that gives a code gives 0
// when it has done its work.
#pragma once

#include <string>

#include "platform/api/services.h"
#include "platform/services/service_record.h"

namespace platform {

// Whether the units of a service's directory are those of a user's manager, not of the machine's.
bool is_of_users_manager(int directory);

// Whether a unit of which nothing lives may still be about to end or to start again, so that the manager has to be asked.
bool may_be_up(int directory, const std::string& unit);

// The manager needs a moment to see the end of a unit of which nothing lives. Waits for it, but not for ever, nor for the
// end of what somebody starts meanwhile.
void wait_until_ended(int directory, const std::string& unit);

// Starts the service. 2 (ERROR_FILE_NOT_FOUND) if there is no helper, 1053 (ERROR_SERVICE_REQUEST_TIMEOUT) if the unit
// fails in another way.
DWORD start_unit(int directory, const service_record& record);
DWORD stop_unit(int directory, const service_record& record);

// Stores the code of a start that the helper has refused. Nothing of the service lives, or this does nothing.
void store_failed_start(int directory, DWORD code);

// Stores why the service has ended by the manager's own result, where its helper could not, and whether the manager may
// start it again by a rule.
void note_end_of_unit(int directory, const std::string& unit, std::string_view result, DWORD exit_status);

} // namespace platform
