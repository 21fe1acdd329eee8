// zu service: the services of this machine, as the library's own calls see them.
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <thread>

#include "platform/services/service_manager.h"
#include "platform/text/utf8.h"
#include "tools/tools.h"
#include "zu/zu.h"

namespace zu_tools {

namespace {

using platform::SERVICE_STATUS;

const char* state_name(platform::DWORD state) {
    constexpr const char* names[] = {"unknown", "stopped",          "start-pending", "stop-pending",
                                     "running", "continue-pending", "pause-pending", "paused"};
    return names[state < std::size(names) ? state : 0];
}

std::u16string joined(const std::vector<std::u16string>& names, char16_t between) {
    std::u16string result;
    for (const std::u16string& name : names)
        result += (result.empty() ? std::u16string() : std::u16string(1, between)) + name;
    return result;
}

platform::DWORD status_of(const std::u16string& name, SERVICE_STATUS& status) {
    std::unique_ptr<platform::installed_service> opened;
    if (const platform::DWORD code = platform::the_service_manager().open(name, opened))
        return code;
    return opened->status(status);
}

int list(const arguments& given) {
    given.expect(1, 1);
    std::vector<platform::service_record> records;
    check(platform::the_service_manager().all(records), "the services");
    table rows({"name", "state", "display", "command", "depends"});
    for (const platform::service_record& record : records) {
        SERVICE_STATUS status{};
        const platform::DWORD code = status_of(record.name, status);
        rows.add({platform::utf8_of(record.name), code ? words_of(code) : state_name(status.dwCurrentState),
                  platform::utf8_of(record.display_name), platform::utf8_of(record.command_line),
                  platform::utf8_of(joined(record.dependencies, u','))});
    }
    rows.print(given);
    return done;
}

int state(const arguments& given) {
    given.expect(2, 2);
    SERVICE_STATUS status{};
    check(status_of(platform::wide_from(given.words[1]), status), given.words[1]);
    if (given.as_json) {
        facts result;
        result.add("state", state_name(status.dwCurrentState));
        result.add("exit_code", uint64_t{status.dwWin32ExitCode});
        result.add("specific_exit_code", uint64_t{status.dwServiceSpecificExitCode});
        result.add("check_point", uint64_t{status.dwCheckPoint});
        result.add("wait_hint_ms", uint64_t{status.dwWaitHint});
        result.print(given);
    } else {
        std::printf("%s\n", state_name(status.dwCurrentState));
        if (status.dwWin32ExitCode != 0)
            std::fprintf(stderr, "it ended with code %u: %s\n", status.dwWin32ExitCode,
                         words_of(status.dwWin32ExitCode).c_str());
    }
    return status.dwCurrentState == SERVICE_RUNNING ? done : failed;
}

// Calls a function of the library that waits for the service of the second word. While it waits, the service's progress
// is shown on standard error.
platform::DWORD watched(const arguments& given, ZU_bool (*work)(const ZU_wchar*, const ZU_wchar*)) {
    given.expect(2, 2);
    const std::u16string name = platform::wide_from(given.words[1]);
    std::atomic<bool> is_done = false;
    platform::DWORD code = ERROR_SUCCESS;
    std::thread worker([&] {
        code = work(nullptr, name.c_str()) ? platform::DWORD{ERROR_SUCCESS} : GetLastError();
        is_done = true;
    });
    const bool to_people = isatty(STDERR_FILENO);
    std::string before;
    for (unsigned slept_ms = 0; !is_done; slept_ms += 50) {
        usleep(50'000);
        SERVICE_STATUS status{};
        if (slept_ms < 500 || is_done || status_of(name, status) != ERROR_SUCCESS)
            continue;
        std::string line = shown(platform::utf8_of(name)) + ": " + state_name(status.dwCurrentState);
        if (status.dwCheckPoint)
            line += ", step " + std::to_string(status.dwCheckPoint);
        if (to_people)
            std::fprintf(stderr, "\r%s, %u s ", line.c_str(), slept_ms / 1000);
        else if (line != before)
            std::fprintf(stderr, "%s\n", line.c_str());
        before = line;
    }
    if (to_people && !before.empty())
        std::fputc('\n', stderr);
    worker.join();
    return code;
}

int start(const arguments& given) {
    const platform::DWORD code = watched(given, ZU_NT_service_start);
    if (code == ERROR_SERVICE_REQUEST_TIMEOUT)
        std::fprintf(stderr, "why may stand in the system log: zu service log %s\n",
                     shown(given.words[1]).c_str());
    check(code, "starting " + given.words[1]);
    return done;
}

int stop(const arguments& given) {
    const platform::DWORD code = watched(given, ZU_NT_service_stop);
    check(code, "stopping " + given.words[1]);
    return done;
}

int install(const arguments& given) {
    given.expect(3, 3);
    const std::u16string name = platform::wide_from(given.words[1]),
                         command = platform::wide_from(given.words[2]);
    const std::u16string display = platform::wide_from(given.value_of("--display"));
    std::u16string depends = platform::wide_from(given.value_of("--depends"));
    for (char16_t& unit : depends)
        unit = unit == u',' ? u'\0' : unit;
    depends.push_back(u'\0'); // the list ends with two zeros; the string's own terminator is the second
    if (!ZU_NT_service_install(nullptr, name.c_str(), display.c_str(), command.c_str(),
                               SERVICE_WIN32_OWN_PROCESS, SERVICE_DEMAND_START,
                               depends.size() > 1 ? depends.c_str() : nullptr))
        fail("installing " + given.words[1], GetLastError());
    return done;
}

int uninstall(const arguments& given) {
    const platform::DWORD code = watched(given, ZU_NT_service_uninstall);
    check(code, "uninstalling " + given.words[1]);
    return done;
}

// Shows the lines of the host's log: by its own reader, or without one from the file that a log daemon writes.
int log(const arguments& given) {
    given.expect(2, 2);
    SERVICE_STATUS status{};
    check(status_of(platform::wide_from(given.words[1]), status), given.words[1]);
    const std::string wanted = "service " + given.words[1] + " ";
    const std::string pattern =
        "service \\Q" + given.words[1] + "\\E has not started"; // a name may have any sign
    std::fflush(stdout);
    if (access("/run/systemd/journal/socket", F_OK) == 0)
        execlp("journalctl", "journalctl", "--no-pager", "--case-sensitive=false", "--grep", pattern.c_str(),
               nullptr);
    for (const char* file : {"/var/log/syslog", "/var/log/messages"}) {
        if (access(file, R_OK) == 0)
            execlp("grep", "grep", "-iF", "--", wanted.c_str(), file, nullptr);
    }
    fail("this machine keeps no system log that this user may read");
}

} // namespace

int service(const arguments& given) {
    given.allow({"--json", "--display", "--depends"});
    return run_order(given, {{"list", list},
                             {"state", state},
                             {"start", start},
                             {"stop", stop},
                             {"install", install},
                             {"uninstall", uninstall},
                             {"log", log}});
}

} // namespace zu_tools
