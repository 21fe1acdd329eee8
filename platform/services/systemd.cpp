// Names of units, and orders to systemd by way of its own program.
#include "platform/services/systemd.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <vector>

#include "platform/api/threads.h"
#include "platform/core/error.h"
#include "platform/core/host_dir.h"
#include "platform/text/case_fold.h"
#include "platform/text/utf8.h"

namespace platform {

namespace {

constexpr DWORD answer_limit_ms = 30000;
constexpr DWORD look_ms = 5;
constexpr size_t longest_unit = 255; // systemd's own limit

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

bool prefers_units() {
    const auto is_there = [](const std::string& path) { return access(path.c_str(), F_OK) == 0; };
    if (geteuid() != 0 || std::string_view(host_directory()) != standard_host_directory
        || !is_there("/run/systemd/system"))
        return false;
    for (const char* folder : {"/etc", "/run", "/usr/local/lib", "/usr/lib", "/lib"}) {
        if (is_there(std::string(folder) + "/systemd/system/zu@.service"))
            return true;
    }
    return false;
}

namespace {

struct ending {
    DWORD code;    // 0, or why the program could not be started
    bool is_known; // a caller that ignores the ends of its children loses this one's
    int status;    // as waitpid gives it
};

ending run(bool for_user, std::initializer_list<std::string> arguments) {
    std::vector<std::string> words{"systemctl", for_user ? "--user" : "--system", "--quiet",
                                   "--no-ask-password"};
    words.insert(words.end(), arguments);
    std::vector<char*> pointers(words.size() + 1); // the last one stays null
    std::transform(words.begin(), words.end(), pointers.begin(),
                   [](std::string& word) { return word.data(); });

    posix_spawn_file_actions_t streams;
    posix_spawn_file_actions_init(&streams);
    for (int number : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
        posix_spawn_file_actions_addopen(&streams, number, "/dev/null", O_RDWR, 0);
    pid_t child = -1;
    const int error = posix_spawn(&child, "/usr/bin/systemctl", &streams, nullptr, pointers.data(), environ);
    posix_spawn_file_actions_destroy(&streams);
    if (error != 0)
        return {code_of_errno(error), false, 0};

    // Looking again and again takes no descriptor, of which none may be free.
    int status = 0;
    pid_t ended;
    for (const DWORD start = GetTickCount(); (ended = waitpid(child, &status, WNOHANG)) == 0;
         Sleep(look_ms)) {
        if (GetTickCount() - start > answer_limit_ms)
            kill(child, SIGKILL);
    }
    return {ERROR_SUCCESS, ended == child, status};
}

} // namespace

DWORD run_systemctl(bool for_user, std::initializer_list<std::string> arguments) {
    const ending end = run(for_user, arguments);
    // An order whose end is unknown counts as given: the service's status tells whether it was carried out.
    if (end.code != ERROR_SUCCESS || !end.is_known || end.status == 0)
        return end.code;
    constexpr int no_permission = 4; // systemctl's exit status for it
    return WIFEXITED(end.status) && WEXITSTATUS(end.status) == no_permission ? ERROR_ACCESS_DENIED
                                                                             : ERROR_SERVICE_REQUEST_TIMEOUT;
}

bool has_failed(const std::string& unit) {
    const ending end = run(geteuid() != 0, {"is-failed", "--", unit});
    return end.code == ERROR_SUCCESS && end.is_known && end.status == 0;
}

} // namespace platform
