// Inside this folder: the identity of a process, which tells it from later processes with the same pid.
#pragma once

#include <sys/types.h>

#include "platform/api/base.h"

namespace platform {

struct process_identity {
    int32_t number = 0;      // the pid; 0 for none
    uint32_t machine = 0;    // computed from the boot's identifier and the pid namespace
    uint64_t start_time = 0; // clock ticks since the boot
};

// The identity of a process; none if /proc does not show it.
process_identity identity_of(pid_t process);

// Finds out whether that process lives. The result is 0, or the code of why it cannot be told.
DWORD find_process(const process_identity& wanted, bool& lives);

// Kills that process if it lives.
void kill_process(const process_identity& wanted);

// pidfd_open and pidfd_send_signal, which the C library's header declares as functions of the other language.
int open_process(pid_t process);
int send_signal(int process, int signal);

} // namespace platform
