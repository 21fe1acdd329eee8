// Ending what a program has left behind.
#include "helper/children.h"

#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "platform/api/threads.h"

namespace zu_helper {

namespace {

std::vector<pid_t> own_children() {
    const std::string path = "/proc/self/task/" + std::to_string(::getpid()) + "/children";
    const std::unique_ptr<FILE, int (*)(FILE*)> list(std::fopen(path.c_str(), "re"), std::fclose);
    std::vector<pid_t> children;
    for (pid_t child; list && std::fscanf(list.get(), "%d", &child) == 1;)
        children.push_back(child);
    return children;
}

} // namespace

bool adopt_orphans() {
    return ::prctl(PR_SET_CHILD_SUBREAPER, 1) == 0;
}

// A child that lives may hold the lock on byte 0 of the status, and then the service cannot be started.
void end_children(platform::DWORD limit_ms, const std::function<void()>& between) {
    std::vector<pid_t> asked;
    const platform::DWORD start = platform::GetTickCount();
    while (::waitpid(-1, nullptr, WNOHANG) >= 0) {
        between();
        const bool is_late = platform::GetTickCount() - start >= limit_ms;
        for (pid_t child : own_children()) {
            if (is_late) {
                ::kill(child, SIGKILL);
            } else if (std::find(asked.begin(), asked.end(), child) == asked.end()) {
                ::kill(child, SIGTERM);
                asked.push_back(child);
            }
        }
        platform::Sleep(20);
    }
}

} // namespace zu_helper
