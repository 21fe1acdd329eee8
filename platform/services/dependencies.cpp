// The order in which services are started, and the circles that it must not have.
#include "platform/services/dependencies.h"

#include <algorithm>

#include "platform/api/threads.h"
#include "platform/services/service_log.h"

namespace platform {

namespace {

constexpr DWORD program_types = SERVICE_WIN32_OWN_PROCESS | SERVICE_WIN32_SHARE_PROCESS;

bool names_it(const std::vector<std::u16string>& names, wide_view wanted) {
    return std::any_of(names.begin(), names.end(),
                       [&](const std::u16string& name) { return same_service_name(name, wanted); });
}

// Waits while a service starts, as long as it reports progress within the time that it asks for. 1068
// (ERROR_SERVICE_DEPENDENCY_FAIL) if it does not run after that.
DWORD wait_until_it_runs(installed_service& service) {
    DWORD check_point = 0, pause_ms = 10;
    for (DWORD progress = GetTickCount();; Sleep(pause_ms), pause_ms = std::min<DWORD>(2 * pause_ms, 160)) {
        SERVICE_STATUS status;
        if (const DWORD code = service.status(status); code != ERROR_SUCCESS)
            return code;
        if (status.dwCurrentState == SERVICE_RUNNING)
            return ERROR_SUCCESS;
        if (status.dwCheckPoint > check_point) {
            check_point = status.dwCheckPoint;
            progress = GetTickCount();
        }
        if (status.dwCurrentState != SERVICE_START_PENDING || GetTickCount() - progress > status.dwWaitHint)
            return ERROR_SERVICE_DEPENDENCY_FAIL;
    }
}

// Starts a service that another needs. A failure is 1075 (ERROR_SERVICE_DEPENDENCY_DELETED) if it is missing, and 1068
// for every other reason.
DWORD start_dependency(service_manager& manager, wide_view name, const start_function& start) {
    std::unique_ptr<installed_service> needed;
    DWORD code = manager.open(name, needed);
    if (code != ERROR_SUCCESS)
        return code == ERROR_SERVICE_DOES_NOT_EXIST ? ERROR_SERVICE_DEPENDENCY_DELETED : code;
    code = start(*needed);
    if (code == ERROR_SERVICE_DEPENDENCY_DELETED)
        return code;
    if (code != ERROR_SUCCESS && code != ERROR_SERVICE_ALREADY_RUNNING)
        return ERROR_SERVICE_DEPENDENCY_FAIL;
    return wait_until_it_runs(*needed);
}

} // namespace

DWORD check_for_circle(service_manager& manager, const service_record& record) {
    std::vector<std::u16string> needed = record.dependencies; // grows by their own dependencies
    for (size_t i = 0; i < needed.size(); ++i) {
        if (same_service_name(needed[i], record.name))
            return ERROR_CIRCULAR_DEPENDENCY;
        service_record next;
        const DWORD code = manager.find(needed[i], next);
        if (code != ERROR_SUCCESS && code != ERROR_SERVICE_DOES_NOT_EXIST)
            return code;
        for (const std::u16string& name : next.dependencies) {
            if (!names_it(needed, name))
                needed.push_back(name);
        }
    }
    return ERROR_SUCCESS;
}

DWORD check_record(const installed_service& service) {
    const service_record& record = service.record();
    if (service.is_marked())
        return ERROR_SERVICE_MARKED_FOR_DELETE;
    if (record.start_type == SERVICE_DISABLED)
        return ERROR_SERVICE_DISABLED;
    if (!(record.type & program_types))
        return ERROR_BAD_EXE_FORMAT; // a driver
    return ERROR_SUCCESS;
}

DWORD start_needed(service_manager& manager, const service_record& record, const start_function& start) {
    DWORD code = check_for_circle(manager, record);
    for (size_t i = 0; code == ERROR_SUCCESS && i < record.dependencies.size(); ++i)
        code = start_dependency(manager, record.dependencies[i], start);
    return code;
}

DWORD start_with_dependencies(service_manager& manager, installed_service& service) {
    SERVICE_STATUS status = {};
    DWORD code = check_record(service);
    if (code == ERROR_SUCCESS)
        code = service.finish_off();
    if (code == ERROR_SUCCESS)
        code = service.status(status);
    if (code == ERROR_SUCCESS && status.dwCurrentState != SERVICE_STOPPED)
        code = ERROR_SERVICE_ALREADY_RUNNING;
    if (code == ERROR_SUCCESS)
        code = start_needed(manager, service.record(), [&](installed_service& needed) {
            return start_with_dependencies(manager, needed);
        });
    if (code == ERROR_SUCCESS)
        return service.start();
    if (code != ERROR_SERVICE_ALREADY_RUNNING)
        log_failed_start(service.record().name, "looking at it and at what it depends on", code);
    return code;
}

DWORD check_for_dependents(service_manager& manager, const service_record& record) {
    std::vector<service_record> all;
    if (const DWORD code = manager.all(all); code != ERROR_SUCCESS)
        return code;
    for (const service_record& other : all) {
        if (!names_it(other.dependencies, record.name))
            continue;
        std::unique_ptr<installed_service> dependent;
        SERVICE_STATUS status = {};
        DWORD code = manager.open(other.name, dependent);
        if (code == ERROR_SERVICE_DOES_NOT_EXIST)
            continue; // the service was removed after it was listed
        if (code == ERROR_SUCCESS)
            code = dependent->status(status);
        if (code != ERROR_SUCCESS)
            return code;
        if (status.dwCurrentState != SERVICE_STOPPED)
            return ERROR_DEPENDENT_SERVICES_RUNNING;
    }
    return ERROR_SUCCESS;
}

} // namespace platform
