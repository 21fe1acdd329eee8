// Inside the layer: starting a service, telling its state, and reaching the helper that runs it.
#pragma once

#include <signal.h>

#include <string>

#include "platform/services/service_manager.h"
#include "platform/services/service_status.h"

namespace platform {

// What a service is, by its record and by what lives of it.
SERVICE_STATUS status_of(const service_record& record, const service_life& life);

// Starts the program of the service in a directory, under a helper. 0 once it runs; 1056 when something of it lives.
DWORD start_service(int directory);

// Passes a control on to the helper, and waits until it has acted on it.
DWORD control_service(int directory, DWORD control);

// Ends what is left of a service whose helper was killed. Its program dies with the helper; its program's children may
// not.
void finish_off_service(int directory);

// How the helper takes its orders.
inline constexpr int stop_signal = SIGTERM;
inline constexpr int pause_signal = SIGUSR1;
inline constexpr int continue_signal = SIGUSR2;

// Where a service sends its reports: a socket in a directory with a short name, since the host takes 107 bytes. In the
// folder for temporary files anybody could have made the directory: false, with errno, unless it is the caller's own.
bool make_socket_directory();
std::string notify_socket_path(int directory);
void remove_notify_socket(int directory);

} // namespace platform
