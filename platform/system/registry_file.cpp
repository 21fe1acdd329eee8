// The registry's files. When they have changed, one thread reads them again, and the others wait for it.
#include <fcntl.h>
#include <pthread.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <ctime>
#include <mutex>

#include "platform/api/debugger.h"
#include "platform/core/descriptor.h"
#include "platform/core/error.h"
#include "platform/core/host_dir.h"
#include "platform/core/host_entry.h"
#include "platform/core/retry.h"
#include "platform/system/registry.h"
#include "platform/text/utf8.h"

namespace platform {

namespace {

// ---- One file ---------------------------------------------------------------------------------------------------

struct file_stamp {
    dev_t device = 0;
    ino_t inode = 0;
    off_t size = 0;
    timespec written{}, changed{};

    file_stamp() = default;
    explicit file_stamp(const struct stat& status)
        : device(status.st_dev), inode(status.st_ino), size(status.st_size), written(status.st_mtim),
          changed(status.st_ctim) {}

    bool operator==(const file_stamp& other) const {
        return device == other.device && inode == other.inode && size == other.size
               && written.tv_sec == other.written.tv_sec && written.tv_nsec == other.written.tv_nsec
               && changed.tv_sec == other.changed.tv_sec && changed.tv_nsec == other.changed.tv_nsec;
    }

    // Whether any further change alters the stamp. A change within the same tick of the file system's clock would not.
    // A file with a time in the future, as after a clock was set back, is never settled.
    bool is_settled() const {
        constexpr time_t settling_s = 2;
        timespec now;
        clock_gettime(CLOCK_REALTIME, &now);
        return now.tv_sec - changed.tv_sec > settling_s;
    }
};

bool is_missing(int error) {
    return error == ENOENT || error == ENOTDIR;
}

// Reads a file's stamp; a missing file has a stamp of its own. The result is 0, or an errno.
int stamp_of(const std::string& path, file_stamp& stamp) {
    struct stat status;
    if (stat(path.c_str(), &status) == 0)
        stamp = file_stamp(status);
    else if (is_missing(errno))
        stamp = {};
    else
        return errno;
    return 0;
}

// Reads a file to its end, also if it has grown beyond `size`. The result is 0, or an errno.
int read_all(int number, size_t size, std::string& content) {
    content.resize(size);
    size_t filled = 0;
    for (;;) {
        if (filled == content.size())
            content.resize(content.size() + 4096);
        const ssize_t got = retried([&] { return read(number, &content[filled], content.size() - filled); });
        if (got < 0)
            return errno;
        if (got == 0)
            break;
        filled += static_cast<size_t>(got);
    }
    content.resize(filled);
    return 0;
}

struct file_content {
    std::string bytes;
    file_stamp stamp;
    bool is_settled = true; // any further change alters the stamp

