// The file that a named mutex shares between processes.
#include "platform/threads/mutex_file.h"

#include <dirent.h>
#include <fcntl.h>
#include <linux/futex.h>
#include <sys/mman.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <memory>
#include <utility>

#include "platform/api/threads.h"
#include "platform/core/error.h"
#include "platform/core/retry.h"

namespace platform {

namespace {

constexpr char folder[] = "/dev/shm";
constexpr char prefix[] = "/dev/shm/zu.mutex.";
constexpr size_t longest_plain_name = 180; // a file's name may have 255 bytes
constexpr mode_t for_owner = 0600;
constexpr mode_t for_all = 0666;

// The bytes that are locked lie beyond the text.
constexpr off_t initialisation = 1 << 20;
constexpr off_t liveness = initialisation + 1;
constexpr off_t ownership = initialisation + 2;
constexpr off_t turn = initialisation + 3;

constexpr char magic[] = "zu mutex 2 \n"; // the two words follow, then the name
constexpr off_t held_at = sizeof magic - 1;
constexpr uint32_t is_free =
    0; // any other value: the number of the thread that holds the lock or died with it
constexpr off_t turns_at = held_at + sizeof is_free;
constexpr size_t mapped_bytes = turns_at + sizeof is_free;
static_assert(held_at % sizeof is_free == 0);

// Unlock wakes a waiter, a killed owner does not; so waiters wake this often to look.
constexpr DWORD longest_sleep_ms = 50;

// Every user who may open the file can lock each of its bytes for ever. Only the ownership is worth waiting for as long
// as the caller says; the other bytes are given back within a moment by those that mean well.
constexpr DWORD longest_change_ms = 1000;
constexpr DWORD longest_turn_ms = 1000;

// Back-off while a byte is taken and nobody will wake us: the owner has not yet written its thread number.
constexpr long first_pause_ns = 50'000;
constexpr long longest_pause_ns = 2'000'000;

constexpr int entries_swept_at_most = 1000;

struct flock byte_range(short kind, off_t byte) {
    struct flock range {};
    range.l_type = kind;
    range.l_whence = SEEK_SET;
    range.l_start = byte;
    range.l_len = 1;
    return range;
}

bool set_lock(int file, short kind, off_t byte) {
    struct flock range = byte_range(kind, byte);
    return retried([&] { return fcntl(file, F_OFD_SETLK, &range); }) == 0;
}

bool try_lock(int file, off_t byte) {
    return set_lock(file, F_WRLCK, byte);
}

bool is_locked(int file, off_t byte) {
    struct flock range = byte_range(F_WRLCK, byte);
    return fcntl(file, F_OFD_GETLK, &range) != 0 || range.l_type != F_UNLCK;
}

bool is_busy(int error) {
    return error == EAGAIN || error == EACCES;
}

mode_t mode_of(bool for_everyone) {
    return for_everyone ? for_all : for_owner;
}

// Sets the rights on the descriptor, where no umask applies. A file that another user left behind for everyone stays as
// it is.
bool set_rights(int file, bool for_everyone) {
    struct stat status;
    return fstat(file, &status) == 0
           && (status.st_uid != geteuid() || fchmod(file, mode_of(for_everyone)) == 0);
}

// Creates a file under a name that is free; none, with errno, on failure. The file gets its rights before its name, so
// that no user is ever refused at a lock for everyone.
descriptor create_file(const std::string& path, bool for_everyone) {
    descriptor file(::open(folder, O_RDWR | O_CLOEXEC | O_TMPFILE, for_owner));
    if (!file || fchmod(file.get(), mode_of(for_everyone)) != 0)
        return {};
    if (linkat(file.get(), "", AT_FDCWD, path.c_str(), AT_EMPTY_PATH) == 0)
        return file;
    if (errno != ENOENT)
        return {};
    // An empty path needs a capability: link through /proc instead.
    const std::string unnamed = "/proc/self/fd/" + std::to_string(file.get());
    const bool linked = linkat(AT_FDCWD, unnamed.c_str(), AT_FDCWD, path.c_str(), AT_SYMLINK_FOLLOW) == 0;
    return linked ? std::move(file) : descriptor();
}

// Whether the file is a lock of this user's, or of anybody's when this user is root. A file of another kind is not ours
// to remove, whatever its name.
bool is_own_lock(int file) {
    struct stat status;
    char start[sizeof magic - 1];
    return fstat(file, &status) == 0 && S_ISREG(status.st_mode)
           && (status.st_uid == geteuid() || geteuid() == 0)
           && pread(file, start, sizeof start, 0) == sizeof start
           && std::memcmp(start, magic, sizeof start) == 0;
}

std::string path_of(const std::u16string& name) {
    std::string path = prefix;
    uint64_t hash = 0xCBF29CE484222325; // stands for the end of a name that is too long for a file
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

// Replaces the text of a file. False with errno.
bool write_text(int file, const std::string& text) {
    if (ftruncate(file, 0) != 0)
        return false;
    errno = ENOSPC; // stands when a part of the text is written
    return pwrite(file, text.data(), text.size(), 0) == static_cast<ssize_t>(text.size());
}

std::string text_of(const std::u16string& name) {
    std::string text = magic;
    text.append(mapped_bytes - text.size(), 0);
    return text.append(reinterpret_cast<const char*>(name.data()), name.size() * sizeof(char16_t));
}

void pause_for(long nanoseconds) {
    const timespec length{0, nanoseconds};
    nanosleep(&length, nullptr);
}

// Another user's file is taken only as a lock for everyone.
DWORD check_rights(int file) {
    struct stat status;
    if (fstat(file, &status) != 0 || !S_ISREG(status.st_mode))
        return ERROR_INVALID_HANDLE;
    return status.st_uid == geteuid() || (status.st_mode & for_all) == for_all ? ERROR_SUCCESS
                                                                               : ERROR_ACCESS_DENIED;
}

} // namespace

bool mutex_file::is_still_named() const {
    struct stat opened, named;
    return fstat(file_.get(), &opened) == 0 && lstat(path_.c_str(), &named) == 0
           && opened.st_dev == named.st_dev && opened.st_ino == named.st_ino;
}

// Locks the byte that guards making, checking and removing the file. False with errno: ETIMEDOUT when somebody keeps
// it.
bool mutex_file::begin_change(const deadline& limit) const {
    for (long pause = first_pause_ns; !try_lock(file_.get(), initialisation);
         pause = std::min(pause * 2, longest_pause_ns)) {
        if (!is_busy(errno))
            return false;
        if (limit.has_passed()) {
            errno = ETIMEDOUT;
            return false;
        }
        pause_for(pause);
    }
    return true;
}

void mutex_file::end_change() const {
    set_lock(file_.get(), F_UNLCK, initialisation);
}

// Called within a change. False when another process has the file open.
bool mutex_file::remove_if_unused() const {
    return try_lock(file_.get(), liveness) && is_still_named() && unlink(path_.c_str()) == 0;
}

DWORD mutex_file::open(const std::u16string& name, bool may_create, bool for_everyone, bool& existed) {
    path_ = path_of(name);
    const deadline limit(longest_change_ms);
    DWORD code;
    bool again;
    do {
        again = false;
        code = open_once(name, may_create, for_everyone, limit, existed, again);
        if (again && limit.has_passed()) {
            code = ERROR_TIMEOUT;
            again = false;
        }
    } while (again);
    if (code != ERROR_SUCCESS)
        file_.reset();
    return code;
}

DWORD mutex_file::open_once(const std::u16string& name, bool may_create, bool for_everyone,
                            const deadline& limit, bool& existed, bool& again) {
    // First without the create flag: kernels refuse that flag on another user's file in a sticky folder. O_NONBLOCK:
    // somebody may have put a pipe there, or keep a lease.
    file_ = descriptor(::open(path_.c_str(), O_RDWR | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK));
    if (!file_ && errno == ENOENT && may_create) {
        file_ = create_file(path_, for_everyone);
        again = !file_ && errno == EEXIST;
    }
    if (!file_)
        return errno == ELOOP || errno == ENXIO || errno == EISDIR ? ERROR_INVALID_HANDLE
                                                                   : code_of_errno(errno);
    DWORD code = check_rights(file_.get());
    // Root removes what another user's processes have left behind, so that no name can be taken for good.
    const bool removes = code == ERROR_ACCESS_DENIED && geteuid() == 0;
    if (code != ERROR_SUCCESS && !removes)
        return code;
    if (!begin_change(limit))
        return code_of_errno(errno);
    if (removes) {
        again = remove_if_unused() || !is_still_named();
        if (again)
            code = ERROR_SUCCESS;
    } else {
        code = check_or_write(name, may_create, for_everyone, existed, again);
    }
    if (code != ERROR_SUCCESS) // the next process must not take us for a user of the file
        set_lock(file_.get(), F_UNLCK, liveness);
    end_change();
    return code;
}

DWORD mutex_file::check_or_write(const std::u16string& name, bool may_create, bool for_everyone,
                                 bool& existed, bool& again) {
    again = !is_still_named(); // its last user has removed it
    if (again)
        return ERROR_SUCCESS;
    std::string text = text_of(name);
    existed = !try_lock(file_.get(), liveness);
    if (existed) {
        // Checked once more: the file may have been written anew, for its owner alone, since it was opened.
        if (const DWORD code = check_rights(file_.get()); code != ERROR_SUCCESS)
            return code;
        std::string found(text.size() + 1, 0);
        const ssize_t size = pread(file_.get(), found.data(), found.size(), 0);
        if (size != static_cast<ssize_t>(text.size()))
            return ERROR_INVALID_HANDLE;
        found.resize(text.size());
        text.replace(held_at, mapped_bytes - held_at, found, held_at, mapped_bytes - held_at);
        if (found != text)
            return ERROR_INVALID_HANDLE;
    } else if (!may_create) {
        unlink(path_.c_str()); // left behind by processes that were killed
        return ERROR_FILE_NOT_FOUND;
    } else if (!set_rights(file_.get(), for_everyone) || !write_text(file_.get(), text)) {
        const DWORD code = code_of_errno(errno);
        unlink(path_.c_str());
        return code;
    }
    mapping_ = mmap(nullptr, mapped_bytes, PROT_READ | PROT_WRITE, MAP_SHARED, file_.get(), 0);
    if (mapping_ != MAP_FAILED && set_lock(file_.get(), F_RDLCK, liveness))
        return ERROR_SUCCESS;
    const DWORD code = code_of_errno(errno);
    if (mapping_ != MAP_FAILED)
        munmap(mapping_, mapped_bytes);
    if (!existed)
        unlink(path_.c_str());
    return code;
}

// The turn belongs to the process that is next to get the lock. A process whose unlock woke a sleeper takes the lock
// again only in its turn, so the sleeper, which has the turn while it waits, goes first. The kernel takes the turn back
// from a process that dies with it.
class mutex_file::own_turn {
public:
    own_turn(const mutex_file& of, const deadline& until) : file_(of), taken_(of.take_turn(until)) {}
    ~own_turn() {
        if (taken_)
            file_.pass_turn();
    }
    own_turn(const own_turn&) = delete;
    own_turn& operator=(const own_turn&) = delete;

