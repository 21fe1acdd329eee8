#include "support/process.h"

#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <utility>

namespace zu_test {

namespace {

// Reads both pipes until the child has closed them, so that neither can fill up and stop it.
void drain(int out, int error, outcome& result) {
    pollfd watched[] = {{out, POLLIN, 0}, {error, POLLIN, 0}};
    std::string* texts[] = {&result.output, &result.error_output};
    for (int open = 2; open > 0;) {
        poll(watched, 2, -1);
        for (int i = 0; i < 2; ++i) {
            if (watched[i].fd < 0 || watched[i].revents == 0)
                continue;
            char block[4096];
            const ssize_t size = read(watched[i].fd, block, sizeof block);
            if (size > 0) {
                texts[i]->append(block, static_cast<size_t>(size));
            } else {
                watched[i].fd = -1;
                --open;
            }
        }
    }
}

} // namespace

outcome run_child(const std::function<void()>& body) {
    outcome result;
    int out[2], error[2];
    if (pipe(out) != 0 || pipe(error) != 0)
        return result;
    std::fflush(nullptr);
    const pid_t child = fork();
    if (child == 0) {
        dup2(out[1], STDOUT_FILENO);
        dup2(error[1], STDERR_FILENO);
        for (int descriptor : {out[0], out[1], error[0], error[1]})
            close(descriptor);
        body();
        std::fflush(nullptr);
        _exit(0);
    }
    close(out[1]);
    close(error[1]);
    if (child > 0) {
        drain(out[0], error[0], result);
        int status = 0;
        waitpid(child, &status, 0);
        if (WIFSIGNALED(status))
            result.signal = WTERMSIG(status);
        else
            result.exit_code = WEXITSTATUS(status);
    }
    close(out[0]);
    close(error[0]);
    return result;
}

holder::holder(const std::function<uint32_t()>& body) {
    int done[2];
    child_ = pipe(done) == 0 ? fork() : -1;
    if (child_ < 0)
        return;
    if (child_ == 0) {
        const uint32_t result = body();
        if (write(done[1], &result, sizeof result) == sizeof result)
            pause();
        _exit(1);
    }
    close(done[1]);
    if (read(done[0], &result_, sizeof result_) != sizeof result_)
        result_ = 0xFFFFFFFF; // it ended before
    close(done[0]);
}

void holder::end() {
    if (child_ <= 0)
        return;
    kill(child_, SIGKILL);
    waitpid(std::exchange(child_, 0), nullptr, 0);
}

outcome run_command(const std::string& command) {
    return run_child([&] {
        execl("/bin/bash", "bash", "-c", command.c_str(), static_cast<char*>(nullptr));
        _exit(127);
    });
}

bool address_space_is_not_limited() {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    return true;
#else
    return false;
#endif
}

} // namespace zu_test
