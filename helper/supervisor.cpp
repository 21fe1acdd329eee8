// A service's life, from the first look at its record to the end of its last process.
#include "helper/supervisor.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/signalfd.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <climits>
#include <cstdlib>

#include "helper/children.h"
#include "helper/program.h"
#include "platform/api/services.h"
#include "platform/api/threads.h"
#include "platform/core/error.h"
#include "platform/core/retry.h"
#include "platform/services/service_directory.h"
#include "platform/services/service_log.h"
#include "platform/services/service_protocol.h"

namespace zu_helper {

namespace {

namespace layer = platform;
using layer::code_of_errno;
using layer::GetTickCount;
using layer::retried;

// A service that has never reported counts as running if it is alive after this time.
constexpr DWORD silent_start_ms = 500;

// The time that the program's children get to end by themselves, once it has ended.
constexpr DWORD children_limit_ms = 5000;

// Reads the time in milliseconds that a report asks for. False if it asks for none.
bool read_wait_hint(std::string_view report, DWORD& out) {
    const std::string_view value = reported(report, "EXTEND_TIMEOUT_USEC");
    uint64_t microseconds = 0;
    if (std::from_chars(value.data(), value.data() + value.size(), microseconds).ec != std::errc())
        return false;
    out = static_cast<DWORD>(std::min<uint64_t>(microseconds / 1000, UINT_MAX));
    return true;
}

} // namespace

void supervisor::tell() {
    layer::write_report(status_, report_);
    if (manager_)
        manager_->tell(report_);
}

// A new state begins without check points, and asks for the usual time.
void supervisor::show(DWORD state) {
    if (is_at(state))
        return;
    report_.state = state;
    report_.check_point = 0;
    report_.wait_hint_ms = state == SERVICE_RUNNING ? 0 : layer::usual_wait_hint_ms;
    tell();
}

void supervisor::show_progress() {
    if (is_at(SERVICE_RUNNING))
        return;
    ++report_.check_point;
    tell();
}

DWORD supervisor::failed_to(const char* step, DWORD code) {
    if (code != ERROR_SUCCESS)
        layer::log_failed_start(name_, step, code);
    return code;
}

DWORD supervisor::prepare(const std::string& socket_path, std::vector<std::string>& words) {
    layer::service_record record;
    const DWORD known = layer::read_service(directory_, record);
    name_ = record.name;
    // Others see the status from here on, also if the start fails.
    if (!layer::become_helper(status_) || (tell(), !layer::publish_status(directory_, status_)))
        return failed_to("taking its status over", code_of_errno(errno));
    if (known != ERROR_SUCCESS)
        return failed_to("reading its record", known);
    sigset_t all;
    ::sigfillset(&all);
    signals_ = descriptor(::signalfd(-1, &all, SFD_CLOEXEC | SFD_NONBLOCK));
    // Processes that the program leaves behind become the helper's children, and are ended with it.
    if (!signals_ || !adopt_orphans())
        return failed_to("watching over processes", code_of_errno(errno));
    if (!notify_.open(socket_path))
        return failed_to("making its notification socket", code_of_errno(errno));
    reports_ = layer::has_mark(directory_, layer::reports_mark);
    return failed_to("finding its program", find_program(record.command_line, words));
}

// Runs in the child. The status fd stays open across exec: its lock shows that the service lives.
void supervisor::become_program(std::vector<char*>& words, pid_t helper, int failure) {
    ::setsid();
    ::prctl(PR_SET_PDEATHSIG, SIGKILL); // the program dies with its helper
    sigset_t none;
    ::sigemptyset(&none);
    ::sigprocmask(SIG_SETMASK, &none, nullptr);
    if (::getppid() == helper && ::fcntl(status_, F_SETFD, 0) == 0)
        ::execve(words[0], words.data(), environ);
    const int error = errno;
    retried([&] { return ::write(failure, &error, sizeof error); });
    ::_exit(127);
}

DWORD supervisor::start_program(std::vector<std::string>& words) {
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC) != 0)
        return code_of_errno(errno);
    const descriptor failure(ends[0]);
    descriptor tell_failure(ends[1]);
    std::vector<char*> pointers(words.size() + 1); // the last one stays null
    std::transform(words.begin(), words.end(), pointers.begin(),
                   [](std::string& word) { return word.data(); });

    const pid_t helper = ::getpid();
    session_ = program_ = ::fork();
    if (program_ == 0)
        become_program(pointers, helper, tell_failure.get());
    if (program_ < 0)
        return code_of_errno(errno);
    tell_failure.reset();
    int error = 0; // nothing comes if execve succeeds, which closes the pipe
    if (retried([&] { return ::read(failure.get(), &error, sizeof error); }) != sizeof error) {
        report_.program = layer::identity_of(program_);
        return ERROR_SUCCESS;
    }
    ::waitpid(program_, nullptr, 0); // it holds the lock until it has ended
    return error == ENOEXEC ? ERROR_BAD_EXE_FORMAT : code_of_errno(error);
}

