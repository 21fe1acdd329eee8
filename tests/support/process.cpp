#include "support/process.h"

#include <net/if.h>
#include <sched.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <thread>
#include <utility>

#include <gtest/gtest.h>

namespace zu_test {

namespace {

std::string taken_from(int file) {
    std::string text(static_cast<size_t>(lseek(file, 0, SEEK_END)), 0);
    text.resize(static_cast<size_t>(pread(file, text.data(), text.size(), 0)));
    close(file);
    return text;
}

} // namespace

outcome run_child(const std::function<void()>& body) {
    const int out = memfd_create("output", 0), error = memfd_create("errors", 0); // which never fill up
    std::fflush(nullptr);
    const pid_t child = fork();
    if (child == 0) {
        dup2(out, STDOUT_FILENO);
        dup2(error, STDERR_FILENO);
        close(out);
        close(error);
        body();
        std::fflush(nullptr);
        _exit(0);
    }
    const int exit_code = exit_code_of(child);
    return {exit_code, taken_from(out), taken_from(error)};
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

void in_private_network(const std::string& cover, const char* covered, const std::function<void()>& body) {
    bool had_one = false;
    std::thread([&] {
        had_one = unshare(CLONE_NEWNET | CLONE_NEWNS) == 0
                  && mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
        if (!had_one)
            return;
        ifreq request{};
        std::strcpy(request.ifr_name, "lo");
        request.ifr_flags = IFF_UP;
        const int control = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        ioctl(control, SIOCSIFFLAGS, &request);
        close(control);
        ASSERT_EQ(mount(cover.c_str(), covered, nullptr, MS_BIND, nullptr), 0) << covered;
        body();
    }).join();
    if (!had_one)
        GTEST_SKIP() << "this user may not have a network and mounts of its own";
}

outcome run_command(const std::string& command) {
    return run_child([&] {
        execl("/bin/bash", "bash", "-c", command.c_str(), static_cast<char*>(nullptr));
        _exit(127);
    });
}

} // namespace zu_test
