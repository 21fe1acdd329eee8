// Names of units, and orders to systemd by way of its own program.
#include "platform/services/systemd.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <fstream>
#include <vector>

#include "platform/api/threads.h"
#include "platform/core/descriptor.h"
#include "platform/core/error.h"
#include "platform/core/host_dir.h"
#include "platform/core/retry.h"
#include "platform/text/case_fold.h"
#include "platform/text/utf8.h"

namespace platform {

namespace {

constexpr DWORD answer_limit_ms = 30000;
constexpr DWORD question_limit_ms = 10000;
constexpr DWORD look_ms = 5;

// Whether the helper is where the template of the units names it, by its full path. An installation that was moved has it
// elsewhere.
bool names_a_helper(std::ifstream& unit_template) {
    constexpr std::string_view key = "ExecStart=";
    for (std::string line; std::getline(unit_template, line);) {
        if (!line.starts_with(key))
            continue;
        const size_t start = line.find('/'), end = line.find(' ', start);
        return start != std::string::npos && access(line.substr(start, end - start).c_str(), X_OK) == 0;
    }
    return false;
}

bool is_plain(char c) {
    return (c >= '0' && c <= '9') || ((c | 0x20) >= 'a' && (c | 0x20) <= 'z') || c == ':' || c == '_'
           || c == '.';
}

} // namespace

// Escapes the name as systemd-escape does.
std::string unit_of(wide_view service_name) {
    std::u16string folded;
    for (WCHAR unit : service_name)
        folded += static_cast<WCHAR>(fold_case(unit));
    const std::string name = utf8_of(folded);
    std::string unit = "zu@";
    for (char c : name) {
        char escaped[8];
        std::snprintf(escaped, sizeof escaped, "\\x%02x", static_cast<unsigned char>(c));
        if (is_plain(c) && (c != '.' || unit.size() > 3))
            unit += c;
        else
            unit += escaped;
    }
    unit += ".service";
    return wide_from(name) == folded && unit.size() <= longest_unit ? unit : std::string();
}

bool runs_this_machine() {
    return std::string_view(host_directory()) == standard_host_directory
           && access("/run/systemd/system", F_OK) == 0;
}

bool prefers_units() {
    if (geteuid() != 0 || !runs_this_machine())
        return false;
    for (const char* folder : {"/etc", "/run", "/usr/local/lib", "/usr/lib", "/lib"}) {
        const std::string path = std::string(folder) + "/systemd/system/zu@.service";
        if (access(path.c_str(), F_OK) != 0)
            continue;
        std::ifstream file(path); // the first one counts
        return !file || names_a_helper(file);
    }
    return false;
}

namespace {

struct ending {
    DWORD code;    // 0, or why the program could not be started
    bool is_known; // a caller that ignores the ends of its children loses this one's
    int status;    // as waitpid gives it
};

// Reads until the other end is closed. False if an error or the time ends it before.
bool read_all(int pipe, DWORD start, std::string& out) {
    for (char block[1024];;) {
        pollfd ready = {pipe, POLLIN, 0};
        const DWORD waited = GetTickCount() - start;
        if (waited >= question_limit_ms
            || retried([&] { return poll(&ready, 1, static_cast<int>(question_limit_ms - waited)); }) <= 0)
            return false;
        const ssize_t size = retried([&] { return read(pipe, block, sizeof block); });
        if (size <= 0)
            return size == 0;
        out.append(block, static_cast<size_t>(size));
    }
}

// Runs systemctl. What it prints goes to `output`, or nowhere if that is null.
ending run(bool for_user, std::initializer_list<std::string> arguments, std::string* output) {
    std::vector<std::string> words{"systemctl", for_user ? "--user" : "--system", "--quiet",
                                   "--no-ask-password"};
    words.insert(words.end(), arguments);
    std::vector<char*> pointers(words.size() + 1); // the last one stays null
    std::transform(words.begin(), words.end(), pointers.begin(),
                   [](std::string& word) { return word.data(); });
    int ends[2] = {-1, -1};
    if (output && pipe2(ends, O_CLOEXEC) != 0)
        return {code_of_errno(errno), false, 0};
    const descriptor printed(ends[0]);
    descriptor printing(ends[1]);
    if (output && (!printed || !printing)) // they could not be moved away from the standard streams
        return {code_of_errno(errno), false, 0};

    posix_spawn_file_actions_t streams;
    posix_spawn_file_actions_init(&streams);
    for (int number : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
        posix_spawn_file_actions_addopen(&streams, number, "/dev/null", O_RDWR, 0);
    if (output)
        posix_spawn_file_actions_adddup2(&streams, printing.get(), STDOUT_FILENO);
    pid_t child = -1;
    const int error = posix_spawn(&child, "/usr/bin/systemctl", &streams, nullptr, pointers.data(), environ);
    posix_spawn_file_actions_destroy(&streams);
    if (error != 0)
        return {code_of_errno(error), false, 0};

    printing.reset();
    const DWORD start = GetTickCount();
    const bool is_cut = output && !read_all(printed.get(), start, *output);
    // Looking again and again takes no descriptor, of which none may be free.
    int status = 0;
    pid_t ended;
    while ((ended = waitpid(child, &status, WNOHANG)) == 0) {
        if (is_cut || GetTickCount() - start > answer_limit_ms)
            kill(child, SIGKILL);
        Sleep(look_ms);
    }
    return {is_cut ? DWORD{RPC_S_SERVER_UNAVAILABLE} : DWORD{ERROR_SUCCESS}, ended == child, status};
}

} // namespace

DWORD run_systemctl(bool for_user, std::initializer_list<std::string> arguments) {
    const ending end = run(for_user, arguments, nullptr);
    // An order whose end is unknown counts as given: the service's status tells whether it was carried out.
    if (end.code != ERROR_SUCCESS || !end.is_known || end.status == 0)
        return end.code;
    constexpr int no_permission = 4; // systemctl's exit status for it
    return WIFEXITED(end.status) && WEXITSTATUS(end.status) == no_permission ? ERROR_ACCESS_DENIED
                                                                             : ERROR_SERVICE_REQUEST_TIMEOUT;
}

DWORD ask_systemctl(bool for_user, std::initializer_list<std::string> arguments, std::string& output) {
    const ending end = run(for_user, arguments, &output);
    if (end.code == ERROR_SUCCESS && ((end.is_known && end.status != 0) || output.empty()))
        return RPC_S_SERVER_UNAVAILABLE;
    return end.code;
}

} // namespace platform
