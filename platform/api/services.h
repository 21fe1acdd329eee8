// The service manager: installed services, their status, starting and stopping them. Units of systemd that others wrote
// are services as well, where systemd runs the machine: creating one of such a name fails with 1073
// (ERROR_SERVICE_EXISTS), deleting one with 5 (ERROR_ACCESS_DENIED), and everything about them with 1722
// (RPC_S_SERVER_UNAVAILABLE) while their manager does not answer.
#pragma once

#include "platform/api/base.h"

namespace platform {

using SC_HANDLE = void*;

struct SERVICE_STATUS {
    DWORD dwServiceType;
    DWORD dwCurrentState;
    DWORD dwControlsAccepted;
    DWORD dwWin32ExitCode;
    DWORD dwServiceSpecificExitCode;
    DWORD dwCheckPoint;
    DWORD dwWaitHint; // milliseconds
};

// Null, empty or this computer's name, with or without \\ before it; any other machine fails with 1722
// (RPC_S_SERVER_UNAVAILABLE). The database is null or "ServicesActive", else 1065 (ERROR_DATABASE_DOES_NOT_EXIST).
// Fails with 5 (ERROR_ACCESS_DENIED) when the caller may not do what the access rights ask for.
SC_HANDLE OpenSCManagerW(const WCHAR* machine, const WCHAR* database, DWORD access);

// Names are blind to case. Fails with 1060 (ERROR_SERVICE_DOES_NOT_EXIST) for no such service, 123 (ERROR_INVALID_NAME)
// for a name that none can have, 5 as above.
SC_HANDLE OpenServiceW(SC_HANDLE manager, const WCHAR* name, DWORD access);

// Records a service. Fails with 1073 (ERROR_SERVICE_EXISTS) when the name is taken, 1072
// (ERROR_SERVICE_MARKED_FOR_DELETE) when it is that of a service that is being deleted, 1078
// (ERROR_DUPLICATE_SERVICE_NAME) when the display name is taken, 1059 (ERROR_CIRCULAR_DEPENDENCY) when it would depend
// on itself, 87 (ERROR_INVALID_PARAMETER) for values that no service can have. Load-order groups, tags and accounts of
// its own do not exist here: anything but null fails with 50 (ERROR_NOT_SUPPORTED).
SC_HANDLE CreateServiceW(SC_HANDLE manager, const WCHAR* name, const WCHAR* display_name, DWORD access,
                         DWORD type, DWORD start_type, DWORD error_control, const WCHAR* command_line,
                         const WCHAR* load_order_group, DWORD* tag, const WCHAR* dependencies,
                         const WCHAR* account, const WCHAR* password);

// The service is gone once it has stopped and every handle on it, in every process, is closed. Fails with 1072 the
// second time.
BOOL DeleteService(SC_HANDLE service);

// Starts what the service depends on, waits for that, and starts the service's program; it is start-pending then.
// Arguments must be none (50). Fails with 1056 (ERROR_SERVICE_ALREADY_RUNNING) while it is alive or another start is
// under way, 1058 (ERROR_SERVICE_DISABLED) when it is disabled, 1072 when it is being deleted, 1075
// (ERROR_SERVICE_DEPENDENCY_DELETED) when something that it depends on is missing, 1068 (ERROR_SERVICE_DEPENDENCY_FAIL)
// when that did not start, 1059 when it depends on itself, 2 (ERROR_FILE_NOT_FOUND) or 3 (ERROR_PATH_NOT_FOUND) when
// there is no such program, 193 (ERROR_BAD_EXE_FORMAT) when the file is none, 1053 (ERROR_SERVICE_REQUEST_TIMEOUT) when
// the helper does not answer.
BOOL StartServiceW(SC_HANDLE service, DWORD count, const WCHAR** arguments);

// Passes a stop on, the one control that services take here (others: 1052, ERROR_INVALID_SERVICE_CONTROL), and gives
// the status after it; also when it fails with 1062 (ERROR_SERVICE_NOT_ACTIVE). Fails with 1061
// (ERROR_SERVICE_CANNOT_ACCEPT_CTRL) while the service is pending and has not been silent for longer than its wait
// hint, 1051 (ERROR_DEPENDENT_SERVICES_RUNNING) when a running service depends on it, 1053 when its helper does not
// answer.
BOOL ControlService(SC_HANDLE service, DWORD control, SERVICE_STATUS* status);

BOOL QueryServiceStatus(SC_HANDLE service, SERVICE_STATUS* status);

// Of a manager or a service.
BOOL CloseServiceHandle(SC_HANDLE handle);

} // namespace platform

inline constexpr platform::DWORD SC_MANAGER_CONNECT = 0x1;
inline constexpr platform::DWORD SC_MANAGER_CREATE_SERVICE = 0x2;
inline constexpr platform::DWORD SC_MANAGER_ALL_ACCESS = 0xF003F;

inline constexpr platform::DWORD SERVICE_QUERY_CONFIG = 0x1;
inline constexpr platform::DWORD SERVICE_QUERY_STATUS = 0x4;
inline constexpr platform::DWORD SERVICE_ENUMERATE_DEPENDENTS = 0x8;
inline constexpr platform::DWORD SERVICE_START = 0x10;
inline constexpr platform::DWORD SERVICE_STOP = 0x20;
inline constexpr platform::DWORD SERVICE_INTERROGATE = 0x80;
inline constexpr platform::DWORD SERVICE_ALL_ACCESS = 0xF01FF;

inline constexpr platform::DWORD SERVICE_CONTROL_STOP = 1;

inline constexpr platform::DWORD SERVICE_ACCEPT_STOP = 1;

inline constexpr platform::DWORD SERVICE_ERROR_NORMAL = 1;
