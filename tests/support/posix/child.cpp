#include "support/child.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

namespace zu_test {

void make_pipe(int (&ends)[2]) {
    if (pipe2(ends, O_CLOEXEC) != 0)
        ends[0] = ends[1] = -1;
}

intptr_t start_own_program(const char* const* arguments) {
    pid_t id = 0;
    const int error =
        posix_spawn(&id, "/proc/self/exe", nullptr, nullptr, const_cast<char* const*>(arguments), environ);
    return error == 0 ? id : 0;
}

int exit_code_of(intptr_t process) {
    int status = 0;
    return waitpid(static_cast<pid_t>(process), &status, 0) > 0 && WIFEXITED(status) ? WEXITSTATUS(status)
                                                                                     : -1;
}

void terminate(intptr_t process) {
    kill(static_cast<pid_t>(process), SIGKILL);
}

} // namespace zu_test