    // Reads a file and its stamp. The result is 0, or an errno. Anything but a regular file is refused; with `owner_only`
    // so is a file that belongs to others than the caller and root.
    int read(const std::string& path, bool owner_only) {
        constexpr int attempts = 3; // a file may be written while it is read
        bool is_steady = false;
        for (int i = 0; i < attempts && !is_steady; ++i) {
            const descriptor file(
                retried([&] { return open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY); }));
            struct stat status;
            if (!file || fstat(file.get(), &status) != 0) {
                const int error = errno;
                *this = {};
                return is_missing(error) ? 0 : error;
            }
            const bool is_trusted = !owner_only || status.st_uid == geteuid() || status.st_uid == 0;
            if (!S_ISREG(status.st_mode) || !is_trusted)
                return EACCES;
            stamp = file_stamp(status);
            if (const int error = read_all(file.get(), static_cast<size_t>(status.st_size), bytes))
                return error;
            is_steady = fstat(file.get(), &status) == 0 && file_stamp(status) == stamp;
        }
        is_settled = is_steady && stamp.is_settled();
        return 0;
    }
};

// ---- Both files -------------------------------------------------------------------------------------------------

struct loaded_registry {
    state_pointer state;
    uid_t reader = 0; // the effective user that was allowed to read the files
    file_content machine, user;
    bool has_bytes = false; // the files' bytes are kept until both have settled
    uint64_t number = 0;    // the count of loads so far
};

// Never destroyed: threads may still read while the process ends.
struct registry_cache {
    std::mutex lock; // guards the next two members; held only while they are copied
    loaded_registry latest;
    uint64_t loads_begun = 0;
    std::mutex* loading = new std::mutex; // held by the thread that loads
};

registry_cache& cache() {
    static registry_cache* const made = new registry_cache;
    return *made;
}

// A child that is forked while another thread copies must find `lock` free. A thread that loads does not exist in the
// child, so `loading` is replaced there.
[[maybe_unused]] const int fork_handlers =
    pthread_atfork([] { cache().lock.lock(); }, [] { cache().lock.unlock(); },
                   [] {
                       cache().loading = new std::mutex;
                       cache().lock.unlock();
                   });

void report_skipped(const std::string& path, skipped_lines skipped) {
    if (skipped.count == 0)
        return;
    const std::string line = "zu: " + path + ", line " + std::to_string(skipped.first)
                             + " is not understood (" + std::to_string(skipped.count) + " such lines)\n";
    OutputDebugStringW(wide_from(line).c_str());
}

// Adds a file's keys and values to the roots. The result is 0, or a code.
DWORD add(const file_content& file, const std::string& path, wide_view only, registry_node& roots) {
    registry_text text;
    if (const DWORD code = text.decode(file.bytes))
        return code;
    report_skipped(path, read_registry_text(text, roots, only));
    return ERROR_SUCCESS;
}

// Whether the files still say what was loaded. A failure to read the user's file is never kept.
bool is_current(const loaded_registry& latest, uid_t reader, const file_stamp& machine,
                const file_stamp* user) {
    return latest.state && latest.reader == reader && latest.machine.stamp == machine
           && latest.machine.is_settled
           && (!user
               || (latest.state->user_code == ERROR_SUCCESS && latest.user.stamp == *user
                   && latest.user.is_settled));
}

bool say_the_same(const loaded_registry& before, const loaded_registry& now) {
    return before.has_bytes && before.machine.bytes == now.machine.bytes
           && before.user.bytes == now.user.bytes;
}

DWORD read_users_file(std::string& path, file_content& content) {
    if (const DWORD code = user_registry_file(path))
        return code;
    const int error = path.empty() ? 0 : content.read(path, true);
    return error ? code_of_errno(error) : DWORD{ERROR_SUCCESS};
}

// Reads both files. If their bytes are the same as before, they are not parsed again. The result is 0, or a code.
DWORD load(const std::string& machine_path, const loaded_registry& before, loaded_registry& now) {
    if (const int error = now.machine.read(machine_path, false))
        return code_of_errno(error);
    std::string user_path;
    const DWORD user_code = read_users_file(user_path, now.user);
    if (user_code == ERROR_SUCCESS && say_the_same(before, now) && before.state->user_code == ERROR_SUCCESS) {
        now.state = before.state;
    } else {
        const auto state = std::make_shared<registry_state>();
        if (const DWORD code = add(now.machine, machine_path, {}, state->roots))
            return code;
        state->user_code = user_code ? user_code : add(now.user, user_path, current_user_root, state->roots);
        now.state = state;
    }
    now.has_bytes = !now.machine.is_settled || !now.user.is_settled;
    if (!now.has_bytes) {
        now.machine.bytes = {};
        now.user.bytes = {};
    }
    return ERROR_SUCCESS;
}

} // namespace

std::string machine_registry_file() {
    return in_host_directory("registry.reg");
}

DWORD user_registry_file(std::string& path) {
    path.clear();
    std::string home;
    if (const char* const told = secure_getenv("HOME"); told && *told == '/') {
        home = told;
    } else {
        passwd entry;
        std::vector<char> storage;
        const auto ask = [](passwd* out, char* room, size_t size, passwd** found) {
            return getpwuid_r(geteuid(), out, room, size, found);
        };
        if (look_up(entry, storage, ask))
            home = entry.pw_dir;
        else if (errno != 0)
            return code_of_errno(errno);
    }
    if (home.starts_with('/'))
        path = home + "/.config/zu/registry.reg";
    return ERROR_SUCCESS;
}

DWORD current_registry(bool for_user, state_pointer& result) {
    const uid_t reader = geteuid();
    const std::string machine_path = machine_registry_file();
    file_stamp machine, user;
    if (const int error = stamp_of(machine_path, machine))
        return code_of_errno(error);
    if (for_user) {
        std::string user_path;
        if (const DWORD code = user_registry_file(user_path))
            return code;
        if (const int error = user_path.empty() ? 0 : stamp_of(user_path, user))
            return code_of_errno(error);
    }
    registry_cache& shared = cache();
    uint64_t begun_before;
    {
        const std::lock_guard hold(shared.lock);
        result = shared.latest.state;
        if (is_current(shared.latest, reader, machine, for_user ? &user : nullptr))
            return ERROR_SUCCESS;
        begun_before = shared.loads_begun;
    }
    const std::lock_guard only_one(*shared.loading);
    std::unique_lock hold(shared.lock);
    // A load that began after this call is new enough for it.
    if (shared.latest.number <= begun_before || shared.latest.reader != reader) {
        loaded_registry next;
        next.number = ++shared.loads_begun;
        next.reader = reader;
        hold.unlock(); // only this thread changes `latest`
        if (const DWORD code = load(machine_path, shared.latest, next))
            return code;
        hold.lock();
        shared.latest = std::move(next);
    }
    result = shared.latest.state;
    return for_user ? result->user_code : DWORD{ERROR_SUCCESS};
}

} // namespace platform
