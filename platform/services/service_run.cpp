// Starting a service, its state, and the order to stop.
#include "platform/services/service_run.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>

#include "platform/api/threads.h"
#include "platform/core/error.h"
#include "platform/core/host_dir.h"
#include "platform/core/retry.h"
#include "platform/core/start_helper.h"
#include "platform/services/service_log.h"
#include "platform/services/service_protocol.h"

namespace platform {

namespace {

constexpr int answer_limit_ms = 30000; // the time that the platform gives a service to answer its manager
constexpr DWORD keeper_limit_ms = 1000;
constexpr DWORD leftovers_limit_ms = 2000;

// Looks at the service again and again until is_content(life) is true. 1053 (ERROR_SERVICE_REQUEST_TIMEOUT) when the time
// is over, or the code of a look that failed.
template <class F>
DWORD wait_until(int directory, status_watch& watch, DWORD limit_ms, F&& is_content) {
    for (const DWORD start = GetTickCount();; Sleep(2)) {
        service_life now;
        if (const DWORD code = watch.look(directory, now); code != ERROR_SUCCESS)
            return code;
        if (is_content(now))
            return ERROR_SUCCESS;
        if (GetTickCount() - start > limit_ms)
            return ERROR_SERVICE_REQUEST_TIMEOUT;
    }
}

bool lost_its_helper(const service_life& life) {
    return life.is_alive && !life.has_helper;
}

// A pending service that has not reported for longer than it asked for may be stopped: nothing else would end its wait.
bool has_fallen_silent(const service_report& report) {
    return report.state == SERVICE_START_PENDING && GetTickCount() - report.made_at_ms > report.wait_hint_ms;
}

// Reads the helper's answer, the code of the start. False if none comes.
bool read_answer(int pipe, DWORD& code) {
    pollfd ready = {pipe, POLLIN, 0};
    return retried([&] { return poll(&ready, 1, answer_limit_ms); }) > 0
           && retried([&] { return read(pipe, &code, sizeof code); }) == sizeof code;
}

// The environment for the service, without variables that name programs or libraries to load.
std::vector<std::string> service_environment() {
    std::vector<std::string> environment = {std::string("ZU_HOST=") + host_directory()};
    for (const char* name : {"LANG", "LC_ALL", "LC_CTYPE", "TZ", "XDG_RUNTIME_DIR"}) {
        if (const char* value = secure_getenv(name))
            environment.push_back(std::string(name) + '=' + value);
    }
    return environment;
}

// Starts a helper, which inherits the status and the lock, and waits for its answer. `failed_step` is null if the code is
// the helper's own.
DWORD launch(int directory, int status, int lock, const char*& failed_step) {
    failed_step = "starting zu-helper";
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0)
        return code_of_errno(errno);
    const descriptor answer(ends[0]);
    descriptor question(ends[1]);
    const pid_t helper =
        start_helper("service", -1, {directory, status, lock, question.get()}, service_environment());
    if (helper < 0)
        return code_of_errno(errno);
    question.reset(); // only the helper has this end now, so its exit ends the pipe
    // The helper forks at once and goes on in its child, which init adopts. The parent's exit status is not needed, so
    // the caller may ignore SIGCHLD or collect its children itself.
    retried([&] { return waitpid(helper, nullptr, 0); });
    DWORD code = ERROR_SUCCESS;
    const bool answered = read_answer(answer.get(), code);
    failed_step = answered ? nullptr : "waiting for zu-helper";
    return answered ? code : ERROR_SERVICE_REQUEST_TIMEOUT;
}

} // namespace

SERVICE_STATUS status_of(const service_record& record, const service_life& life) {
    const service_report& report = life.report;
    SERVICE_STATUS status = {};
    status.dwServiceType = record.type;
    status.dwWaitHint = report.wait_hint_ms;
    if (!life.is_alive) {
        status.dwCurrentState = SERVICE_STOPPED;
        status.dwWin32ExitCode = report.state == 0                 ? ERROR_SERVICE_NEVER_STARTED
                                 : report.state == SERVICE_STOPPED ? report.exit_code
                                                                   : ERROR_PROCESS_ABORTED;
        status.dwServiceSpecificExitCode = report.specific_exit_code;
    } else if (lost_its_helper(life) || report.state == SERVICE_STOPPED) {
        status.dwCurrentState = SERVICE_STOP_PENDING; // its last processes are about to end
    } else {
        status.dwCurrentState = report.state;
        status.dwCheckPoint = report.check_point;
        if (report.state == SERVICE_RUNNING || has_fallen_silent(report))
            status.dwControlsAccepted = SERVICE_ACCEPT_STOP;
    }
    return status;
}

