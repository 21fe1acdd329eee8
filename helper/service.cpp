// zu-helper service DIRECTORY STATUS ANSWER: runs the service of a directory. Its status is the file that the starter has
// made, and the starter waits at the pipe for a code. Here are its program, its reports, the orders of the manager, and its end.
#include <dirent.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/signalfd.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <vector>

#include "helper/helper.h"
#include "helper/notify.h"
#include "platform/api/threads.h"
#include "platform/core/error.h"
#include "platform/core/retry.h"
#include "platform/files/drives.h"
#include "platform/files/place.h"
#include "platform/services/service_directory.h"
#include "platform/services/service_record.h"
#include "platform/services/service_run.h"
#include "platform/text/command_line.h"
#include "platform/text/utf8.h"

namespace zu_helper {

namespace {

using namespace platform;

// A service that has never reported counts as running when it is alive after this time.
constexpr DWORD silent_start_ms = 500;

// What the program's own children get to end by themselves, once it has ended.
constexpr DWORD children_limit_ms = 5000;

bool is_drive_path(wide_view path) {
    return (path.size() > 1 && is_drive_letter(path[0]) && path[1] == u':') || path.substr(0, 2) == u"\\\\";
}

// The host's path of a program. 0, or the code of why it cannot be started.
DWORD find_program(const std::u16string& program, std::string& out) {
    place at;
    if (is_drive_path(program)) {
        if (const DWORD code = at.set(program.c_str()); code != ERROR_SUCCESS)
            return code;
    } else {
        at.set_host_path(utf8_of(program).c_str());
    }
    if (at.attempt(
            [](int directory, const char* name) { return faccessat(directory, name, X_OK, AT_EACCESS); })
        != 0)
        return at.code_of(errno);
    if (at.directory() != AT_FDCWD)
        return ERROR_FILENAME_EXCED_RANGE; // the host starts no program by so long a path
    out = at.whole_name();
    return ERROR_SUCCESS;
}

class supervisor {
public:
    supervisor(int directory, int status) : directory_(directory), status_(status) {}

    // 0 once the program runs, or the code of why it does not.
    DWORD start();
    void run();

private:
    DWORD prepare(std::vector<std::string>& words);
    DWORD start_program(std::vector<std::string>& words);
    [[noreturn]] void become_program(std::vector<char*>& words, pid_t helper, int failure);

    void take_signals();
    void take_reports();
    void take_ends();
    void order_stop();
    void end_children();
    void wait(DWORD limit_ms);

    void show(DWORD state);
    void show_progress();
    void tell() { write_report(status_, report_); }

    bool is_at(DWORD state) const { return report_.state == state; }

    int directory_;
    int status_;
    descriptor signals_;
    notify_socket notify_;
    pid_t program_ = 0; // 0: it has ended
    pid_t session_ = 0; // its number, and that of its session
    int end_ = 0;       // how, as waitpid gives it
    DWORD started_ = 0;
    bool reports_ = false; // its own reports decide about its state
    bool is_ready_ = false;
    bool is_stopping_ = false;
    bool was_told_to_stop_ = false;
    service_report report_;
};

// A new state begins without check points, and asks for the usual time.
void supervisor::show(DWORD state) {
    if (is_at(state))
        return;
    report_.state = state;
    report_.check_point = 0;
    report_.wait_hint_ms = state == SERVICE_RUNNING || state == SERVICE_PAUSED ? 0 : usual_wait_hint_ms;
    tell();
}

void supervisor::show_progress() {
    if (!is_at(SERVICE_START_PENDING) && !is_at(SERVICE_STOP_PENDING))
        return;
    ++report_.check_point;
    tell();
}

DWORD supervisor::prepare(std::vector<std::string>& words) {
    sigset_t all;
    sigfillset(&all);
    sigprocmask(SIG_SETMASK, &all, nullptr);
    signals_ = descriptor(signalfd(-1, &all, SFD_CLOEXEC | SFD_NONBLOCK));
    // What the program leaves behind becomes the helper's child, and is ended with it.
    if (!become_helper(status_) || !signals_ || prctl(PR_SET_CHILD_SUBREAPER, 1) != 0)
        return code_of_errno(errno);
    if (!make_socket_directory() || !notify_.open(notify_socket_path(directory_)))
        return code_of_errno(errno);
    reports_ = has_mark(directory_, reports_mark);

    service_record record;
    if (!read_service(directory_, record))
        return ERROR_INVALID_DATA;
    const command_line line(record.command_line);
    std::string program;
    const DWORD code = find_program(line.program, program);
    words.push_back(program);
    for (const std::u16string& argument : line.arguments)
        words.push_back(utf8_of(argument));
    return code;
}

// In the new process. The status stays open in the program: with it goes the lock that says that it lives.
void supervisor::become_program(std::vector<char*>& words, pid_t helper, int failure) {
    setsid();
    prctl(PR_SET_PDEATHSIG, SIGKILL); // the program dies with its helper
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    if (getppid() == helper && fcntl(status_, F_SETFD, 0) == 0)
        execve(words[0], words.data(), environ);
    const int error = errno;
    retried([&] { return write(failure, &error, sizeof error); });
    _exit(127);
}

DWORD supervisor::start_program(std::vector<std::string>& words) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0)
        return code_of_errno(errno);
    const descriptor failure(ends[0]);
    descriptor tell_failure(ends[1]);
    setenv("NOTIFY_SOCKET", notify_socket_path(directory_).c_str(), 1);
    std::vector<char*> pointers(words.size() + 1); // the last one stays null
    std::transform(words.begin(), words.end(), pointers.begin(),
                   [](std::string& word) { return word.data(); });

