// zu-helper unit NAME: runs an installed service in the foreground, as the main process of a unit of systemd. The unit's
// control group does what the keeper does elsewhere.
// zu-helper ended NAME: run by systemd when that unit has ended, notes why, for what the first could not tell itself.
#include <signal.h>
#include <unistd.h>

#include <cstdlib>

#include "helper/helper.h"
#include "helper/manager_socket.h"
#include "helper/supervisor.h"
#include "platform/services/dependencies.h"
#include "platform/services/service_directory.h"
#include "platform/services/service_log.h"
#include "platform/services/service_run.h"
#include "platform/services/service_unit.h"
#include "platform/services/systemd.h"
#include "platform/text/utf8.h"

namespace zu_helper {

namespace {

namespace layer = platform;

// A service that this one depends on becomes a unit of its own: a process that is started here would end with this unit.
DWORD start_as_unit(layer::installed_service& needed, const manager_socket& manager) {
    layer::SERVICE_STATUS status;
    if (const DWORD code = needed.status(status);
        code != ERROR_SUCCESS || status.dwCurrentState != SERVICE_STOPPED)
        return code;
    const std::string unit = needed.unit();
    if (unit.empty())
        return ERROR_INVALID_NAME;
    manager.tell("STATUS=waiting for " + unit + "\nEXTEND_TIMEOUT_USEC=90000000");
    const DWORD started = layer::run_systemctl(manager.is_for_user(), {"start", "--", unit});
    const DWORD code = needed.status(status);
    if (code != ERROR_SUCCESS)
        return code;
    return status.dwCurrentState != SERVICE_STOPPED ? DWORD{ERROR_SUCCESS} : started;
}

DWORD prepare(layer::wide_view name, const manager_socket& manager, layer::begun_start& begun,
              descriptor& directory) {
    std::unique_ptr<layer::installed_service> service;
    DWORD code = layer::the_service_manager().open(name, service);
    if (code == ERROR_SUCCESS)
        code = layer::open_service_directory(name, directory);
    if (code == ERROR_SUCCESS)
        code = layer::check_record(*service);
    if (code == ERROR_SUCCESS)
        code = layer::start_needed(
            layer::the_service_manager(), service->record(),
            [&](layer::installed_service& needed) { return start_as_unit(needed, manager); });
    if (code == ERROR_SUCCESS)
        code = layer::begin_start(directory.get(), service->record(), begun);
    return code;
}

} // namespace

int unit(int count, char** arguments) {
    if (count != 1)
        return 2;
    sigset_t all;
    ::sigfillset(&all);
    ::sigprocmask(SIG_SETMASK, &all, nullptr);
    manager_socket manager;
    const std::u16string name = layer::wide_from(arguments[0]);
    layer::begun_start begun;
    descriptor directory;
    if (const DWORD code = prepare(name, manager, begun, directory); code != ERROR_SUCCESS) {
        layer::log_failed_start(name, "looking at it and at what it depends on", code);
        begun.lock.reset();
        if (directory)
            layer::store_failed_start(directory.get(), code);
        return 1;
    }
    const notify_place place(directory.get());
    int exit_status = 1;
    {
        supervisor service(directory.get(), begun.status.get(), &manager);
        const bool is_started = service.start(place.path()) == ERROR_SUCCESS;
        begun.lock.reset();
        if (is_started)
            exit_status = service.run();
    }
    layer::release_alive_byte(begun.status.get());
    begun.status.reset();
    layer::remove_if_deleted(directory.get());
    return exit_status;
}

int ended(int count, char** arguments) {
    const char* const result = std::getenv("SERVICE_RESULT");
    const char* const status = std::getenv("EXIT_STATUS"); // a number, or the name of a signal
    descriptor directory;
    if (count != 1 || !result)
        return 2;
    const std::u16string name = layer::wide_from(arguments[0]);
    if (layer::open_service_directory(name, directory) != ERROR_SUCCESS)
        return 0; // it was deleted
    const notify_place place(directory.get());
    ::unlink(place.path().c_str()); // left there by a helper that was killed
    layer::note_end_of_unit(directory.get(), layer::unit_of(name), result,
                            status ? static_cast<DWORD>(std::atoi(status)) : 0);
    return 0;
}

} // namespace zu_helper
