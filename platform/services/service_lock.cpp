// Locks of services.
#include "platform/services/service_lock.h"

#include <sys/file.h>
#include <sys/stat.h>
#include <time.h>

#include <cerrno>

#include "platform/core/error.h"
#include "platform/core/retry.h"

namespace platform {

namespace {

// Every user who can open the file can hold the lock. So the file is for those who may write to its directory, and for
// nobody else.
descriptor open_lock(int directory, const char* name) {
    descriptor file(openat(directory, name, O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600));
    struct stat above, own;
    if (!file || fstat(directory, &above) != 0 || fstat(file.get(), &own) != 0 || own.st_uid != geteuid())
        return file;
    // Root's lock in a directory of another user, as which a unit's helper may run, belongs to that user. A link to
    // another file does not. Where it cannot be given, it stays root's.
    constexpr uid_t same_user = -1;
    constexpr gid_t same_group = -1;
    if (own.st_uid == 0 && above.st_uid != 0 && own.st_nlink == 1 && own.st_size == 0) {
        [[maybe_unused]] const int result = fchown(file.get(), above.st_uid, same_group);
    }
    const bool is_for_group =
        (above.st_mode & S_IWGRP) != 0
        && (own.st_gid == above.st_gid || fchown(file.get(), same_user, above.st_gid) == 0);
    const mode_t mode = 0600 | (is_for_group ? 060 : 0) | ((above.st_mode & S_IWOTH) != 0 ? 06 : 0);
    if ((own.st_mode & 0777) != mode)
        fchmod(file.get(), mode);
    return file;
}

bool try_lock(int file) {
    return retried([&] { return flock(file, LOCK_EX | LOCK_NB); }) == 0;
}

} // namespace

service_lock::service_lock(int directory, const char* name) : file_(open_lock(directory, name)) {
    bool is_locked = file_ && try_lock(file_.get());
    for (int attempt = 0; file_ && !is_locked && errno == EWOULDBLOCK && attempt < 100; ++attempt) {
        const timespec pause = {0, 10'000'000};
        nanosleep(&pause, nullptr);
        is_locked = try_lock(file_.get());
    }
    if (!is_locked)
        code_ = errno == EWOULDBLOCK ? ERROR_SERVICE_DATABASE_LOCKED : code_of_errno(errno);
}

bool service_lock::is_held(int directory, const char* name) {
    const descriptor file(openat(directory, name, O_RDONLY | O_CLOEXEC | O_NOFOLLOW));
    return file ? !try_lock(file.get()) : errno != ENOENT;
}

} // namespace platform