DWORD check_start(int directory, const service_lock& lock) {
    // Another caller is starting the service, which may not look alive yet.
    if (lock.code() != ERROR_SUCCESS)
        return lock.code() == ERROR_SERVICE_DATABASE_LOCKED ? ERROR_SERVICE_ALREADY_RUNNING : lock.code();
    service_life life;
    DWORD code = finish_off_service(directory);
    if (code == ERROR_SUCCESS)
        code = status_watch().look(directory, life);
    return code == ERROR_SUCCESS && life.is_alive ? ERROR_SERVICE_ALREADY_RUNNING : code;
}

DWORD begin_start(int directory, const service_record& record, begun_start& out) {
    DWORD code = check_start(directory, out.lock.emplace(directory, start_lock));
    if (code != ERROR_SUCCESS)
        return code;
    out.status = new_status(directory);
    if (out.status)
        return ERROR_SUCCESS;
    code = code_of_errno(errno);
    log_failed_start(record.name, "writing its status", code);
    return code;
}

DWORD start_service(int directory, const service_record& record) {
    begun_start begun;
    if (const DWORD code = begin_start(directory, record, begun); code != ERROR_SUCCESS)
        return code;
    const char* failed_step;
    const DWORD code = launch(directory, begun.status.get(), begun.lock->get(), failed_step);
    if (!failed_step)
        return code;
    log_failed_start(record.name, failed_step, code);
    service_life life;
    const DWORD unknown = status_watch().look(directory, life);
    if (unknown != ERROR_SUCCESS || life.has_helper) // the start may still succeed
        return unknown != ERROR_SUCCESS ? unknown : code;
    publish_failure(directory, begun.status.get(), code);
    return code;
}

DWORD stop_service(int directory) {
    status_watch watch;
    service_life life, again;
    if (const DWORD code = watch.look(directory, life); code != ERROR_SUCCESS)
        return code;
    // The pidfd always means the process that it was opened for. The second look then tells whether that was the helper.
    const descriptor helper(life.helper > 0 ? open_process(life.helper) : -1);
    if (!helper)
        return life.helper > 0 && errno != ESRCH ? code_of_errno(errno) : ERROR_SERVICE_NOT_ACTIVE;
    if (const DWORD code = watch.look(directory, again); code != ERROR_SUCCESS)
        return code;
    if (again.helper != life.helper)
        return ERROR_SERVICE_NOT_ACTIVE;
    if (send_signal(helper.get(), stop_signal) != 0)
        return errno == ESRCH ? ERROR_SERVICE_NOT_ACTIVE : code_of_errno(errno);
    return wait_for_stop(directory, watch, life);
}

DWORD wait_for_stop(int directory, status_watch& watch, const service_life& told) {
    return wait_until(directory, watch, answer_limit_ms, [&](const service_life& now) {
        return !now.is_alive || now.helper != told.helper || now.report.state != told.report.state;
    });
}

DWORD finish_off_service(int directory) {
    status_watch watch;
    service_life life;
    if (const DWORD code = watch.look(directory, life); code != ERROR_SUCCESS)
        return code;
    if (!lost_its_helper(life))
        return ERROR_SUCCESS;
    // The helper's keeper kills what is left, unless it was killed as well.
    const auto is_dead = [](const service_life& now) { return !now.is_alive; };
    DWORD code = wait_until(directory, watch, keeper_limit_ms, is_dead);
    if (code == ERROR_SERVICE_REQUEST_TIMEOUT) {
        end_leftovers(directory, life.report);
        code = wait_until(directory, watch, leftovers_limit_ms, is_dead);
    }
    return code == ERROR_SERVICE_REQUEST_TIMEOUT ? ERROR_SUCCESS : code; // the status tells what still lives
}

} // namespace platform
