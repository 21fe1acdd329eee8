// Inside the layer: the live status of a service, and which of its processes live.
//
// Each start makes a new file, which becomes `status` when the helper has taken it over. Two of its bytes are locked as
// long as something lives. The kernel removes the locks of processes that end, also of killed ones.
//   - Byte 0 is locked by an open file description that the starter makes and that the helper, the program and its
//     children inherit. While it is locked, something of the service is alive.
//   - Byte 1 is locked by the helper's process: F_GETLK tells its pid.
// Other users can open the file only after both are locked, and only for reading. So they can place nothing but read
// locks, which do not count. A program that has closed its descriptors is known by its pid and start time.
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
    uint32_t gap = 0;        // in place of padding, whose bytes would be undefined
    process_identity program;
};

// The wait hint of a service that has asked for nothing.
inline constexpr DWORD usual_wait_hint_ms = 2000;

// A new status file for a start, with byte 0 locked. Nobody else sees it yet. Invalid, with errno, on failure.
descriptor new_status(int directory);

// Locks byte 1 for the calling process, which thereby becomes the helper. False with errno.
bool become_helper(int status);

// Puts a status file in the place of the one before, where everybody sees it. False with errno.
bool publish_status(int directory, int status);

// Puts a status file in the place of the one before that tells why the service has not run.
void publish_failure(int directory, int status, DWORD exit_code, DWORD specific_exit_code = 0);

// Frees byte 0 for all who have inherited it: nothing of the service lives any more.
void release_alive_byte(int status);

// Writes a report, with the time of writing. False with errno.
bool write_report(int status, service_report& report);

struct service_life {
    bool is_alive = false;
    bool has_helper = false;
    pid_t helper = 0; // the helper's pid; 0 if it has none here, as in another container
    service_report report;
};

// Looks at a service's directory over and over. Keeps the file open as long as it is the newest one.
class status_watch {
public:
    // Finds out what lives. The result is 0, or the code of why that cannot be told.
    DWORD look(int directory, service_life& out);

private:
    descriptor file_;
};

// Kills the program, and every process that holds byte 0: what is left of a service whose helper was killed.
void end_leftovers(int directory, const service_report& report);

} // namespace platform