    const pid_t helper = getpid();
    session_ = program_ = fork();
    if (program_ == 0)
        become_program(pointers, helper, tell_failure.get());
    if (program_ < 0)
        return code_of_errno(errno);
    tell_failure.reset();
    int error = 0; // nothing comes when the program has taken over, and closed the pipe by that
    if (retried([&] { return read(failure.get(), &error, sizeof error); }) != sizeof error)
        return ERROR_SUCCESS;
    waitpid(program_, nullptr, 0); // until then it holds the lock
    return error == ENOEXEC ? ERROR_BAD_EXE_FORMAT : code_of_errno(error);
}

DWORD supervisor::start() {
    report_.state = SERVICE_START_PENDING;
    report_.wait_hint_ms = usual_wait_hint_ms;
    report_.by_helper = 1;
    report_.descriptor = status_;
    std::vector<std::string> words;
    DWORD code = prepare(words);
    if (code == ERROR_SUCCESS) {
        tell();
        code = start_program(words);
    }
    started_ = GetTickCount();
    if (code != ERROR_SUCCESS) {
        report_.exit_code = code;
        show(SERVICE_STOPPED);
    }
    return code;
}

// Reports decide, from the first one ever on. What a service says of a stop that it was not asked for is believed; what
// it says of readiness after a stop was begun is not.
void supervisor::take_reports() {
    std::string text;
    while (notify_.receive(session_, text)) {
        if (!reports_) {
            reports_ = true;
            set_mark(directory_, reports_mark);
        }
        is_ready_ = is_ready_ || reported(text, "READY") == "1";
        is_stopping_ = is_stopping_ || reported(text, "STOPPING") == "1";
        if (!is_at(SERVICE_PAUSED) && !is_at(SERVICE_PAUSE_PENDING))
            show(is_stopping_ ? SERVICE_STOP_PENDING : is_ready_ ? SERVICE_RUNNING : SERVICE_START_PENDING);
        const std::string_view more = reported(text, "EXTEND_TIMEOUT_USEC");
        uint64_t microseconds = 0;
        if (std::from_chars(more.data(), more.data() + more.size(), microseconds).ec == std::errc()
            && !is_at(SERVICE_RUNNING))
            report_.wait_hint_ms = static_cast<DWORD>(std::min<uint64_t>(microseconds / 1000, UINT_MAX));
        show_progress();
    }
}

void supervisor::order_stop() {
    was_told_to_stop_ = is_stopping_ = true;
    show(SERVICE_STOP_PENDING);
    kill(program_, SIGTERM);
    kill(-program_, SIGCONT); // a paused one must be able to hear it
}

void supervisor::take_signals() {
    signalfd_siginfo signal;
    while (retried([&] { return read(signals_.get(), &signal, sizeof signal); }) == sizeof signal) {
        const int number = static_cast<int>(signal.ssi_signo);
        if (program_ == 0)
            continue;
        if (number == stop_signal) {
            order_stop();
        } else if (number == pause_signal && is_at(SERVICE_RUNNING)) {
            show(SERVICE_PAUSE_PENDING);
            // Its group follows once it has stopped: a program in vfork() cannot stop while its child is stopped.
            kill(program_, SIGSTOP);
        } else if (number == continue_signal && is_at(SERVICE_PAUSED)) {
            show(SERVICE_CONTINUE_PENDING);
            kill(-program_, SIGCONT);
        }
    }
    take_ends();
}

// Children that ended, stopped or went on; beside the program those whose parents have gone.
void supervisor::take_ends() {
    int status;
    for (pid_t child; (child = waitpid(-1, &status, WNOHANG | WUNTRACED | WCONTINUED)) > 0;) {
        if (child != program_)
            continue;
        if (WIFSTOPPED(status)) {
            if (is_at(SERVICE_PAUSE_PENDING))
                kill(-program_, SIGSTOP);
            if (is_at(SERVICE_RUNNING) || is_at(SERVICE_PAUSE_PENDING))
                show(SERVICE_PAUSED);
        } else if (WIFCONTINUED(status)) {
            if (is_at(SERVICE_PAUSED) || is_at(SERVICE_CONTINUE_PENDING))
                show(SERVICE_RUNNING);
        } else {
            program_ = 0;
            end_ = status;
        }
    }
}

