// Processes by pid, start time and boot.
#include "platform/services/process_identity.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>

#include "platform/core/descriptor.h"
#include "platform/core/error.h"
#include "platform/core/retry.h"

namespace platform {

namespace {

// The text of a small file of /proc; false with errno.
bool read_text(const char* path, char* out, size_t size) {
    const descriptor file(open(path, O_RDONLY | O_CLOEXEC));
    const ssize_t count = file ? retried([&] { return read(file.get(), out, size - 1); }) : -1;
    out[count > 0 ? count : 0] = 0;
    return count >= 0;
}

// A number for this boot and this pid namespace. 0, with errno, if it cannot be computed.
uint32_t this_machine() {
    char boot[64];
    struct stat pids;
    if (!read_text("/proc/sys/kernel/random/boot_id", boot, sizeof boot)
        || stat("/proc/self/ns/pid", &pids) != 0)
        return 0;
    uint32_t hash = 0x811c9dc5;
    for (char c : boot + std::to_string(pids.st_ino))
        hash = (hash ^ static_cast<uint8_t>(c)) * 0x01000193;
    return hash | 1;
}

// Reads when a process started; false with errno. The fields follow the program's name, which may hold spaces and
// parentheses.
bool read_start_time(pid_t process, uint64_t& out) {
    char text[1024];
    if (!read_text(("/proc/" + std::to_string(process) + "/stat").c_str(), text, sizeof text))
        return false;
    const char* const name_end = std::strrchr(text, ')');
    unsigned long long ticks = 0;
    char state = 0;
    constexpr const char* format =
        " %c %*d %*d %*d %*d %*d %*u %*u %*u %*u %*u %*u %*u %*d %*d %*d %*d %*d %*d %llu";
    if (!name_end || std::sscanf(name_end + 1, format, &state, &ticks) != 2 || state == 'Z' || state == 'X') {
        errno = ESRCH; // a zombie has ended: only its parent has not collected it yet
        return false;
    }
    out = ticks;
    return true;
}

} // namespace

process_identity identity_of(pid_t process) {
    process_identity found;
    found.machine = this_machine();
    if (found.machine != 0 && read_start_time(process, found.start_time))
        found.number = process;
    return found;
}

DWORD find_process(const process_identity& wanted, bool& lives) {
    lives = false;
    if (wanted.number == 0 || (kill(wanted.number, 0) != 0 && errno == ESRCH))
        return ERROR_SUCCESS;
    const uint32_t machine = this_machine();
    if (machine == 0)
        return code_of_errno(errno);
    if (machine != wanted.machine)
        return ERROR_SUCCESS;
    uint64_t start_time = 0;
    if (read_start_time(wanted.number, start_time)) {
        lives = start_time == wanted.start_time;
        return ERROR_SUCCESS;
    }
    // The process may have ended between the two looks. If it has not, /proc hides it from this user.
    const bool ended = errno == ESRCH || (errno == ENOENT && kill(wanted.number, 0) != 0 && errno == ESRCH);
    return ended ? ERROR_SUCCESS : errno == ENOENT ? ERROR_ACCESS_DENIED : code_of_errno(errno);
}

void kill_process(const process_identity& wanted) {
    // The pidfd always means the process that it was opened for. So it is opened first, and then that process is compared
    // with the wanted one.
    const descriptor opened(wanted.number > 0 ? open_process(wanted.number) : -1);
    bool lives = false;
    if (opened && find_process(wanted, lives) == ERROR_SUCCESS && lives)
        send_signal(opened.get(), SIGKILL);
}

int open_process(pid_t process) {
    return static_cast<int>(syscall(SYS_pidfd_open, process, 0));
}

int send_signal(int process, int signal) {
    return static_cast<int>(syscall(SYS_pidfd_send_signal, process, signal, nullptr, 0));
}

} // namespace platform
