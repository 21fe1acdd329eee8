#include "service.h"

#include <cstdio>

#include "failed.h"
#include "text.h"

namespace {

// A word of a command line as the program gets it back: backslashes count twice before a quote, and only there.
std::string quoted(const std::string& word) {
    if (!word.empty() && word.find_first_of(" \t\"") == word.npos)
        return word;
    std::string result = "\"";
    size_t backslashes = 0;
    for (char c : word) {
        if (c == '"')
            result.append(backslashes + 1, '\\');
        backslashes = c == '\\' ? backslashes + 1 : 0;
        result += c;
    }
    return result.append(backslashes, '\\') + '"';
}

// A service runs in another directory, so the paths are made full.
std::string command_line(const options& chosen) {
    ZU_wchar* const program = ZU_get_exe_path();
    if (!program)
        throw failed{"the path of taskd is too long for a service"};
    std::string line = '"' + taken(program) + '"';
    for (const run_word& each : chosen.run_words)
        line += ' ' + quoted(each.is_path ? full_path(each.text) : each.text);
    return line;
}

bool install(const options& chosen, const ZU_wchar* name) {
    return ZU_NT_service_install(nullptr, name, wide("Task scheduler (" + chosen.service + ")").c_str(),
                                 wide(command_line(chosen)).c_str(), SERVICE_WIN32_OWN_PROCESS,
                                 SERVICE_AUTO_START, nullptr);
}

const char* word_of(uint32_t state) {
    switch (state) {
    case SERVICE_STOPPED: return "stopped";
    case SERVICE_START_PENDING: return "starting";
    case SERVICE_STOP_PENDING: return "stopping";
    case SERVICE_RUNNING: return "running";
    case SERVICE_CONTINUE_PENDING: return "continuing";
    case SERVICE_PAUSE_PENDING: return "pausing";
    case SERVICE_PAUSED: return "paused";
    default: return nullptr; // a state that this program does not know
    }
}

// Gives the word for the state that follows; null, with the last-error code, on failure.
const char* carry_out(const options& chosen, const ZU_wchar* name) {
    switch (chosen.what) {
    case mode::install: return install(chosen, name) ? "installed" : nullptr;
    case mode::uninstall: return ZU_NT_service_uninstall(nullptr, name) ? "uninstalled" : nullptr;
    case mode::start: return ZU_NT_service_start(nullptr, name) ? "running" : nullptr;
    case mode::stop: return ZU_NT_service_stop(nullptr, name) ? "stopped" : nullptr;
    default: return word_of(ZU_NT_service_get_state(nullptr, name));
    }
}

} // namespace

void manage_service(const options& chosen) {
    const char* const result = carry_out(chosen, wide(chosen.service).c_str());
    if (!result)
        fail(chosen.service);
    std::printf("%s: %s\n", chosen.service.c_str(), result);
}
