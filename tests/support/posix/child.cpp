#include "support/child.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

namespace zu_test {

const int exit_code_of_abort = -SIGABRT;

void make_pipe(int (&ends)[2]) {
    if (pipe2(ends, O_CLOEXEC) != 0)
        ends[0] = ends[1] = -1;
}

int own_copy(int descriptor) {
    return fcntl(descriptor, F_DUPFD_CLOEXEC, 3);
}

intptr_t start_program(const std::filesystem::path& program, const words& arguments) {
    std::vector<const char*> list = {program.c_str()};
    for (const std::string& word : arguments)
        list.push_back(word.c_str());
    list.push_back(nullptr);
    pid_t id = 0;
    const int error =
        posix_spawn(&id, program.c_str(), nullptr, nullptr, const_cast<char* const*>(list.data()), environ);
    return error == 0 ? id : 0;
}

int exit_code_of(intptr_t process) {
    int status = 0;
    if (waitpid(static_cast<pid_t>(process), &status, 0) <= 0)
        return -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

void terminate(intptr_t process) {
    kill(static_cast<pid_t>(process), SIGKILL);
}

} // namespace zu_test
