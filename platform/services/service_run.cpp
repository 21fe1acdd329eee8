// Starting a service, its state, and orders to its helper.
#include "platform/services/service_run.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>

#include "platform/api/threads.h"
#include "platform/core/error.h"
#include "platform/core/host_dir.h"
#include "platform/core/retry.h"
#include "platform/core/start_helper.h"
#include "platform/services/service_directory.h"

namespace platform {

namespace {

constexpr int answer_limit_ms = 30000; // as the platform gives a service to answer its manager
constexpr DWORD leftovers_limit_ms = 2000;

// Looks again and again until the test is content; false when the time is over before that.
template <class F>
bool wait_until(int directory, status_watch& watch, DWORD limit_ms, F&& is_content) {
    for (DWORD start = GetTickCount(); !is_content(watch.look(directory)); Sleep(2)) {
        if (GetTickCount() - start > limit_ms)
            return false;
    }
    return true;
}

// The C library's header declares these two calls as functions of the other language.
int open_process(pid_t process) {
    return static_cast<int>(syscall(SYS_pidfd_open, process, 0));
}
int send_signal(int process, int signal) {
    return static_cast<int>(syscall(SYS_pidfd_send_signal, process, signal, nullptr, 0));
}

bool lost_its_helper(const service_life& life) {
    return life.is_alive && life.report.by_helper && !life.has_helper;
}

// What the helper says about the start; 1053 when it says nothing.
DWORD read_answer(int pipe) {
    pollfd ready = {pipe, POLLIN, 0};
    DWORD code = ERROR_SERVICE_REQUEST_TIMEOUT;
    if (retried([&] { return poll(&ready, 1, answer_limit_ms); }) > 0
        && retried([&] { return read(pipe, &code, sizeof code); }) != sizeof code)
        code = ERROR_SERVICE_REQUEST_TIMEOUT;
    return code;
}

// What names no program and no library.
std::vector<std::string> service_environment() {
    std::vector<std::string> environment = {std::string("ZU_HOST=") + host_directory()};
    for (const char* name : {"LANG", "LC_ALL", "LC_CTYPE", "TZ", "XDG_RUNTIME_DIR"}) {
        if (const char* value = secure_getenv(name))
            environment.push_back(std::string(name) + '=' + value);
    }
    return environment;
}

DWORD launch(int directory, int status) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0)
        return code_of_errno(errno);
    const descriptor answer(ends[0]);
    descriptor question(ends[1]);
    const pid_t helper =
        start_helper("service", -1, {directory, status, question.get()}, service_environment());
    if (helper < 0)
        return code_of_errno(errno);
    question.reset(); // so that the end of the helper is the end of the pipe
    // The helper forks at once and goes on in its child, as nobody's. What its parent ends with is of no interest: a
    // caller that ignores the ends of children, or collects them itself, does no harm.
    retried([&] { return waitpid(helper, nullptr, 0); });
    return read_answer(answer.get());
}

std::string socket_directory() {
    if (geteuid() == 0)
        return "/run/zu";
    const char* const runtime = secure_getenv("XDG_RUNTIME_DIR");
    return runtime && *runtime == '/' ? std::string(runtime) + "/zu" : "/tmp/zu-" + std::to_string(geteuid());
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
    } else if (lost_its_helper(life) || report.state == SERVICE_STOPPED || report.state == 0) {
        status.dwCurrentState = SERVICE_STOP_PENDING; // about to be dead
    } else {
        status.dwCurrentState = report.state;
        status.dwCheckPoint = report.check_point;
        if (report.state == SERVICE_RUNNING || report.state == SERVICE_PAUSED)
            status.dwControlsAccepted = SERVICE_ACCEPT_STOP | SERVICE_ACCEPT_PAUSE_CONTINUE;
    }
    return status;
}

DWORD start_service(int directory) {
    status_watch watch;
    const descriptor starting(openat(directory, "start", O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600));
    if (!starting)
        return code_of_errno(errno);
    // While somebody else starts it, it may not look alive yet: the code comes when it does.
    if (!lock_within_a_moment(starting.get(), LOCK_EX))
        return ERROR_SERVICE_ALREADY_RUNNING;
    finish_off_service(directory);
    if (watch.look(directory).is_alive)
        return ERROR_SERVICE_ALREADY_RUNNING;

    const descriptor status = new_status(directory);
    if (!status)
        return code_of_errno(errno);
    const DWORD code = launch(directory, status.get());
    if (code != ERROR_SUCCESS && !watch.look(directory).has_helper) {
        service_report report;
        report.state = SERVICE_STOPPED;
        report.exit_code = code;
        write_report(status.get(), report);
    }
    return code;
}

DWORD control_service(int directory, DWORD control) {
    status_watch watch;
    const service_life life = watch.look(directory);
    const DWORD state = life.report.state;
    const int signal = control == SERVICE_CONTROL_STOP    ? stop_signal
                       : control == SERVICE_CONTROL_PAUSE ? pause_signal
                                                          : continue_signal;
    // The descriptor keeps the process's number from being used again; whether it was still the helper is then asked
    // once more.
    const descriptor helper(life.helper > 0 ? open_process(life.helper) : -1);
    if (!helper || watch.look(directory).helper != life.helper)
        return ERROR_SERVICE_NOT_ACTIVE;
    if (send_signal(helper.get(), signal) != 0)
        return errno == ESRCH ? ERROR_SERVICE_NOT_ACTIVE : code_of_errno(errno);
    const bool answered = wait_until(directory, watch, answer_limit_ms, [&](const service_life& now) {
        return !now.is_alive || now.helper != life.helper || now.report.state != state;
    });
    return answered ? ERROR_SUCCESS : ERROR_SERVICE_REQUEST_TIMEOUT;
}

void finish_off_service(int directory) {
    status_watch watch;
    const service_life life = watch.look(directory);
    if (!lost_its_helper(life))
        return;
    end_leftovers(directory, life.report);
    wait_until(directory, watch, leftovers_limit_ms, [](const service_life& now) { return !now.is_alive; });
}

bool make_socket_directory() {
    const std::string path = socket_directory();
    struct stat found;
    if ((mkdir(path.c_str(), 0711) != 0 && errno != EEXIST) || lstat(path.c_str(), &found) != 0)
        return false;
    const bool is_own = S_ISDIR(found.st_mode) && found.st_uid == geteuid() && (found.st_mode & 022) == 0;
    if (!is_own)
        errno = EACCES;
    return is_own;
}

std::string notify_socket_path(int directory) {
    struct stat status = {};
    fstat(directory, &status);
    char name
        [48]; // the directory's own number tells services apart, whatever their names and host directories
    std::snprintf(name, sizeof name, "/%llx-%llx", static_cast<unsigned long long>(status.st_dev),
                  static_cast<unsigned long long>(status.st_ino));
    return socket_directory() + name;
}

void remove_notify_socket(int directory) {
    unlink(notify_socket_path(directory).c_str());
}

} // namespace platform