DWORD supervisor::start(const std::string& socket_path) {
    report_.state = SERVICE_START_PENDING;
    report_.wait_hint_ms = layer::usual_wait_hint_ms;
    report_.descriptor = status_;
    std::vector<std::string> words;
    DWORD code = prepare(socket_path, words);
    if (code == ERROR_SUCCESS) {
        ::setenv("NOTIFY_SOCKET", socket_path.c_str(), 1);
        code = failed_to(("starting " + words[0]).c_str(), start_program(words));
    }
    started_ = GetTickCount();
    report_.exit_code = code;
    if (code != ERROR_SUCCESS)
        show(SERVICE_STOPPED);
    else
        tell(); // the report now has the program's pid and start time
    return code;
}

// After its first report only reports count. An unasked STOPPING is believed; READY after a stop began is ignored.
DWORD supervisor::state_by_reports() const {
    if (is_stopping_)
        return SERVICE_STOP_PENDING;
    return is_ready_ ? SERVICE_RUNNING : SERVICE_START_PENDING;
}

void supervisor::take_reports() {
    std::string text;
    while (notify_.receive(session_, text)) {
        if (!reports_)
            layer::set_mark(directory_, layer::reports_mark);
        reports_ = has_reported_ = true;
        is_ready_ = is_ready_ || reported(text, "READY") == "1";
        is_stopping_ = is_stopping_ || reported(text, "STOPPING") == "1";
        show(state_by_reports());
        DWORD wait_hint_ms = 0;
        if (read_wait_hint(text, wait_hint_ms) && !is_at(SERVICE_RUNNING))
            report_.wait_hint_ms = wait_hint_ms;
        show_progress();
    }
}

void supervisor::order_stop() {
    was_told_to_stop_ = is_stopping_ = true;
    show(SERVICE_STOP_PENDING);
    ::kill(program_, SIGTERM);
    ::kill(-program_, SIGCONT); // a program that was suspended must be able to handle the signal
}

void supervisor::take_signals() {
    signalfd_siginfo signal;
    while (retried([&] { return ::read(signals_.get(), &signal, sizeof signal); }) == sizeof signal) {
        if (signal.ssi_signo == layer::stop_signal && program_ != 0)
            order_stop();
    }
    take_ends();
}

// Collects the children that have ended: the program, and orphans that this process has adopted.
void supervisor::take_ends() {
    int status;
    for (pid_t child; (child = ::waitpid(-1, &status, WNOHANG)) > 0;) {
        if (child == program_) {
            program_ = 0;
            end_ = status;
        }
    }
}

// Sleeps until a signal or a report comes, or the time is over.
void supervisor::wait(DWORD limit_ms) {
    pollfd sources[] = {{signals_.get(), POLLIN, 0}, {notify_.get(), POLLIN, 0}};
    ::poll(sources, 2, limit_ms == INFINITE ? -1 : static_cast<int>(limit_ms));
}

int supervisor::run() {
    while (program_ != 0) {
        const bool is_silent = !reports_ && is_at(SERVICE_START_PENDING);
        const DWORD age_ms = GetTickCount() - started_;
        if (is_silent && age_ms >= silent_start_ms)
            show(SERVICE_RUNNING);
        else
            wait(is_silent ? silent_start_ms - age_ms : INFINITE);
        take_reports();
        take_signals();
    }
    note_end();
    show(SERVICE_STOP_PENDING);
    end_children(children_limit_ms, [this] {
        report_.wait_hint_ms = children_limit_ms + layer::usual_wait_hint_ms;
        tell();
    });
    show(SERVICE_STOPPED);
    if (WIFEXITED(end_))
        return WEXITSTATUS(end_);
    return report_.exit_code == ERROR_SUCCESS ? 0
                                              : 128 + WTERMSIG(end_); // 0: it was asked to end by that signal
}

void supervisor::note_end() {
    if (WIFEXITED(end_) && WEXITSTATUS(end_) != 0) {
        report_.exit_code = ERROR_SERVICE_SPECIFIC_ERROR;
        report_.specific_exit_code = static_cast<DWORD>(WEXITSTATUS(end_));
    } else if (WIFSIGNALED(end_) && !(was_told_to_stop_ && WTERMSIG(end_) == SIGTERM)) {
        report_.exit_code = ERROR_PROCESS_ABORTED;
    }
    if (is_at(SERVICE_START_PENDING)) {
        const std::string how = WIFSIGNALED(end_) ? "was ended by signal " + std::to_string(WTERMSIG(end_))
                                                  : "ended with " + std::to_string(WEXITSTATUS(end_));
        const DWORD code = report_.exit_code != 0 ? report_.exit_code : ERROR_SERVICE_REQUEST_TIMEOUT;
        failed_to(("its program " + how + " before it was ready").c_str(), code);
    }
    // The program has reported nothing in a run that was long enough. It does not report any more, so the mark goes.
    if (!has_reported_ && GetTickCount() - started_ > layer::usual_wait_hint_ms)
        layer::clear_mark(directory_, layer::reports_mark);
}

} // namespace zu_helper
