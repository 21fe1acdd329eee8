// Inside the layer: the live status of a service, and who of it is alive.
//
// Each start makes a new file, which becomes `status` when the helper has taken it over. Two of its bytes are locked
// for as long as something lives, and the kernel takes the locks away whatever ends it:
//   - byte 0 by a description that the starter opens and the helper, the program and its children inherit: held means
//     that something of the service is alive;
//   - byte 1 by the helper's process: F_GETLK tells its pid.
// Others may read the file once both are locked. So nobody can place a lock of his own before that, and after it none
// that would matter. A program that has closed its descriptors is known by its pid and start time.
// The text of the file is what the helper last reported. It refines the state of what lives, and tells how the last
// run ended; it never says by itself that something lives.
#pragma once

#include "platform/core/descriptor.h"
#include "platform/services/process_identity.h"

namespace platform {

struct service_report {
    DWORD state = 0; // 0: none has been made
    DWORD exit_code = 0;
    DWORD specific_exit_code = 0;
    DWORD check_point = 0;
    DWORD wait_hint_ms = 0;
    DWORD made_at_ms = 0;    // the tick count
    int32_t descriptor = -1; // the fd under which the program inherits the locked description
    uint32_t gap = 0;        // the compiler's own would have any bytes
    process_identity program;
};

// The wait hint of a service that has asked for nothing.
inline constexpr DWORD usual_wait_hint_ms = 2000;

// A new status file for a start, with byte 0 locked, which nobody sees yet. Invalid, with errno, on failure.
descriptor new_status(int directory);

// Locks byte 1 for the calling process, which thereby becomes the helper. False with errno.
bool become_helper(int status);

// Lets everybody see a status in the place of the one before. False with errno.
bool publish_status(int directory, int status);

// Frees byte 0 for all who have inherited it: nothing of the service lives any more.
void release_alive_byte(int status);

// Notes in the report when it was made. False with errno.
bool write_report(int status, service_report& report);

struct service_life {
    bool is_alive = false;
    bool has_helper = false;
    pid_t helper = 0; // its pid; 0 when it has none here, as in another container
    service_report report;
};

// Looks at a service's directory over and over. Keeps the file open as long as it is the newest one.
class status_watch {
public:
    // 0, or why it cannot be told what lives.
    DWORD look(int directory, service_life& out);

private:
    descriptor file_;
};

// Kills the program, and every process that holds byte 0: what is left of a service whose helper was killed.
void end_leftovers(int directory, const service_report& report);

} // namespace platform
