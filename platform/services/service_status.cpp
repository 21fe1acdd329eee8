// The file of a service's live status, and its locks.
#include "platform/services/service_status.h"

#include <dirent.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>

#include <charconv>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>

#include "platform/core/retry.h"

namespace platform {

namespace {

constexpr off_t alive_byte = 0;
constexpr off_t helper_byte = 1;

struct flock lock_of(short type, off_t byte) {
    struct flock lock = {};
    lock.l_type = type;
    lock.l_whence = SEEK_SET;
    lock.l_start = byte;
    lock.l_len = 1;
    return lock;
}

// Whether somebody has a byte locked for writing, and who, when it is a process. A reader's lock, which any user could
// place, is not seen.
bool is_held(int status, off_t byte, pid_t* holder = nullptr) {
    struct flock lock = lock_of(F_RDLCK, byte);
    if (fcntl(status, F_OFD_GETLK, &lock) != 0 || lock.l_type == F_UNLCK)
        return false;
    if (holder)
        *holder = lock.l_pid > 0 ? lock.l_pid : 0;
    return true;
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

// A report is written in one call, but one that is read meanwhile may be half old, half new: then it is read again.
service_report read_report(int status) {
    for (int attempt = 0; attempt < 1000; ++attempt) {
        stored_report stored;
        const ssize_t size = retried([&] { return pread(status, &stored, sizeof stored, 0); });
        if (size == sizeof stored && stored.check == check_of(stored.report))
            return stored.report;
    }
    return {};
}

// Whether a process's descriptor is the description that holds byte 0 of the file.
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
    unlinkat(directory, "status.new", 0);
    descriptor status(openat(directory, "status.new", O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
    if (!status)
        return status;
    struct flock lock = lock_of(F_WRLCK, alive_byte);
    service_report first;
    first.state = SERVICE_START_PENDING;
    first.wait_hint_ms = usual_wait_hint_ms;
    write_report(status.get(), first);
    // Others may read it, and so place locks on it, once it is locked and complete.
    if (fcntl(status.get(), F_OFD_SETLK, &lock) != 0 || fchmod(status.get(), 0644) != 0
        || renameat(directory, "status.new", directory, "status") != 0)
        status.reset();
    return status;
}

bool become_helper(int status) {
    struct flock lock = lock_of(F_WRLCK, helper_byte);
    return fcntl(status, F_SETLK, &lock) == 0;
}

void write_report(int status, const service_report& report) {
    stored_report stored = {report, check_of(report)};
    retried([&] { return pwrite(status, &stored, sizeof stored, 0); });
}

service_life status_watch::look(int directory) {
    service_life life;
    // A file whose locks are gone may have been replaced by that of a newer start.
    if (!file_ || !is_held(file_.get(), alive_byte))
        file_ = descriptor(openat(directory, "status", O_RDONLY | O_CLOEXEC | O_NOFOLLOW));
    if (!file_)
        return life;
    life.is_alive = is_held(file_.get(), alive_byte);
    life.has_helper = life.is_alive && is_held(file_.get(), helper_byte, &life.helper);
    life.report = read_report(file_.get());
    return life;
}

void end_leftovers(int directory, const service_report& report) {
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
