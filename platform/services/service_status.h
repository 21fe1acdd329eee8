// Inside this folder: the live status of a service, and who of it is alive.
//
// Each start makes a new file `status`. Two of its bytes are locked for as long as something lives, and the kernel
// takes the locks away whatever ends it:
//   - byte 0 by a description that the starter opens and the helper, the service and its children inherit: held means
//     that something of the service is alive;
//   - byte 1 by the helper's process: its holder is the helper, by its number.
// The text of the file is what the helper last reported. It refines the state of what lives, and tells how the last
// run ended; it never says by itself that something lives.
#pragma once

#include <sys/types.h>

#include "platform/api/services.h"
#include "platform/core/descriptor.h"

namespace platform {

struct service_report {
    DWORD state = 0; // 0: none has been made
    DWORD exit_code = 0;
    DWORD specific_exit_code = 0;
    DWORD check_point = 0;
    DWORD wait_hint_ms = 0;
    int32_t by_helper = 0;   // 1 once the helper has taken over from the starter
    int32_t descriptor = -1; // the number of the inherited description in every process of the service
};

// What a service asks for when it has said nothing.
inline constexpr DWORD usual_wait_hint_ms = 2000;

// A new status file for a start, with byte 0 locked and a first report: start-pending. Invalid, with errno, on failure.
descriptor new_status(int directory);

// Makes the calling process the helper.
bool become_helper(int status);

void write_report(int status, const service_report& report);

struct service_life {
    bool is_alive = false;
    bool has_helper = false;
    pid_t helper = 0; // its number here; 0 when it has none, as in another container
    service_report report;
};

// Looks at a service's directory over and over. Keeps the file open as long as it is the newest one.
class status_watch {
public:
    service_life look(int directory);

private:
    descriptor file_;
};

// Kills every process that holds byte 0: what is left of a service whose helper was killed.
void end_leftovers(int directory, const service_report& report);

} // namespace platform
