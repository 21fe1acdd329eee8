#include "support/service.h"

#include <windows.h>

#include "support/scratch.h"

namespace zu_test {

namespace {

int (*its_body)(const words&);
words its_arguments;
SERVICE_STATUS status = {SERVICE_WIN32_OWN_PROCESS, 0, 0, 0, 0, 0, 0};
SERVICE_STATUS_HANDLE manager;
HANDLE stop_event;

void WINAPI handle_control(DWORD control) {
    if (control != SERVICE_CONTROL_STOP)
        return;
    report_state(stop_pending, 10000);
    SetEvent(stop_event);
}

void WINAPI service_main(DWORD, wchar_t**) {
    manager = RegisterServiceCtrlHandlerW(L"", handle_control); // which has no name in a process of its own
    report_state(start_pending, 10000);
    status.dwServiceSpecificExitCode = static_cast<DWORD>(its_body(its_arguments));
    status.dwWin32ExitCode = status.dwServiceSpecificExitCode == 0 ? NO_ERROR : ERROR_SERVICE_SPECIFIC_ERROR;
    report_state(stopped, 0);
}

} // namespace

// The manager does not know where this program finds its library, so that the service is a copy with the library beside
// it.
void put_service_program(const std::filesystem::path& directory) {
    for (const auto& [module, copy] : {std::pair{L"libzu.dll", L"libzu.dll"},
                                       std::pair<const wchar_t*, const wchar_t*>{nullptr, L"service.exe"}}) {
        wchar_t file[MAX_PATH];
        GetModuleFileNameW(GetModuleHandleW(module), file, MAX_PATH);
        must(CopyFileW(file, (directory / copy).c_str(), FALSE), "CopyFile", directory.string());
    }
}

int serve_as_service(int (*body)(const words&), const words& arguments) {
    its_body = body;
    its_arguments = arguments;
    stop_event = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    wchar_t no_name[] = L"";
    const SERVICE_TABLE_ENTRYW table[] = {{no_name, service_main}, {nullptr, nullptr}};
    return StartServiceCtrlDispatcherW(table) ? 0 : 1;
}

void report_state(service_state state, uint32_t hint) {
    status.dwCurrentState = state;
    status.dwControlsAccepted = state == running ? SERVICE_ACCEPT_STOP : 0;
    status.dwCheckPoint = hint == 0 ? 0 : status.dwCheckPoint + 1;
    status.dwWaitHint = hint;
    SetServiceStatus(manager, &status);
}

bool is_told_to_stop(uint32_t within_ms) {
    return WaitForSingleObject(stop_event, within_ms) == WAIT_OBJECT_0;
}

} // namespace zu_test
