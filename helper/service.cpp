// zu-helper service DIRECTORY STATUS LOCK ANSWER: runs the service of a directory. Its status is the file that the starter
// has made; the lock says that it is being started; the starter waits at the pipe for a code.
//
// Two processes go on: the helper, which supervises the service, and its keeper, which waits for the helper's end. When
// the helper is killed, what it has left becomes the keeper's, whatever rights it has given up and whatever descriptors
// it has closed, and is killed.
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

// The starter may have descriptors that nobody closes when a program is started: they would live on here.
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

// With the answer the start is over, for the keeper as well. SIGPIPE is blocked: a starter that has gone does not matter.
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
    // A starter that is told of a failure must find the service stopped.
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
    // The starter collects the parent at once; nobody is the parent of what goes on.
    if (const pid_t child = ::fork(); child != 0)
        ::_exit(child < 0);
    sigset_t all;
    ::sigfillset(&all);
    ::sigprocmask(SIG_SETMASK, &all, nullptr);
    ::umask(022);
    if (::chdir("/") == 0)
        be_the_keeper({numbers[0], numbers[1], numbers[2], numbers[3]});
    ::_exit(0); // not by return: what the library's own objects do at the end concerns a process that used it
}

} // namespace zu_helper
