// A program that the manager of services has started: what it says to the manager, and hears from it.
#pragma once

#include <filesystem>

#include "support/child.h"

namespace zu_test {

enum service_state : uint32_t { stopped = 1, start_pending, stop_pending, running };

// Puts this program into a directory, as service.exe, for services to run it, and makes the manager ready for it.
void put_service_program(const std::filesystem::path& directory);

// Runs a body as the service of this process. Its result is the exit code of the service.
int serve_as_service(int (*body)(const words&), const words& arguments);

// In the body. The hint is the time until the next report, in milliseconds; each report shows progress.
void report_state(service_state state, uint32_t hint);
bool is_told_to_stop(uint32_t within_ms);

} // namespace zu_test