// Sleeps until something comes, or the time is over.
void supervisor::wait(DWORD limit_ms) {
    pollfd sources[] = {{signals_.get(), POLLIN, 0}, {notify_.get(), POLLIN, 0}};
    const int limit = limit_ms > INT_MAX ? -1 : static_cast<int>(limit_ms);
    poll(sources, 2, limit);
}

std::vector<pid_t> own_children() {
    const std::string path = "/proc/self/task/" + std::to_string(getpid()) + "/children";
    const std::unique_ptr<FILE, int (*)(FILE*)> list(std::fopen(path.c_str(), "re"), std::fclose);
    std::vector<pid_t> children;
    for (pid_t child; list && std::fscanf(list.get(), "%d", &child) == 1;)
        children.push_back(child);
    return children;
}

// What the program has left behind is the helper's now. Each is asked to end, once, and killed if it does not do so in
// time: as long as one lives, it holds the lock, and nothing can be started.
void supervisor::end_children() {
    std::vector<pid_t> asked;
    const DWORD start = GetTickCount();
    while (waitpid(-1, nullptr, WNOHANG) >= 0) {
        report_.wait_hint_ms = children_limit_ms + usual_wait_hint_ms;
        tell();
        const bool is_late = GetTickCount() - start > children_limit_ms;
        for (pid_t child : own_children()) {
            if (is_late) {
                kill(child, SIGKILL);
            } else if (std::find(asked.begin(), asked.end(), child) == asked.end()) {
                kill(child, SIGTERM);
                asked.push_back(child);
            }
        }
        Sleep(20);
    }
}

void supervisor::run() {
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
    show(SERVICE_STOP_PENDING);
    end_children();
    if (WIFEXITED(end_) && WEXITSTATUS(end_) != 0) {
        report_.exit_code = ERROR_SERVICE_SPECIFIC_ERROR;
        report_.specific_exit_code = static_cast<DWORD>(WEXITSTATUS(end_));
    } else if (WIFSIGNALED(end_) && !(was_told_to_stop_ && WTERMSIG(end_) == SIGTERM)) {
        report_.exit_code = ERROR_PROCESS_ABORTED;
    }
    show(SERVICE_STOPPED);
}

// A service that was deleted while it ran goes now. Its status is closed by then: nothing of it lives.
void remove_if_deleted(int directory) {
    char path[PATH_MAX];
    const ssize_t size = readlink(("/proc/self/fd/" + std::to_string(directory)).c_str(), path, sizeof path);
    const std::string_view name(path, static_cast<size_t>(std::max<ssize_t>(size, 0)));
    const size_t slash = name.rfind('/');
    if (has_mark(directory, deleted_mark) && slash != std::string_view::npos)
        remove_if_unused(std::string(name.substr(0, slash)), std::string(name.substr(slash + 1)));
}

// The starter may have descriptors that nobody closes when a program is started: they would live on here.
void close_all_but(const std::vector<int>& kept) {
    DIR* const own = opendir("/proc/self/fd");
    if (!own)
        return;
    std::vector<int> others;
    while (const dirent* entry = readdir(own)) {
        const int number = std::atoi(entry->d_name);
        if (number > STDERR_FILENO && number != dirfd(own)
            && std::find(kept.begin(), kept.end(), number) == kept.end())
            others.push_back(number);
    }
    closedir(own);
    std::for_each(others.begin(), others.end(), close);
}

void run_service(int directory, int status, int answer) {
    for (int number : {directory, status, answer})
        fcntl(number, F_SETFD, FD_CLOEXEC);
    // SIGPIPE is blocked: a starter that has gone does not matter.
    const auto tell_starter = [answer](DWORD code) {
        retried([&] { return write(answer, &code, sizeof code); });
        close(answer);
    };
    DWORD code;
    {
        supervisor service(directory, status);
        code = service.start();
        if (code == ERROR_SUCCESS) {
            tell_starter(code);
            service.run();
        }
    }
    // The socket has gone before the lock goes, since the next start makes one of the same name. And who is told that
    // the start failed finds the service stopped.
    close(status);
    if (code != ERROR_SUCCESS)
        tell_starter(code);
    remove_if_deleted(directory);
}

} // namespace

int service(int count, char** arguments) {
    if (count != 3)
        return 2;
    const std::vector<int> passed{std::atoi(arguments[0]), std::atoi(arguments[1]), std::atoi(arguments[2])};
    close_all_but(passed);
    // The starter collects the parent at once; nobody is the parent of what goes on.
    if (const pid_t child = fork(); child != 0)
        _exit(child < 0);
    umask(022);
    if (chdir("/") == 0)
        run_service(passed[0], passed[1], passed[2]);
    _exit(0); // not by return: what the library's own objects do at the end concerns a process that used it
}

} // namespace zu_helper
