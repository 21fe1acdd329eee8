#include "support/child.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <utility>

namespace zu_test {

struct child::process {
    pid_t id = 0;
    int to = -1, from = -1; // its input and output

    void stop_input() { close(std::exchange(to, -1)); }
    int collect() {
        int status = 0;
        const pid_t ended = id > 0 ? waitpid(std::exchange(id, 0), &status, 0) : 0;
        return ended > 0 && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }
};

child::child(const part& plays, const words& arguments)
    : process_(new process, [](process* one) {
          close(one->from);
          delete one;
      }) {
    int input[2], output[2];
    if (pipe2(input, O_CLOEXEC) != 0 || pipe2(output, O_CLOEXEC) != 0)
        return;
    posix_spawn_file_actions_t streams;
    posix_spawn_file_actions_init(&streams);
    posix_spawn_file_actions_adddup2(&streams, input[0], STDIN_FILENO);
    posix_spawn_file_actions_adddup2(&streams, output[1], STDOUT_FILENO);
    std::string program = "/proc/self/exe", first = "--part", name = plays.name;
    words copy = arguments;
    std::vector<char*> list = {program.data(), first.data(), name.data()};
    for (std::string& word : copy)
        list.push_back(word.data());
    list.push_back(nullptr);
    if (posix_spawn(&process_->id, program.c_str(), &streams, nullptr, list.data(), environ) != 0)
        process_->id = 0;
    posix_spawn_file_actions_destroy(&streams);
    close(input[0]);
    close(output[1]);
    process_->to = input[1];
    process_->from = output[0];
}

std::string child::next_line() {
    std::string line;
    for (char byte = 0; read(process_->from, &byte, 1) == 1 && byte != '\n';)
        line += byte;
    return line;
}

int child::finish() {
    process_->stop_input();
    return process_->collect();
}

void child::kill() {
    if (process_->id > 0)
        ::kill(process_->id, SIGKILL);
    finish();
}

} // namespace zu_test
