// The file of a service's live status, and its locks.
#include "platform/services/service_status.h"

#include <dirent.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>

#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <type_traits>

#include "platform/api/services.h"
#include "platform/api/threads.h"
#include "platform/core/error.h"
#include "platform/core/retry.h"

namespace platform {

namespace {

constexpr off_t alive_byte = 0;
constexpr off_t helper_byte = 1;
constexpr const char* new_status_name = "status.new";
static_assert(std::has_unique_object_representations_v<service_report>); // no padding in the checksum

struct flock lock_of(short type, off_t byte) {
    struct flock lock = {};
    lock.l_type = type;
    lock.l_whence = SEEK_SET;
    lock.l_start = byte;
    lock.l_len = 1;
    return lock;
}

// Finds the write lock that another process has on a byte; its type is F_UNLCK if there is none. The result is 0, or the
// code of why that cannot be told. Read locks, which any user could place, are not seen.
DWORD find_lock(int status, off_t byte, struct flock& out) {
    out = lock_of(F_RDLCK, byte);
    return fcntl(status, F_OFD_GETLK, &out) == 0 ? ERROR_SUCCESS : code_of_errno(errno);
}

struct stored_report {
    service_report report;
    uint64_t check;
};

uint64_t check_of(const service_report& report) {
    uint64_t hash = 0xcbf29ce484222325;
    unsigned char bytes[sizeof report];
    std::memcpy(bytes, &report, sizeof report);
    for (unsigned char byte : bytes)
        hash = (hash ^ byte) * 0x100000001b3;
    return hash;
}

// Reads the report. A report that is written at the same moment may be read half old and half new; then it is read again.
DWORD read_report(int status, service_report& out) {
    for (int attempt = 0; attempt < 1000; ++attempt) {
        stored_report stored;
        const ssize_t size = retried([&] { return pread(status, &stored, sizeof stored, 0); });
        if (size < 0)
            return code_of_errno(errno);
        if (size == sizeof stored && stored.check == check_of(stored.report)) {
            out = stored.report;
            return ERROR_SUCCESS;
        }
    }
    return ERROR_INVALID_DATA;
}

// Whether a process's descriptor refers to the open file description that has locked byte 0.
bool holds_alive_byte(const char* process, int number, const struct stat& status) {
    const std::string name = std::to_string(number);
    struct stat found;
    if (stat((std::string("/proc/") + process + "/fd/" + name).c_str(), &found) != 0
        || found.st_dev != status.st_dev || found.st_ino != status.st_ino)
        return false;
    const std::string path = std::string("/proc/") + process + "/fdinfo/" + name;
    const std::unique_ptr<FILE, int (*)(FILE*)> info(std::fopen(path.c_str(), "re"), std::fclose);
    char line[256];
    while (info && std::fgets(line, sizeof line, info.get())) {
        if (std::strncmp(line, "lock:", 5) == 0 && std::strstr(line, "OFDLCK"))
            return true;
    }
    return false;
}

} // namespace

descriptor new_status(int directory) {
    unlinkat(directory, new_status_name, 0); // a start that was cut short may have left one
    descriptor status(openat(directory, new_status_name, O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
    struct flock lock = lock_of(F_WRLCK, alive_byte);
    service_report first; // written now, so that a full disk fails the start and no later report
    if (status && (fcntl(status.get(), F_OFD_SETLK, &lock) != 0 || !write_report(status.get(), first)))
        status.reset();
    return status;
}

bool become_helper(int status) {
    struct flock lock = lock_of(F_WRLCK, helper_byte);
    return fcntl(status, F_SETLK, &lock) == 0;
}

bool publish_status(int directory, int status) {
    return fchmod(status, 0644) == 0 && renameat(directory, new_status_name, directory, "status") == 0;
}

void publish_failure(int directory, int status, DWORD exit_code, DWORD specific_exit_code) {
    service_report report;
    report.state = SERVICE_STOPPED;
    report.exit_code = exit_code;
    report.specific_exit_code = specific_exit_code;
    if (write_report(status, report))
        publish_status(directory, status);
}

void release_alive_byte(int status) {
    struct flock lock = lock_of(F_UNLCK, alive_byte);
    fcntl(status, F_OFD_SETLK, &lock);
}

bool write_report(int status, service_report& report) {
    report.made_at_ms = GetTickCount();
    const stored_report stored = {report, check_of(report)};
    const ssize_t size = retried([&] { return pwrite(status, &stored, sizeof stored, 0); });
    if (size >= 0 && size != sizeof stored)
        errno = ENOSPC;
    return size == sizeof stored;
}

DWORD status_watch::look(int directory, service_life& out) {
    out = {};
    struct flock alive = lock_of(F_UNLCK, alive_byte);
    DWORD code = file_ ? find_lock(file_.get(), alive_byte, alive) : ERROR_SUCCESS;
    if (code == ERROR_SUCCESS && alive.l_type == F_UNLCK) {
        // The file has no locks, so a newer start may have replaced it.
        file_ = descriptor(openat(directory, "status", O_RDONLY | O_CLOEXEC | O_NOFOLLOW));
        if (!file_)
            return errno == ENOENT ? ERROR_SUCCESS : code_of_errno(errno); // ENOENT: it was never started
        code = find_lock(file_.get(), alive_byte, alive);
    }
    if (code == ERROR_SUCCESS)
        code = read_report(file_.get(), out.report);
    out.is_alive = code == ERROR_SUCCESS && alive.l_type != F_UNLCK;
    if (code == ERROR_INVALID_DATA && alive.l_type == F_UNLCK)
        return ERROR_SUCCESS; // the machine broke down before the text reached the disk: the last run is unknown
    if (code != ERROR_SUCCESS)
        return code;
    if (!out.is_alive)
        return out.report.state == SERVICE_STOPPED ? ERROR_SUCCESS
                                                   : find_process(out.report.program, out.is_alive);
    struct flock helper;
    code = find_lock(file_.get(), helper_byte, helper);
    out.has_helper = code == ERROR_SUCCESS && helper.l_type != F_UNLCK;
    out.helper = out.has_helper && helper.l_pid > 0 ? helper.l_pid : 0;
    return code;
}

void end_leftovers(int directory, const service_report& report) {
    kill_process(report.program);
    struct stat status;
    if (report.descriptor < 0 || fstatat(directory, "status", &status, AT_SYMLINK_NOFOLLOW) != 0)
        return;
    const std::unique_ptr<DIR, int (*)(DIR*)> processes(opendir("/proc"), closedir);
    while (const dirent* entry = processes ? readdir(processes.get()) : nullptr) {
        pid_t process = 0;
        const char* const end = entry->d_name + std::strlen(entry->d_name);
        if (std::from_chars(entry->d_name, end, process).ptr == end && process > 1
            && holds_alive_byte(entry->d_name, report.descriptor, status))
            kill(process, SIGKILL);
    }
}

} // namespace platform
