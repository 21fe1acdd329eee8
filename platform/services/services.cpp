// The service calls: handles, rights, arguments, and the rules about dependencies, over a manager of services.
#include <strings.h>

#include <algorithm>

#include "platform/api/threads.h"
#include "platform/core/error.h"
#include "platform/core/handle.h"
#include "platform/services/service_manager.h"
#include "platform/system/computer.h"

namespace platform {

namespace {

constexpr size_t longest_name = 256;
constexpr DWORD program_types = SERVICE_WIN32_OWN_PROCESS | SERVICE_WIN32_SHARE_PROCESS;
constexpr DWORD interactive = 0x100;
constexpr DWORD delete_right = 0x10000;

// What anybody may ask for: queries, and no change.
constexpr DWORD rights_to_read_manager = 0x20000 | SC_MANAGER_CONNECT | 0x4 | 0x10;
constexpr DWORD rights_to_read_service = 0x20000 | SERVICE_QUERY_CONFIG | SERVICE_QUERY_STATUS
                                         | SERVICE_ENUMERATE_DEPENDENTS | SERVICE_INTERROGATE;

class manager_handle : public object {
public:
    static constexpr object_kind kind{};
    explicit manager_handle(DWORD granted) : object(kind), rights(granted) {}

    const DWORD rights;
};

class service_handle : public object {
public:
    static constexpr object_kind kind{};
    service_handle(std::unique_ptr<installed_service> opened, DWORD granted)
        : object(kind), service(std::move(opened)), rights(granted) {}

    DWORD close() override {
        service.reset();
        return ERROR_SUCCESS;
    }

