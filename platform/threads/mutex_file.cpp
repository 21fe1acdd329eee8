// The file that a named mutex shares between processes.
#include "platform/threads/mutex_file.h"

#include <fcntl.h>
#include <linux/futex.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/syscall.h>

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <ctime>
#include <utility>

#include "platform/api/threads.h"
#include "platform/core/error.h"
#include "platform/core/retry.h"

namespace platform {

namespace {

constexpr char folder[] = "/dev/shm";
constexpr char prefix[] = "/dev/shm/zu.mutex.";
constexpr size_t longest_plain_name = 180; // of a file, which may have 255 bytes
constexpr mode_t for_owner = 0600;
constexpr mode_t for_all = 0666;

// Bytes that are locked lie beyond the text, which only the "held" byte belongs to.
constexpr off_t initialisation = 1 << 20;
constexpr off_t liveness = initialisation + 1;
constexpr off_t ownership = initialisation + 2;

constexpr char magic[] = "zu mutex 1 \n"; // the "held" word follows, then the name
constexpr off_t held_at = sizeof magic - 1;
constexpr uint32_t is_free = 0; // else the number of the thread that holds it or has died holding it
static_assert(held_at % sizeof is_free == 0);

// Who gives the lock up wakes who waits for it, but who is killed wakes nobody: so a sleep is no longer than that.
constexpr DWORD longest_sleep_ms = 50;

// Of the pauses for as long as the word does not tell that the lock is held.
constexpr long first_pause_ns = 50'000;
constexpr long longest_pause_ns = 10'000'000;

bool set_lock(int file, int command, short kind, off_t byte) {
    struct flock range {};
    range.l_type = kind;
    range.l_whence = SEEK_SET;
    range.l_start = byte;
    range.l_len = 1;
    return retried([&] { return fcntl(file, command, &range); }) == 0;
}

bool try_lock(int file, off_t byte) {
    return set_lock(file, F_OFD_SETLK, F_WRLCK, byte);
}

mode_t mode_of(bool for_everyone) {
    return for_everyone ? for_all : for_owner;
}

// On the descriptor, whatever the umask says. A file that another user left behind for everyone stays as it is.
bool set_rights(int file, bool for_everyone) {
    struct stat status;
    return fstat(file, &status) == 0
           && (status.st_uid != geteuid() || fchmod(file, mode_of(for_everyone)) == 0);
}

// A new file under a name that is free, else errno. It gets its name when it has its rights, so that no user is ever
// refused at a lock for everyone.
descriptor create_file(const std::string& path, bool for_everyone) {
    descriptor file(::open(folder, O_RDWR | O_CLOEXEC | O_TMPFILE, for_owner));
    if (!file || fchmod(file.get(), mode_of(for_everyone)) != 0)
        return {};
    if (linkat(file.get(), "", AT_FDCWD, path.c_str(), AT_EMPTY_PATH) == 0)
        return file;
    if (errno != ENOENT) // so it says to an ordinary user
        return {};
    const std::string unnamed = "/proc/self/fd/" + std::to_string(file.get());
    const bool linked = linkat(AT_FDCWD, unnamed.c_str(), AT_FDCWD, path.c_str(), AT_SYMLINK_FOLLOW) == 0;
    return linked ? std::move(file) : descriptor();
}

std::string path_of(const std::u16string& name) {
    std::string path = prefix;
    uint64_t hash = 0xCBF29CE484222325; // of the whole name, for those that are too long for a file's
    for (char16_t unit : name) {
        hash = (hash ^ unit) * 0x100000001B3;
        const bool plain = (unit >= u'a' && unit <= u'z') || (unit >= u'A' && unit <= u'Z')
                           || (unit >= u'0' && unit <= u'9') || unit == u'-' || unit == u'_' || unit == u'.';
        char escaped[8];
        std::snprintf(escaped, sizeof escaped, plain ? "%c" : "%%%04X", unit);
        path += escaped;
    }
    if (path.size() > longest_plain_name) {
        char tail[20];
        std::snprintf(tail, sizeof tail, "%%%%%016llx", static_cast<unsigned long long>(hash));
        path.replace(longest_plain_name, std::string::npos, tail);
    }
    return path;
}

std::string text_of(const std::u16string& name) {
    std::string text = magic;
    text.append(sizeof is_free, 0);
    return text.append(reinterpret_cast<const char*>(name.data()), name.size() * sizeof(char16_t));
}

void pause_for(long nanoseconds) {
    const timespec length{0, nanoseconds};
    nanosleep(&length, nullptr);
}

} // namespace

bool mutex_file::is_still_named() const {
    struct stat opened, named;
    return fstat(file_.get(), &opened) == 0 && lstat(path_.c_str(), &named) == 0
           && opened.st_dev == named.st_dev && opened.st_ino == named.st_ino;
}

DWORD mutex_file::open(const std::u16string& name, bool may_create, bool for_everyone, bool& existed) {
    path_ = path_of(name);
    for (;;) {
        bool again = false;
        const DWORD code = open_once(name, may_create, for_everyone, existed, again);
        if (again)
            continue;
        if (code != ERROR_SUCCESS)
            file_.reset();
        return code;
    }
}

namespace {

// Another user's file is one of the locks for everyone, or no business of ours.
DWORD check_rights(int file) {
    struct stat status;
    if (fstat(file, &status) != 0 || !S_ISREG(status.st_mode))
        return ERROR_INVALID_HANDLE;
    return status.st_uid == geteuid() || (status.st_mode & for_all) == for_all ? ERROR_SUCCESS
                                                                               : ERROR_ACCESS_DENIED;
}

} // namespace

DWORD mutex_file::open_once(const std::u16string& name, bool may_create, bool for_everyone, bool& existed,
                            bool& again) {
    // First without the create flag: kernels refuse that flag on another user's file in a sticky folder. Not waiting
    // for the other end, should somebody have put a pipe there.
    file_ = descriptor(::open(path_.c_str(), O_RDWR | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK));
    if (!file_ && errno == ENOENT && may_create) {
        file_ = create_file(path_, for_everyone);
        again = !file_ && errno == EEXIST;
    }
    if (!file_)
        return errno == ELOOP || errno == ENXIO || errno == EISDIR ? ERROR_INVALID_HANDLE
                                                                   : code_of_errno(errno);
    if (const DWORD code = check_rights(file_.get()); code != ERROR_SUCCESS)
        return code;
    if (!set_lock(file_.get(), F_OFD_SETLKW, F_WRLCK, initialisation))
        return code_of_errno(errno);
    const DWORD code = check_or_write(name, may_create, for_everyone, existed, again);
    if (code != ERROR_SUCCESS) // the next one to look must not find us alive
        set_lock(file_.get(), F_OFD_SETLK, F_UNLCK, liveness);
    set_lock(file_.get(), F_OFD_SETLK, F_UNLCK, initialisation);
    return code;
}

DWORD mutex_file::check_or_write(const std::u16string& name, bool may_create, bool for_everyone,
                                 bool& existed, bool& again) {
    again = !is_still_named(); // removed by the last one before us
    if (again)
        return ERROR_SUCCESS;
    std::string text = text_of(name);
    existed = !try_lock(file_.get(), liveness);
    if (existed) {
        // Once more: it may have been made anew, for its owner alone, since it was opened.
        if (const DWORD code = check_rights(file_.get()); code != ERROR_SUCCESS)
            return code;
        std::string found(text.size() + 1, 0);
        const ssize_t size = pread(file_.get(), found.data(), found.size(), 0);
        if (size != static_cast<ssize_t>(text.size()))
            return ERROR_INVALID_HANDLE;
        found.resize(text.size());
        text.replace(held_at, sizeof is_free, found, held_at, sizeof is_free);
        if (found != text)
            return ERROR_INVALID_HANDLE;
    } else if (!may_create) {
        unlink(path_.c_str()); // left behind by processes that were killed
        return ERROR_FILE_NOT_FOUND;
    } else if (!set_rights(file_.get(), for_everyone) || ftruncate(file_.get(), 0) != 0
               || pwrite(file_.get(), text.data(), text.size(), 0) != static_cast<ssize_t>(text.size())) {
        const DWORD code = code_of_errno(errno);
        unlink(path_.c_str());
        return code;
    }
    mapping_ = mmap(nullptr, held_at + sizeof is_free, PROT_READ | PROT_WRITE, MAP_SHARED, file_.get(), 0);
    if (mapping_ != MAP_FAILED && set_lock(file_.get(), F_OFD_SETLK, F_RDLCK, liveness))
        return ERROR_SUCCESS;
    const DWORD code = code_of_errno(errno);
    if (mapping_ != MAP_FAILED)
        munmap(mapping_, held_at + sizeof is_free);
    if (!existed)
        unlink(path_.c_str());
    return code;
}

mutex_file::taken mutex_file::lock(const deadline& until) {
    if (!until.moment()) {
        if (!set_lock(file_.get(), F_OFD_SETLKW, F_WRLCK, ownership)) {
            set_last_error_from_errno();
            return taken::failed;
        }
    } else {
        for (long pause = first_pause_ns; !try_lock(file_.get(), ownership);) {
            if (errno != EAGAIN && errno != EACCES) {
                set_last_error_from_errno();
                return taken::failed;
            }
            if (until.has_passed())
                return taken::too_late;
            if (sleep_while_held(until))
                continue;
            pause_for(pause);
            pause = std::min(pause * 2, longest_pause_ns);
        }
    }
    return mark_held() ? taken::yes : taken::abandoned;
}

void* mutex_file::word() const {
    return static_cast<std::byte*>(mapping_) + held_at;
}

// Sets the word to this thread's number; false when it was not free. One call of the kernel does both, as long as
// nobody sleeps on the word: an attempt to take it as a lock. Reading or writing it through the mapping would raise
// SIGBUS once somebody cuts the file.
bool mutex_file::mark_held() {
    if (syscall(SYS_futex, word(), FUTEX_TRYLOCK_PI, 0, nullptr, nullptr, 0) == 0)
        return true;
    // Owned, it says in several ways, depending on whether a thread of that number exists.
    if (errno == EDEADLK || errno == ESRCH || errno == EWOULDBLOCK || errno == EPERM)
        return false;
    uint32_t held = is_free;
    const uint32_t self = GetCurrentThreadId();
    const bool was_free = pread(file_.get(), &held, sizeof held, held_at) != sizeof held || held == is_free;
    [[maybe_unused]] const ssize_t written = pwrite(file_.get(), &self, sizeof self, held_at);
    return was_free;
}

// Sleeps until the lock is given up, for a while. False at once when the word does not say that it is held: its owner
// is about to say so, or to let go.
bool mutex_file::sleep_while_held(const deadline& until) {
    uint32_t held = is_free;
    if (pread(file_.get(), &held, sizeof held, held_at) != sizeof held || held == is_free)
        return false;
    const deadline slice = until.within(longest_sleep_ms);
    return syscall(SYS_futex, word(), FUTEX_WAIT_BITSET, held, slice.moment(), nullptr,
                   FUTEX_BITSET_MATCH_ANY)
               == 0
           || errno != EFAULT;
}

// One call of the kernel sets the word free and wakes one of those who sleep on it.
void mutex_file::unlock() {
    constexpr int set_free = FUTEX_OP(FUTEX_OP_SET, is_free, FUTEX_OP_CMP_EQ, is_free);
    if (syscall(SYS_futex, word(), FUTEX_WAKE_OP, 1, 0, word(), set_free) < 0) [[maybe_unused]]
        const ssize_t written = pwrite(file_.get(), &is_free, sizeof is_free, held_at);
    set_lock(file_.get(), F_OFD_SETLK, F_UNLCK, ownership);
}

void mutex_file::abandon() {
    set_lock(file_.get(), F_OFD_SETLK, F_UNLCK, ownership);
}

void mutex_file::reopen(const std::u16string& name) {
    if (!file_)
        return;
    struct stat status;
    const bool for_everyone = fstat(file_.get(), &status) == 0 && (status.st_mode & for_all) == for_all;
    munmap(mapping_, held_at + sizeof is_free);
    bool existed;
    open(name, true, for_everyone, existed);
}

void mutex_file::close() {
    if (!file_)
        return;
    if (set_lock(file_.get(), F_OFD_SETLKW, F_WRLCK, initialisation) && try_lock(file_.get(), liveness)
        && is_still_named())
        unlink(path_.c_str());
    // Explicitly, since a forked child may still have the file open.
    for (off_t byte : {ownership, liveness, initialisation})
        set_lock(file_.get(), F_OFD_SETLK, F_UNLCK, byte);
    munmap(mapping_, held_at + sizeof is_free);
    file_.reset();
}

} // namespace platform