    bool taken() const { return taken_; }

private:
    const mutex_file& file_;
    const bool taken_;
};

mutex_file::taken mutex_file::lock(const deadline& until) {
    if (!owes_turn_) {
        if (try_lock(file_.get(), ownership))
            return mark_held() ? taken::yes : taken::abandoned;
        if (is_busy(errno) && until.has_passed())
            return taken::too_late;
    }
    const own_turn turn_taken(*this, until);
    if (owes_turn_ && !turn_taken.taken() && until.has_passed())
        return taken::too_late;
    owes_turn_ = false;
    for (long pause = first_pause_ns; !try_lock(file_.get(), ownership);) {
        if (!is_busy(errno)) {
            set_last_error_from_errno();
            return taken::failed;
        }
        if (until.has_passed())
            return taken::too_late;
        if (sleep_while_held(until)) {
            pause = first_pause_ns;
        } else {
            pause_for(pause);
            pause = std::min(pause * 2, longest_pause_ns);
        }
    }
    return mark_held() ? taken::yes : taken::abandoned;
}

// False when the turn cannot be had in time. The lock may then be taken out of turn, unless the caller's time is over.
bool mutex_file::take_turn(const deadline& until) const {
    const deadline limit = until.within(longest_turn_ms);
    for (;;) {
        uint32_t turns = 0;
        const bool known = read_word(turns_at, turns);
        if (try_lock(file_.get(), turn))
            return true;
        if (!known || !is_busy(errno) || limit.has_passed() || !sleep_on_word(turns_at, turns, limit))
            return false;
    }
}

void mutex_file::pass_turn() const {
    constexpr int count_up = FUTEX_OP(FUTEX_OP_ADD, 1, FUTEX_OP_CMP_EQ, 0);
    set_lock(file_.get(), F_UNLCK, turn);
    syscall(futex_call, word(turns_at), FUTEX_WAKE_OP, 1, 0, word(turns_at), count_up);
}

// The words are read and written by system calls alone: through the mapping they would raise SIGBUS once somebody cuts
// the file.
void* mutex_file::word(off_t at) const {
    return static_cast<std::byte*>(mapping_) + at;
}

bool mutex_file::read_word(off_t at, uint32_t& value) const {
    return pread(file_.get(), &value, sizeof value, at) == sizeof value;
}

bool mutex_file::write_word(off_t at, uint32_t value) const {
    return pwrite(file_.get(), &value, sizeof value, at) == sizeof value;
}

// Sleeps for a while as long as the word has that value. False when it cannot be slept on.
bool mutex_file::sleep_on_word(off_t at, uint32_t value, const deadline& until) const {
    const deadline slice = until.within(longest_sleep_ms);
    return syscall(futex_call, word(at), FUTEX_WAIT_BITSET, value, slice.moment(), nullptr,
                   FUTEX_BITSET_MATCH_ANY)
               == 0
           || errno != EFAULT;
}

// Sets the word to this thread's number; false when it was not free. As long as nobody sleeps on the word, one call of
// the kernel does both: an attempt to take it as a lock.
bool mutex_file::mark_held() const {
    if (syscall(futex_call, word(held_at), FUTEX_TRYLOCK_PI, 0, nullptr, nullptr, 0) == 0)
        return true;
    // A word that is owned gives one of four errors, depending on whether a thread of that number exists.
    if (errno == EDEADLK || errno == ESRCH || errno == EWOULDBLOCK || errno == EPERM)
        return false;
    uint32_t held = is_free;
    const bool was_free = !read_word(held_at, held) || held == is_free;
    write_word(held_at, GetCurrentThreadId());
    return was_free;
}

// Sleeps until the lock is given up, for a while. False at once when the word does not say that it is held: its owner
// is about to write its number, or to unlock.
bool mutex_file::sleep_while_held(const deadline& until) const {
    uint32_t held = is_free;
    return read_word(held_at, held) && held != is_free && sleep_on_word(held_at, held, until);
}

// One call of the kernel sets the word free and wakes one of those who sleep on it.
void mutex_file::unlock() {
    constexpr int set_free = FUTEX_OP(FUTEX_OP_SET, is_free, FUTEX_OP_CMP_EQ, is_free);
    const long woken = syscall(futex_call, word(held_at), FUTEX_WAKE_OP, 1, 0, word(held_at), set_free);
    if (woken < 0)
        write_word(held_at, is_free);
    owes_turn_ = woken > 0;
    set_lock(file_.get(), F_UNLCK, ownership);
}

void mutex_file::abandon() {
    set_lock(file_.get(), F_UNLCK, ownership);
    syscall(futex_call, word(held_at), FUTEX_WAKE, 1, nullptr, nullptr, 0);
}

void mutex_file::reopen(const std::u16string& name) {
    if (!file_)
        return;
    struct stat status;
    const bool for_everyone = fstat(file_.get(), &status) == 0 && (status.st_mode & for_all) == for_all;
    munmap(mapping_, mapped_bytes);
    owes_turn_ = false;
    bool existed;
    open(name, true, for_everyone, existed);
}

void mutex_file::close() {
    if (!file_)
        return;
    if (begin_change(deadline(longest_change_ms)))
        remove_if_unused();
    // Unlocked explicitly, since a forked child may still have the file open.
    for (off_t byte : {ownership, liveness, initialisation})
        set_lock(file_.get(), F_UNLCK, byte);
    munmap(mapping_, mapped_bytes);
    file_.reset();
}

void mutex_file::remove_name(const deadline& limit) {
    if (!file_ || !begin_change(limit))
        return; // the file stays, as after a killed process
    if (!remove_if_unused())
        set_lock(file_.get(), F_RDLCK, liveness); // shared again, in case it was taken alone
    end_change();
}

void mutex_file::sweep() {
    const std::unique_ptr<DIR, int (*)(DIR*)> listing(opendir(folder), closedir);
    int seen = 0;
    while (const dirent* const entry = listing ? readdir(listing.get()) : nullptr) {
        mutex_file one;
        one.path_ = std::string(folder) + '/' + entry->d_name;
        if (!one.path_.starts_with(prefix))
            continue;
        if (++seen > entries_swept_at_most)
            return;
        one.file_ = descriptor(::open(one.path_.c_str(), O_RDWR | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK));
        if (one.file_ && is_own_lock(one.file_.get()) && !is_locked(one.file_.get(), liveness)
            && one.begin_change(deadline(0)))
            one.remove_if_unused();
    }
}

DWORD mutex_file::list(std::vector<mutex_facts>& out) {
    const std::unique_ptr<DIR, int (*)(DIR*)> listing(opendir(folder), closedir);
    if (!listing)
        return code_of_errno(errno);
    while (const dirent* const entry = readdir(listing.get())) {
        mutex_file one;
        one.path_ = std::string(folder) + '/' + entry->d_name;
        struct stat status;
        if (!one.path_.starts_with(prefix) || lstat(one.path_.c_str(), &status) != 0
            || !S_ISREG(status.st_mode))
            continue;
        mutex_facts facts;
        facts.path = one.path_;
        facts.user = status.st_uid;
        facts.for_everyone = (status.st_mode & for_all) == for_all;
        one.file_ = descriptor(::open(one.path_.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK));
        if (one.file_) {
            const off_t bytes = std::clamp<off_t>(status.st_size - static_cast<off_t>(mapped_bytes), 0, 4096);
            facts.name.resize(static_cast<size_t>(bytes) / sizeof(char16_t));
            const ssize_t size =
                pread(one.file_.get(), facts.name.data(), facts.name.size() * sizeof(char16_t), mapped_bytes);
            facts.name.resize(size < 0 ? 0 : static_cast<size_t>(size) / sizeof(char16_t));
            facts.is_left_behind = !is_locked(one.file_.get(), liveness);
            one.read_word(held_at, facts.owner);
        }
        out.push_back(std::move(facts));
    }
    return ERROR_SUCCESS;
}

} // namespace platform