    std::unique_ptr<installed_service> service;
    const DWORD rights;
};

// The object of a handle that has these rights; null, with 6 or 5.
template <class T>
T* with_rights(SC_HANDLE handle, DWORD wanted) {
    T* const found = object_of<T>(handle);
    if (found && (found->rights & wanted) != wanted) {
        SetLastError(ERROR_ACCESS_DENIED);
        return nullptr;
    }
    return found;
}

// 0, 487 for null, or 123 for what can be no service's name.
DWORD code_of_name(const WCHAR* name) {
    if (!name)
        return ERROR_INVALID_ADDRESS;
    const wide_view text = name;
    const bool is_name =
        !text.empty() && text.size() <= longest_name && text.find_first_of(u"/\\") == wide_view::npos;
    return is_name ? ERROR_SUCCESS : ERROR_INVALID_NAME;
}

bool is_type(DWORD type, DWORD start_type) {
    const bool is_driver = type == 1 || type == 2 || type == 8;
    const DWORD program = type & ~interactive;
    const bool is_program = program == SERVICE_WIN32_OWN_PROCESS || program == SERVICE_WIN32_SHARE_PROCESS;
    // Drivers alone can start before there are programs.
    return (is_driver || is_program) && start_type <= SERVICE_DISABLED
           && (is_driver || start_type >= SERVICE_AUTO_START);
}

// Names one after another, each ended by a zero and all by another.
std::vector<std::u16string> split_list(const WCHAR* list) {
    std::vector<std::u16string> names;
    for (; list && *list; list += names.back().size() + 1)
        names.emplace_back(list);
    return names;
}

bool reaches(service_manager& manager, const service_record& from, wide_view wanted,
             std::vector<std::u16string>& seen) {
    return std::any_of(from.dependencies.begin(), from.dependencies.end(), [&](const std::u16string& name) {
        if (same_service_name(name, wanted))
            return true;
        const auto is_it = [&](const std::u16string& other) { return same_service_name(name, other); };
        if (std::any_of(seen.begin(), seen.end(), is_it))
            return false;
        seen.push_back(name);
        service_record next;
        return manager.find(name, next) && reaches(manager, next, wanted, seen);
    });
}

bool is_pending(DWORD state) {
    return state == SERVICE_START_PENDING || state == SERVICE_STOP_PENDING || state == SERVICE_PAUSE_PENDING
           || state == SERVICE_CONTINUE_PENDING;
}

// Waits while a service starts, for as long as it reports progress within the time that it asks for.
bool runs_in_time(installed_service& service) {
    SERVICE_STATUS status = service.status();
    DWORD check_point = status.dwCheckPoint;
    for (DWORD progress = GetTickCount(); status.dwCurrentState == SERVICE_START_PENDING;
         status = service.status()) {
        if (status.dwCheckPoint > check_point) {
            check_point = status.dwCheckPoint;
            progress = GetTickCount();
        } else if (GetTickCount() - progress > status.dwWaitHint) {
            break;
        }
        Sleep(10);
    }
    return status.dwCurrentState == SERVICE_RUNNING;
}

DWORD start_with_dependencies(installed_service& service);

// 0 once all that a service depends on runs.
DWORD start_dependencies(const service_record& record) {
    for (const std::u16string& name : record.dependencies) {
        DWORD code;
        const auto needed = the_service_manager().open(name, code);
        if (!needed)
            return ERROR_SERVICE_DEPENDENCY_DELETED;
        code = start_with_dependencies(*needed);
        if (code == ERROR_SERVICE_DEPENDENCY_DELETED)
            return code;
        if ((code != ERROR_SUCCESS && code != ERROR_SERVICE_ALREADY_RUNNING) || !runs_in_time(*needed))
            return ERROR_SERVICE_DEPENDENCY_FAIL;
    }
    return ERROR_SUCCESS;
}

DWORD start_with_dependencies(installed_service& service) {
    const service_record& record = service.record();
    if (service.is_marked())
        return ERROR_SERVICE_MARKED_FOR_DELETE;
    if (record.start_type == SERVICE_DISABLED)
        return ERROR_SERVICE_DISABLED;
    if (!(record.type & program_types))
        return ERROR_BAD_EXE_FORMAT; // a driver
    service.finish_off();
    if (service.status().dwCurrentState != SERVICE_STOPPED)
        return ERROR_SERVICE_ALREADY_RUNNING;
    if (depends_on_itself(the_service_manager(), record))
        return ERROR_CIRCULAR_DEPENDENCY;
    const DWORD code = start_dependencies(record);
    return code != ERROR_SUCCESS ? code : service.start();
}

bool is_needed(const installed_service& service) {
    const std::vector<service_record> all = the_service_manager().all();
    return std::any_of(all.begin(), all.end(), [&](const service_record& other) {
        const auto is_it = [&](const std::u16string& name) {
            return same_service_name(name, service.record().name);
        };
        if (std::none_of(other.dependencies.begin(), other.dependencies.end(), is_it))
            return false;
        DWORD code;
        const auto dependent = the_service_manager().open(other.name, code);
        return dependent && dependent->status().dwCurrentState != SERVICE_STOPPED;
    });
}

// The right that a control needs; 0 for what is no control.
DWORD right_to(DWORD control) {
    switch (control) {
    case SERVICE_CONTROL_STOP: return SERVICE_STOP;
    case SERVICE_CONTROL_PAUSE:
    case SERVICE_CONTROL_CONTINUE: return SERVICE_PAUSE_CONTINUE;
    case SERVICE_CONTROL_INTERROGATE: return SERVICE_INTERROGATE;
    default: return control >= 128 && control <= 255 ? SERVICE_USER_DEFINED_CONTROL : 0;
    }
}

DWORD pass_on(installed_service& service, DWORD control, const SERVICE_STATUS& status) {
    if (status.dwCurrentState == SERVICE_STOPPED)
        return ERROR_SERVICE_NOT_ACTIVE;
    if (control == SERVICE_CONTROL_INTERROGATE)
        return ERROR_SUCCESS;
    if (is_pending(status.dwCurrentState))
        return ERROR_SERVICE_CANNOT_ACCEPT_CTRL;
    if (control > SERVICE_CONTROL_CONTINUE)
        return ERROR_INVALID_SERVICE_CONTROL; // of the service's own, and none has any
    if (control == SERVICE_CONTROL_STOP && is_needed(service))
        return ERROR_DEPENDENT_SERVICES_RUNNING;
    const DWORD done = control == SERVICE_CONTROL_PAUSE ? SERVICE_PAUSED : SERVICE_RUNNING;
    return control != SERVICE_CONTROL_STOP && status.dwCurrentState == done ? ERROR_SUCCESS
                                                                            : service.control(control);
}

} // namespace

bool depends_on_itself(service_manager& manager, const service_record& record) {
    std::vector<std::u16string> seen;
    return reaches(manager, record, record.name, seen);
}

SC_HANDLE OpenSCManagerW(const WCHAR* machine, const WCHAR* database, DWORD access) {
    if (!is_this_computer(machine)) {
        SetLastError(RPC_S_SERVER_UNAVAILABLE);
        return nullptr;
    }
    if (database && *database && !same_service_name(database, u"ServicesActive")) {
        SetLastError(ERROR_DATABASE_DOES_NOT_EXIST);
        return nullptr;
    }
    if ((access & ~rights_to_read_manager) != 0 && !the_service_manager().may_create()) {
        SetLastError(ERROR_ACCESS_DENIED);
        return nullptr;
    }
    return new_handle(new (std::nothrow) manager_handle(access | SC_MANAGER_CONNECT));
}

SC_HANDLE OpenServiceW(SC_HANDLE manager, const WCHAR* name, DWORD access) {
    if (!with_rights<manager_handle>(manager, SC_MANAGER_CONNECT))
        return nullptr;
    DWORD code = code_of_name(name);
    auto service = code == ERROR_SUCCESS ? the_service_manager().open(name, code) : nullptr;
    if (service && (access & ~rights_to_read_service) != 0 && !service->may_be_changed())
        code = ERROR_ACCESS_DENIED;
    if (code != ERROR_SUCCESS) {
        SetLastError(code);
        return nullptr;
    }
    return new_handle(new (std::nothrow) service_handle(std::move(service), access));
}

SC_HANDLE CreateServiceW(SC_HANDLE manager, const WCHAR* name, const WCHAR* display_name, DWORD access,
                         DWORD type, DWORD start_type, DWORD error_control, const WCHAR* command_line,
                         const WCHAR* load_order_group, DWORD* tag, const WCHAR* dependencies,
                         const WCHAR* account, const WCHAR* password) {
    if (!with_rights<manager_handle>(manager, SC_MANAGER_CREATE_SERVICE))
        return nullptr;
    const bool has_display_name = display_name && *display_name;
    DWORD code = code_of_name(name);
    if (code == ERROR_SUCCESS && has_display_name && wide_view(display_name).size() > longest_name)
        code = ERROR_INVALID_NAME;
    if (code == ERROR_SUCCESS
        && (!command_line || !*command_line || !is_type(type, start_type) || error_control > 3))
        code = ERROR_INVALID_PARAMETER;
    if (code == ERROR_SUCCESS && (load_order_group || tag || account || password))
        code = ERROR_NOT_SUPPORTED;
    if (code == ERROR_SUCCESS) {
        service_record record;
        record.name = name;
        record.display_name = has_display_name ? display_name : name;
        record.command_line = command_line;
        record.type = type;
        record.start_type = start_type;
        record.error_control = error_control;
        record.dependencies = split_list(dependencies);
        code = the_service_manager().create(record);
    }
    if (code != ERROR_SUCCESS) {
        SetLastError(code);
        return nullptr;
    }
    return OpenServiceW(manager, name, access);
}

BOOL DeleteService(SC_HANDLE service) {
    const auto* const opened = with_rights<service_handle>(service, delete_right);
    return opened && result_of(opened->service->mark());
}

BOOL StartServiceW(SC_HANDLE service, DWORD count, const WCHAR**) {
    const auto* const opened = with_rights<service_handle>(service, SERVICE_START);
    if (!opened)
        return FALSE;
    return result_of(count != 0 ? ERROR_NOT_SUPPORTED : start_with_dependencies(*opened->service));
}

BOOL ControlService(SC_HANDLE service, DWORD control, SERVICE_STATUS* status) {
    const DWORD right = right_to(control);
    if (right == 0 || !status)
        return fail(ERROR_INVALID_PARAMETER);
    const auto* const opened = with_rights<service_handle>(service, right);
    if (!opened)
        return FALSE;
    if (control == SERVICE_CONTROL_STOP)
        opened->service->finish_off();
    const DWORD code = pass_on(*opened->service, control, opened->service->status());
    *status = opened->service->status();
    return result_of(code);
}

BOOL QueryServiceStatus(SC_HANDLE service, SERVICE_STATUS* status) {
    const auto* const opened = with_rights<service_handle>(service, SERVICE_QUERY_STATUS);
    if (!opened)
        return FALSE;
    if (!status)
        return fail(ERROR_INVALID_ADDRESS);
    *status = opened->service->status();
    return TRUE;
}

BOOL CloseServiceHandle(SC_HANDLE handle) {
    object* const opened = object_of(handle);
    if (opened && (opened->is(manager_handle::kind) || opened->is(service_handle::kind)))
        return CloseHandle(handle);
    return fail(ERROR_INVALID_HANDLE);
}

} // namespace platform
