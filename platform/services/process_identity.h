// Inside this folder: which process a number meant, told apart from later processes with the same number.
#pragma once

#include <sys/types.h>

#include "platform/api/base.h"

namespace platform {

struct process_identity {
    int32_t number = 0;      // the pid; 0 for none
    uint32_t machine = 0;    // computed from what names this boot and this space of pids
    uint64_t start_time = 0; // since the boot, in ticks of the clock
};

// None where /proc does not tell.
process_identity identity_of(pid_t process);

// Whether that process lives. 0, or why it cannot be told.
DWORD find_process(const process_identity& wanted, bool& lives);

// Kills it if it lives.
void kill_process(const process_identity& wanted);

// pidfd_open and pidfd_send_signal, which the C library's header declares as functions of the other language.
int open_process(pid_t process);
int send_signal(int process, int signal);

} // namespace platform
