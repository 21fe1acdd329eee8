// The states of units, as systemctl tells them.
#include "platform/services/unit_state.h"

#include <time.h>

#include <algorithm>
#include <charconv>
#include <climits>

#include "platform/services/systemd.h"

namespace platform {

namespace {

constexpr const char* properties =
    "--property=ActiveState,FreezerState,Job,Result,ExecMainStatus,StateChangeTimestampMonotonic,StatusText,TimeoutStartUSec,TimeoutStopUSec";
constexpr DWORD not_executed = 203; // systemd's exit status for a program that could not be executed

// The value of a property in what systemctl prints, a line for each.
std::string_view value_of(std::string_view text, std::string_view name) {
    while (!text.empty()) {
        const std::string_view line = text.substr(0, text.find('\n'));
        if (line.size() > name.size() && line.starts_with(name) && line[name.size()] == '=')
            return line.substr(name.size() + 1);
        text.remove_prefix(std::min(text.size(), line.size() + 1));
    }
    return {};
}

uint64_t number_of(std::string_view value) {
    uint64_t number = 0;
    std::from_chars(value.data(), value.data() + value.size(), number);
    return number;
}

// Reads a time such as "1min 30s" or "infinity".
DWORD milliseconds_of(std::string_view span) {
    constexpr struct {
        std::string_view name;
        double ms;
    } units[] = {{"us", 1e-3}, {"ms", 1}, {"s", 1e3}, {"min", 6e4}, {"h", 36e5}, {"d", 864e5}, {"w", 6048e5}};
    double sum = 0;
    while (!span.empty()) {
        double count = 0;
        const auto [end, error] = std::from_chars(span.data(), span.data() + span.size(), count);
        if (error != std::errc())
            return UINT_MAX;
        span.remove_prefix(static_cast<size_t>(end - span.data()));
        const std::string_view name = span.substr(0, span.find(' '));
        span.remove_prefix(std::min(span.size(), name.size() + 1));
        const auto* const unit = std::find_if(std::begin(units), std::end(units),
                                              [&](const auto& known) { return known.name == name; });
        if (unit == std::end(units))
            return UINT_MAX; // months and years
        sum += count * unit->ms;
    }
    return sum < UINT_MAX ? static_cast<DWORD>(sum) : UINT_MAX;
}

// A unit that is inactive, but has a job, is about to be started. Active units have several names: active, reloading.
DWORD state_of(std::string_view active, bool has_job) {
    if (active == "deactivating")
        return SERVICE_STOP_PENDING;
    if (active == "inactive" || active == "failed" || active == "maintenance")
        return has_job ? SERVICE_START_PENDING : SERVICE_STOPPED;
    return active == "activating" ? SERVICE_START_PENDING : SERVICE_RUNNING;
}

DWORD seconds_since(uint64_t moment_us) {
    timespec now = {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<DWORD>(static_cast<uint64_t>(now.tv_sec) - moment_us / 1'000'000);
}

} // namespace

void set_exit(std::string_view result, DWORD exit_status, SERVICE_STATUS& out) {
    if (result == "success") {
        out.dwWin32ExitCode = ERROR_SUCCESS;
    } else if (result == "exit-code" && exit_status == not_executed) {
        out.dwWin32ExitCode = ERROR_FILE_NOT_FOUND;
    } else if (result == "exit-code") {
        out.dwWin32ExitCode = ERROR_SERVICE_SPECIFIC_ERROR;
        out.dwServiceSpecificExitCode = exit_status;
    } else if (result == "signal" || result == "core-dump" || result == "oom-kill" || result == "watchdog") {
        out.dwWin32ExitCode = ERROR_PROCESS_ABORTED;
    } else { // a time-out, or a failure before its program
        out.dwWin32ExitCode = ERROR_SERVICE_REQUEST_TIMEOUT;
    }
}

DWORD unit_watch::look(SERVICE_STATUS& out) {
    out = {};
    std::string said;
    if (const DWORD code = ask_systemctl(for_user_, {"show", properties, "--", unit_}, said);
        code != ERROR_SUCCESS)
        return code;
    const std::string_view active = value_of(said, "ActiveState"), text = value_of(said, "StatusText");
    const bool has_job = number_of(value_of(said, "Job")) != 0;
    if (active.empty())
        return RPC_S_SERVER_UNAVAILABLE;
    if (text != text_)
        ++texts_;
    text_ = text;

    out.dwCurrentState = state_of(active, has_job);
    if (out.dwCurrentState == SERVICE_STOPPED) {
        // The manager forgets units that nobody needs, so it cannot tell that one was never started.
        set_exit(value_of(said, "Result"), static_cast<DWORD>(number_of(value_of(said, "ExecMainStatus"))),
                 out);
        return ERROR_SUCCESS;
    }
    if (out.dwCurrentState != SERVICE_STOP_PENDING)
        out.dwControlsAccepted = SERVICE_ACCEPT_STOP;
    if (out.dwCurrentState == SERVICE_RUNNING) {
        if (value_of(said, "FreezerState").starts_with("fr")) // frozen or freezing
            out.dwCurrentState = SERVICE_PAUSED;
        return ERROR_SUCCESS;
    }
    const bool is_starting = out.dwCurrentState == SERVICE_START_PENDING;
    out.dwWaitHint = milliseconds_of(value_of(said, is_starting ? "TimeoutStartUSec" : "TimeoutStopUSec"));
    out.dwCheckPoint =
        texts_ + (has_job ? seconds_since(number_of(value_of(said, "StateChangeTimestampMonotonic"))) : 0);
    return ERROR_SUCCESS;
}

} // namespace platform
