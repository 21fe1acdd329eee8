// Services as units of the host's manager, which starts and stops them. Their status is the same as of other services.
#include <sys/stat.h>

#include "platform/api/threads.h"
#include "platform/core/error.h"
#include "platform/services/service_log.h"
#include "platform/services/service_run.h"
#include "platform/services/systemd.h"

namespace platform {

namespace {

constexpr DWORD answer_limit_ms = 30000;
constexpr DWORD look_at_unit_ms = 250;

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

// Waits until the unit's helper has started the program. 1053 if the unit fails before that.
DWORD wait_for_program(int directory, const file_mark& before, const std::string& unit) {
    status_watch watch;
    const DWORD start = GetTickCount();
    for (DWORD next_look = look_at_unit_ms;; Sleep(5)) {
        service_life life;
        if (const DWORD code = watch.look(directory, life); code != ERROR_SUCCESS)
            return code;
        if (life.has_helper && life.report.program.number != 0)
            return ERROR_SUCCESS;
        if (!life.is_alive && !(file_mark(directory) == before))
            return code_of_ended_start(life.report);
        const DWORD waited = GetTickCount() - start;
        if (waited > answer_limit_ms)
            return ERROR_SERVICE_REQUEST_TIMEOUT;
        if (waited < next_look)
            continue;
        next_look = waited + look_at_unit_ms;
        if (has_failed(unit) && file_mark(directory) == before)
            return ERROR_SERVICE_REQUEST_TIMEOUT;
    }
}

} // namespace

DWORD start_unit(int directory, const service_record& record) {
    const std::string unit = unit_of(record.name);
    const service_lock lock(directory, order_lock);
    DWORD code = check_start(directory, lock);
    if (code != ERROR_SUCCESS)
        return code;
    const file_mark before(directory);
    run_systemctl({"reset-failed", "--", unit}); // forgets the failure of an earlier start
    code = run_systemctl({"start", "--no-block", "--", unit});
    if (code == ERROR_SUCCESS)
        code = wait_for_program(directory, before, unit);
    // A helper that came as far as a status of its own has logged the failure itself.
    if (code != ERROR_SUCCESS && file_mark(directory) == before)
        log_failed_start(record.name, "starting " + unit, code);
    return code;
}

DWORD stop_unit(int directory, const service_record& record) {
    status_watch watch;
    service_life life;
    DWORD code = watch.look(directory, life);
    if (code == ERROR_SUCCESS && !life.has_helper)
        code = ERROR_SERVICE_NOT_ACTIVE;
    if (code == ERROR_SUCCESS)
        code = run_systemctl({"stop", "--no-block", "--", unit_of(record.name)});
    return code == ERROR_SUCCESS ? wait_for_stop(directory, watch, life) : code;
}

} // namespace platform
