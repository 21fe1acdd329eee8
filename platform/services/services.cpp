// The service calls: handles, rights, arguments, and the rules about dependencies, over a manager of services.
#include "platform/core/error.h"
#include "platform/core/handle.h"
#include "platform/services/dependencies.h"
#include "platform/system/computer.h"

namespace platform {

namespace {

constexpr size_t longest_name = 256;
constexpr DWORD interactive = 0x100;
constexpr DWORD delete_right = 0x10000;

// Rights that any user has: they query, and change nothing.
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

// The object of a handle that has these rights; null with 6 (ERROR_INVALID_HANDLE) or 5 (ERROR_ACCESS_DENIED).
template <class T>
T* with_rights(SC_HANDLE handle, DWORD wanted) {
    T* const found = object_of<T>(handle);
    return found && (found->rights & wanted) != wanted ? fail<T*>(ERROR_ACCESS_DENIED) : found;
}

// 0, 487 (ERROR_INVALID_ADDRESS) for null, or 123 (ERROR_INVALID_NAME) for a text that can be no service's name.
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
    // Only drivers can start before the first program.
    return (is_driver || is_program) && start_type <= SERVICE_DISABLED
           && (is_driver || start_type >= SERVICE_AUTO_START);
}

// The names of a list: each is ended by a zero unit, and the list by one more.
std::vector<std::u16string> split_list(const WCHAR* list) {
    std::vector<std::u16string> names;
    for (; list && *list; list += names.back().size() + 1)
        names.emplace_back(list);
    return names;
}

bool is_pending(DWORD state) {
    return state == SERVICE_START_PENDING || state == SERVICE_STOP_PENDING;
}

// 0 if a service in this state takes a stop.
DWORD check_stop(const installed_service& service, const SERVICE_STATUS& status) {
    if (status.dwCurrentState == SERVICE_STOPPED)
        return ERROR_SERVICE_NOT_ACTIVE;
    if (is_pending(status.dwCurrentState) && !(status.dwControlsAccepted & SERVICE_ACCEPT_STOP))
        return ERROR_SERVICE_CANNOT_ACCEPT_CTRL;
    return check_for_dependents(the_service_manager(), service.record());
}

} // namespace

SC_HANDLE OpenSCManagerW(const WCHAR* machine, const WCHAR* database, DWORD access) {
    if (!is_this_computer(machine))
        return fail<SC_HANDLE>(RPC_S_SERVER_UNAVAILABLE);
    if (database && *database && !same_service_name(database, u"ServicesActive"))
        return fail<SC_HANDLE>(ERROR_DATABASE_DOES_NOT_EXIST);
    if ((access & ~rights_to_read_manager) != 0 && !the_service_manager().may_create())
        return fail<SC_HANDLE>(ERROR_ACCESS_DENIED);
    return new_handle(new (std::nothrow) manager_handle(access | SC_MANAGER_CONNECT));
}

SC_HANDLE OpenServiceW(SC_HANDLE manager, const WCHAR* name, DWORD access) {
    if (!with_rights<manager_handle>(manager, SC_MANAGER_CONNECT))
        return nullptr;
    DWORD code = code_of_name(name);
    std::unique_ptr<installed_service> service;
    if (code == ERROR_SUCCESS)
        code = the_service_manager().open(name, service);
    if (service && (access & ~rights_to_read_service) != 0 && !service->may_be_changed())
        code = ERROR_ACCESS_DENIED;
    if (code != ERROR_SUCCESS)
        return fail<SC_HANDLE>(code);
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
    if (code != ERROR_SUCCESS)
        return fail<SC_HANDLE>(code);
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
    return result_of(count != 0 ? ERROR_NOT_SUPPORTED
                                : start_with_dependencies(the_service_manager(), *opened->service));
}

BOOL ControlService(SC_HANDLE handle, DWORD control, SERVICE_STATUS* status) {
    if (!status)
        return fail(ERROR_INVALID_PARAMETER);
    const auto* const opened = with_rights<service_handle>(handle, SERVICE_STOP);
    if (!opened)
        return FALSE;
    if (control != SERVICE_CONTROL_STOP)
        return fail(ERROR_INVALID_SERVICE_CONTROL);
    installed_service& service = *opened->service;
    DWORD code = service.finish_off();
    if (code == ERROR_SUCCESS)
        code = service.status(*status);
    if (code == ERROR_SUCCESS)
        code = check_stop(service, *status);
    if (code == ERROR_SUCCESS)
        code = service.stop();
    const DWORD unknown = service.status(*status);
    return result_of(code != ERROR_SUCCESS ? code : unknown);
}

BOOL QueryServiceStatus(SC_HANDLE service, SERVICE_STATUS* status) {
    const auto* const opened = with_rights<service_handle>(service, SERVICE_QUERY_STATUS);
    if (!opened)
        return FALSE;
    return result_of(status ? opened->service->status(*status) : ERROR_INVALID_ADDRESS);
}

BOOL CloseServiceHandle(SC_HANDLE handle) {
    object* const opened = object_of(handle);
    if (opened && (opened->is(manager_handle::kind) || opened->is(service_handle::kind)))
        return CloseHandle(handle);
    return fail(ERROR_INVALID_HANDLE);
}

} // namespace platform
