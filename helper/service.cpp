// zu-helper service DIRECTORY STATUS LOCK ANSWER: runs the service of a directory. The arguments are fds: the directory,
// the status file that the starter has made, the start lock, and the pipe on which the starter waits for a code.
//
// Two processes go on: the helper, which supervises the service, and its keeper, which waits for the helper's end. If the
// helper is killed, the keeper adopts the processes of the service and kills them. That also reaches those that have
// changed their user or closed the fd of the status.
#include <dirent.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <string>
#include <vector>

#include "helper/children.h"
#include "helper/helper.h"
#include "helper/supervisor.h"
#include "platform/core/error.h"
#include "platform/core/retry.h"
#include "platform/services/service_directory.h"

namespace zu_helper {

namespace {

namespace layer = platform;

struct passed_descriptors {
    int directory, status, lock, answer;
};

// Closes the descriptors that the starter has leaked into this process, which would stay open here.
void close_all_but(const std::vector<int>& kept) {
    DIR* const own = ::opendir("/proc/self/fd");
    if (!own)
        return;
    std::vector<int> others;
    while (const dirent* entry = ::readdir(own)) {
        const int number = std::atoi(entry->d_name);
        if (number > STDERR_FILENO && number != ::dirfd(own)
            && std::find(kept.begin(), kept.end(), number) == kept.end())
            others.push_back(number);
    }
    ::closedir(own);
    for (int number : others)
        ::close(number);
}

// Answers the starter, and gives the start lock back. SIGPIPE is blocked, since the starter may have ended.
void tell_starter(const passed_descriptors& passed, DWORD code) {
    ::flock(passed.lock, LOCK_UN);
    layer::retried([&] { return ::write(passed.answer, &code, sizeof code); });
}

void close_start(const passed_descriptors& passed) {
    ::close(passed.answer);
    ::close(passed.lock);
}

void be_the_helper(const passed_descriptors& passed, const std::string& socket_path) {
    DWORD code;
    {
        supervisor service(passed.directory, passed.status);
        code = service.start(socket_path);
        if (code == ERROR_SUCCESS) {
            tell_starter(passed, code);
            close_start(passed);
            service.run();
        }
    }
    // Frees byte 0 first: a starter that is told of a failure must find the service stopped.
    layer::release_alive_byte(passed.status);
    if (code != ERROR_SUCCESS)
        tell_starter(passed, code);
}

void be_the_keeper(const passed_descriptors& passed) {
    {
        const notify_place place(passed.directory);
        const pid_t helper = adopt_orphans() ? ::fork() : -1;
        if (helper == 0) {
            be_the_helper(passed, place.path());
            ::_exit(0);
        }
        if (helper < 0)
            tell_starter(passed, layer::code_of_errno(errno));
        close_start(passed);
        int end = 0;
        layer::retried([&] { return ::waitpid(helper, &end, 0); });
        end_children(0, [] {});
        if (WIFSIGNALED(end))
            ::unlink(place.path().c_str());
    }
    ::close(passed.status); // byte 0 is free now: nothing of the service lives
    layer::remove_if_deleted(passed.directory);
}

} // namespace

int service(int count, char** arguments) {
    if (count != 4)
        return 2;
    std::vector<int> numbers(4);
    std::transform(arguments, arguments + 4, numbers.begin(), std::atoi);
    close_all_but(numbers);
    for (int number : numbers)
        ::fcntl(number, F_SETFD, FD_CLOEXEC);
    // The starter collects this process at once. The child goes on, adopted by init.
    if (const pid_t child = ::fork(); child != 0)
        ::_exit(child < 0);
    sigset_t all;
    ::sigfillset(&all);
    ::sigprocmask(SIG_SETMASK, &all, nullptr);
    ::umask(022);
    if (::chdir("/") == 0)
        be_the_keeper({numbers[0], numbers[1], numbers[2], numbers[3]});
    ::_exit(0); // without the destructors of static objects, which belong to the starter's life
}

} // namespace zu_helper
