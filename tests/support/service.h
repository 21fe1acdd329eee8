// A program that the manager of services has started: what it says to the manager, and hears from it.
#pragma once

#include "support/child.h"

namespace zu_test {

enum service_state : uint32_t { stopped = 1, start_pending, stop_pending, running };

// The command line of a service that is this program, playing a part with a directory to work in.
std::u16string service_command(const part& plays, const std::string& directory);

// Runs a body as the service of this process. Its result is the exit code of the service.
int serve_as_service(int (*body)(const words&), const words& arguments);

// In the body. The hint is the time until the next report, in milliseconds; each report shows progress.
void report_state(service_state state, uint32_t hint);
void wait_for_stop();

} // namespace zu_test
