// Service control: each function opens the manager and the service, does one thing and closes both again.
#include <algorithm>

#include "zu/zu_support.h"

namespace {

// Closes a handle of the manager, and keeps the last-error code of a failure.
class service_handle {
public:
    explicit service_handle(platform::SC_HANDLE handle) : handle_(handle) {}
    ~service_handle() {
        if (handle_) {
            const zu::keep_last_error kept;
            platform::CloseServiceHandle(handle_);
        }
    }
    service_handle(const service_handle&) = delete;
    service_handle& operator=(const service_handle&) = delete;

    platform::SC_HANDLE get() const { return handle_; }
    explicit operator bool() const { return handle_ != nullptr; }

private:
    platform::SC_HANDLE handle_;
};

struct rights {
    platform::DWORD manager, service;
};
constexpr rights to_change{SC_MANAGER_ALL_ACCESS, SERVICE_ALL_ACCESS};
constexpr rights to_query{SC_MANAGER_CONNECT, SERVICE_QUERY_STATUS};

// Opens the service and calls work(service). The result is that of the call, or zero if the service cannot be opened.
template <class F>
auto with_service(const ZU_wchar* machine, const ZU_wchar* name, const rights& access, F&& work) {
    using result = decltype(work(platform::SC_HANDLE()));
    const service_handle manager(platform::OpenSCManagerW(machine, nullptr, access.manager));
    if (!manager)
        return result();
    const service_handle service(platform::OpenServiceW(manager.get(), name, access.service));
    return service ? work(service.get()) : result();
}

platform::DWORD poll_interval_ms(platform::DWORD wait_hint_ms) {
    return std::clamp<platform::DWORD>(wait_hint_ms / 10, 1000, 10000);
}

} // namespace

ZU_bool ZU_NT_service_install(const ZU_wchar* machine, const ZU_wchar* name, const ZU_wchar* display_name,
                              const ZU_wchar* command_line, uint32_t type, uint32_t start_type,
                              const ZU_wchar* dependencies) {
    const service_handle manager(platform::OpenSCManagerW(machine, nullptr, to_change.manager));
    if (!manager)
        return 0;
    const service_handle service(platform::CreateServiceW(
        manager.get(), name, display_name, to_change.service, type, start_type, SERVICE_ERROR_NORMAL,
        command_line, nullptr, nullptr, dependencies, nullptr, nullptr));
    return service ? 1 : 0;
}

ZU_bool ZU_NT_service_uninstall(const ZU_wchar* machine, const ZU_wchar* name) {
    return with_service(machine, name, to_change, [](platform::SC_HANDLE service) -> ZU_bool {
        platform::SERVICE_STATUS status;
        platform::ControlService(service, SERVICE_CONTROL_STOP, &status);
        ZU_NT_service_wait_pending(service, 0);
        return platform::DeleteService(service) != 0;
    });
}

ZU_bool ZU_NT_service_start(const ZU_wchar* machine, const ZU_wchar* name) {
    return with_service(machine, name, to_change, [](platform::SC_HANDLE service) {
        platform::StartServiceW(service, 0, nullptr);
        return ZU_NT_service_wait_pending(service, 1);
    });
}

ZU_bool ZU_NT_service_stop(const ZU_wchar* machine, const ZU_wchar* name) {
    return with_service(machine, name, to_change, [](platform::SC_HANDLE service) {
        platform::SERVICE_STATUS status;
        platform::ControlService(service, SERVICE_CONTROL_STOP, &status);
        return ZU_NT_service_wait_pending(service, 0);
    });
}

ZU_bool ZU_NT_service_exist(const ZU_wchar* machine, const ZU_wchar* name) {
    return with_service(machine, name, to_query, [](platform::SC_HANDLE) -> ZU_bool { return 1; });
}

uint32_t ZU_NT_service_get_state(const ZU_wchar* machine, const ZU_wchar* name) {
    return with_service(machine, name, to_query, [](platform::SC_HANDLE service) -> uint32_t {
        platform::SERVICE_STATUS status;
        return platform::QueryServiceStatus(service, &status) ? status.dwCurrentState : 0;
    });
}

ZU_bool ZU_NT_service_wait_pending(void* handle, ZU_bool starting) {
    const auto service = static_cast<platform::SC_HANDLE>(handle);
    const platform::DWORD pending = starting ? SERVICE_START_PENDING : SERVICE_STOP_PENDING;
    const platform::DWORD wanted = starting ? SERVICE_RUNNING : SERVICE_STOPPED;

    platform::SERVICE_STATUS status;
    if (!platform::QueryServiceStatus(service, &status))
        return 0;
    platform::DWORD progress_tick = platform::GetTickCount();
    platform::DWORD check_point = status.dwCheckPoint;
    while (status.dwCurrentState == pending) {
        platform::Sleep(poll_interval_ms(status.dwWaitHint));
        if (!platform::QueryServiceStatus(service, &status))
            return 0;
        if (status.dwCheckPoint > check_point) {
            progress_tick = platform::GetTickCount();
            check_point = status.dwCheckPoint;
        } else if (platform::GetTickCount() - progress_tick > status.dwWaitHint) {
            break;
        }
    }
    if (status.dwCurrentState == wanted)
        return 1;
    platform::SetLastError(ERROR_SERVICE_REQUEST_TIMEOUT);
    return 0;
}
