// Services as units of systemd.
#include "platform/services/service_unit.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>

#include "platform/api/threads.h"
#include "platform/core/error.h"
#include "platform/services/service_log.h"
#include "platform/services/service_protocol.h"
#include "platform/services/service_run.h"
#include "platform/services/systemd.h"
#include "platform/services/unit_state.h"

namespace platform {

namespace {

constexpr DWORD answer_limit_ms = 30000;
constexpr DWORD look_at_unit_ms = 250;
constexpr DWORD end_of_unit_ms = 5000;

// The mark by which a new status file is told from the one before.
struct file_mark {
    ino_t number = 0;
    timespec changed = {};

    explicit file_mark(int directory) {
        struct stat found;
        if (fstatat(directory, "status", &found, AT_SYMLINK_NOFOLLOW) == 0) {
            number = found.st_ino;
            changed = found.st_mtim;
        }
    }
    bool operator==(const file_mark& other) const {
        return number == other.number && changed.tv_sec == other.changed.tv_sec
               && changed.tv_nsec == other.changed.tv_nsec;
    }
};

// The code of a start whose helper has ended already. If the program has run, the start has succeeded.
DWORD code_of_ended_start(const service_report& report) {
    const bool has_run =
        report.exit_code == ERROR_SERVICE_SPECIFIC_ERROR || report.exit_code == ERROR_PROCESS_ABORTED;
    return has_run ? ERROR_SUCCESS : report.exit_code;
}

// Stores why the service has ended. Nothing of it lives, and nobody starts it, or this does nothing.
void store_end(int directory, const SERVICE_STATUS& end) {
    const service_lock lock(directory, start_lock);
    const descriptor status =
        check_start(directory, lock) == ERROR_SUCCESS ? new_status(directory) : descriptor();
    if (status)
        publish_failure(directory, status.get(), end.dwWin32ExitCode, end.dwServiceSpecificExitCode);
}

// Whether the manager has ended the unit because it failed. False also if that could not be asked.
bool has_failed(unit_watch& manager, SERVICE_STATUS& end) {
    return manager.look(end) == ERROR_SUCCESS && end.dwCurrentState == SERVICE_STOPPED
           && end.dwWin32ExitCode != ERROR_SUCCESS;
}

// Waits until the unit's helper has started the program, or the unit fails before that.
DWORD wait_for_program(int directory, const file_mark& before, const std::string& unit) {
    status_watch watch;
    unit_watch manager(is_of_users_manager(directory), unit);
    const DWORD start = GetTickCount();
    for (DWORD next_look = look_at_unit_ms;; Sleep(5)) {
        // Before the look: a helper that makes its status after it has not ended.
        const bool helper_came = !(file_mark(directory) == before);
        service_life life;
        if (const DWORD code = watch.look(directory, life); code != ERROR_SUCCESS)
            return code;
        if (life.has_helper && life.report.program.number != 0)
            return ERROR_SUCCESS;
        if (!life.is_alive && helper_came)
            return code_of_ended_start(life.report);
        const DWORD waited = GetTickCount() - start;
        if (waited > answer_limit_ms)
            return ERROR_SERVICE_REQUEST_TIMEOUT;
        if (waited < next_look)
            continue;
        next_look = waited + look_at_unit_ms;
        SERVICE_STATUS end;
        if (!has_failed(manager, end) || !(file_mark(directory) == before))
            continue;
        store_end(directory, end); // the helper could not: it did not run
        return end.dwWin32ExitCode == ERROR_FILE_NOT_FOUND ? ERROR_FILE_NOT_FOUND
                                                           : ERROR_SERVICE_REQUEST_TIMEOUT;
    }
}

// The number of the unit's life whose end the manager has not seen yet; empty if there is none.
std::string life_of(int directory, const std::string& unit) {
    struct stat all;
    if (fstatat(directory, "..", &all, 0) != 0)
        return "unknown"; // asking the manager will tell
    // systemd keeps this link from the start of a unit until it is inactive or failed. Other users' are hidden.
    const std::string runtime = all.st_uid == 0 ? "/run" : "/run/user/" + std::to_string(all.st_uid);
    const std::string link = runtime + "/systemd/units/invocation:" + unit;
    char number[64];
    const ssize_t size = readlink(link.c_str(), number, sizeof number);
    return std::string(number, static_cast<size_t>(std::max<ssize_t>(size, 0)));
}

} // namespace

bool is_of_users_manager(int directory) {
    struct stat all;
    return fstatat(directory, "..", &all, 0) == 0 && all.st_uid != 0;
}

bool may_be_up(int directory, const std::string& unit) {
    return has_mark(directory, restarts_mark) || !life_of(directory, unit).empty();
}

void wait_until_ended(int directory, const std::string& unit) {
    const std::string last = life_of(directory, unit);
    for (const DWORD start = GetTickCount();
         !last.empty() && life_of(directory, unit) == last && GetTickCount() - start < end_of_unit_ms;)
        Sleep(2);
}

DWORD start_unit(int directory, const service_record& record) {
    const std::string unit = unit_of(record.name);
    const bool for_user = is_of_users_manager(directory);
    const service_lock lock(directory, order_lock);
    DWORD code = check_start(directory, lock);
    if (code != ERROR_SUCCESS)
        return code;
    const file_mark before(directory);
    run_systemctl(for_user, {"reset-failed", "--", unit}); // forgets the failure of an earlier start
    code = run_systemctl(for_user, {"start", "--no-block", "--", unit});
    if (code == ERROR_SUCCESS)
        code = wait_for_program(directory, before, unit);
    if (code != ERROR_SUCCESS)
        wait_until_ended(directory, unit);
    // A helper that came as far as a status of its own has logged the failure itself.
    if (code != ERROR_SUCCESS && file_mark(directory) == before)
        log_failed_start(record.name, "starting " + unit, code);
    return code;
}

DWORD stop_unit(int directory, const service_record& record) {
    const std::string unit = unit_of(record.name);
    const bool for_user = is_of_users_manager(directory);
    status_watch watch;
    service_life life;
    DWORD code = watch.look(directory, life);
    if (code == ERROR_SUCCESS && !life.has_helper)
        return may_be_up(directory, unit) ? run_systemctl(for_user, {"stop", "--", unit})
                                          : ERROR_SERVICE_NOT_ACTIVE;
    if (code == ERROR_SUCCESS)
        code = run_systemctl(for_user, {"stop", "--no-block", "--", unit});
    if (code == ERROR_SUCCESS)
        code = wait_for_stop(directory, watch, life);
    if (code == ERROR_SUCCESS)
        code = watch.look(directory, life);
    if (code == ERROR_SUCCESS && !life.is_alive)
        wait_until_ended(directory, unit);
    return code;
}

void store_failed_start(int directory, DWORD code) {
    SERVICE_STATUS end = {};
    end.dwWin32ExitCode = code;
    store_end(directory, end);
}

void note_end_of_unit(int directory, const std::string& unit, std::string_view result, DWORD exit_status) {
    std::string rule;
    const DWORD code =
        ask_systemctl(is_of_users_manager(directory), {"show", "--property=Restart", "--", unit}, rule);
    const bool is_for_failures = rule.starts_with("Restart=on-") && rule != "Restart=on-success\n";
    if (code == ERROR_SUCCESS && (rule == "Restart=no\n" || (is_for_failures && result == "success")))
        clear_mark(directory, restarts_mark);
    else
        set_mark(directory, restarts_mark);

    // From this status on, the manager says that it could not execute the helper.
    constexpr DWORD first_own_status = 200;
    service_life last;
    if (status_watch().look(directory, last) != ERROR_SUCCESS || last.is_alive)
        return;
    // "protocol": the helper has ended with 0 before its service was ready.
    const bool helper_has_told =
        result == "protocol"
        || (result == "exit-code"
            && (exit_status < first_own_status || last.report.specific_exit_code == exit_status));
    SERVICE_STATUS end = {};
    set_exit(result, exit_status, end);
    if (end.dwWin32ExitCode != ERROR_SUCCESS && !helper_has_told)
        store_end(directory, end);
}

} // namespace platform
