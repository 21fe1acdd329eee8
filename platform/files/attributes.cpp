// Attributes and creation times.
#include "platform/files/attributes.h"

#include <fcntl.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <string>
#include <string_view>

#include "platform/core/descriptor.h"
#include "platform/core/error.h"

namespace platform {

namespace {

constexpr char bits_name[] = "user.DOSATTRIB";
constexpr char created_name[] = "user.zu.created";

constexpr DWORD kept_for_files = FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM | FILE_ATTRIBUTE_ARCHIVE
                                 | FILE_ATTRIBUTE_TEMPORARY | FILE_ATTRIBUTE_NOT_CONTENT_INDEXED;
constexpr DWORD kept_for_directories = FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM
                                       | FILE_ATTRIBUTE_ARCHIVE | FILE_ATTRIBUTE_NOT_CONTENT_INDEXED;

// The path for a call that takes no directory and no bare descriptor. On failure of the call, ENOSYS says that such a
// path needs /proc, and that there is none.
class whole_path {
public:
    explicit whole_path(const attribute_holder& of) : needs_proc_(!of.name || of.at != AT_FDCWD) {
        if (needs_proc_)
            text_ = "/proc/self/fd/" + std::to_string(of.at);
        if (of.name)
            (text_ += needs_proc_ ? "/" : "") += of.name;
    }

    template <class Call>
    auto call(Call made) const {
        const auto result = made(text_.c_str());
        if (result < 0 && needs_proc_ && (errno == ENOENT || errno == ENOTDIR))
            errno = access("/proc/self/fd", F_OK) == 0 ? errno : ENOSYS;
        return result;
    }

private:
    const bool needs_proc_;
    std::string text_;
};

// System calls that are new in Linux 6.13: extended attributes of an entry, without a walk to its directory. Their
// numbers are the same on all architectures.
constexpr long getxattrat_number = 464;
constexpr long listxattrat_number = 465;
std::atomic<bool> has_calls_at{true};

// The kernel's record for getxattrat.
struct xattr_arguments {
    alignas(8) uint64_t value;
    uint32_t size;
    uint32_t flags;
};

// Makes the call that fits the holder: below a directory, on a descriptor, or on a path.
template <class Below, class On, class By>
ssize_t call_on(const attribute_holder& of, Below below, On on, By by) {
    if (!of.name && !of.is_bare)
        return on(of.at);
    if (of.name && has_calls_at.load(std::memory_order_relaxed)) {
        const ssize_t result = below();
        // Filters on system calls answer EPERM, too, for calls that they do not know.
        if (result >= 0 || (errno != ENOSYS && errno != EPERM))
            return result;
        has_calls_at.store(false, std::memory_order_relaxed);
    }
    const ssize_t result = whole_path(of).call(by);
    if (result >= 0 || errno != ENOSYS || !of.name)
        return result;
    const int link_flag = of.flags & AT_SYMLINK_NOFOLLOW ? O_NOFOLLOW : 0;
    const descriptor opened(openat(of.at, of.name, O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC | link_flag));
    return opened ? on(opened.get()) : -1;
}

bool follows(const attribute_holder& of) {
    return !(of.flags & AT_SYMLINK_NOFOLLOW);
}

ssize_t list(const attribute_holder& from, char* out, size_t size) {
    return call_on(
        from, [&] { return syscall(listxattrat_number, from.at, from.name, from.flags, out, size); },
        [&](int descriptor) { return flistxattr(descriptor, out, size); },
        [&](const char* path) {
            return follows(from) ? listxattr(path, out, size) : llistxattr(path, out, size);
        });
}

ssize_t get(const attribute_holder& from, const char* name, char* out, size_t size) {
    xattr_arguments arguments{reinterpret_cast<uintptr_t>(out), static_cast<uint32_t>(size), 0};
    return call_on(
        from,
        [&] {
            return syscall(getxattrat_number, from.at, from.name, from.flags, name, &arguments,
                           sizeof arguments);
        },
        [&](int descriptor) { return fgetxattr(descriptor, name, out, size); },
        [&](const char* path) {
            return follows(from) ? getxattr(path, name, out, size) : lgetxattr(path, name, out, size);
        });
}

bool set(const attribute_holder& to, const char* name, std::string_view text) {
    const auto by_path = [&](const char* path) { return setxattr(path, name, text.data(), text.size(), 0); };
    return (to.is_bare ? whole_path(to).call(by_path) : fsetxattr(to.at, name, text.data(), text.size(), 0))
           == 0;
}

bool remove(const attribute_holder& to, const char* name) {
    const auto by_path = [&](const char* path) { return removexattr(path, name); };
    const int result = to.is_bare ? whole_path(to).call(by_path) : fremovexattr(to.at, name);
    return result == 0 || errno == ENODATA || errno == EOPNOTSUPP;
}

// A system call that is new in Linux 6.6: it changes the mode of a bare descriptor's file.
constexpr long fchmodat2_number = 452;

bool change_mode(const attribute_holder& to, mode_t mode) {
    mode &= 07777;
    if (!to.is_bare)
        return fchmod(to.at, mode) == 0;
    return syscall(fchmodat2_number, to.at, "", mode, AT_EMPTY_PATH) == 0
           || whole_path(to).call([mode](const char* path) { return chmod(path, mode); }) == 0;
}

// Errors that count as "nothing is stored": there are no extended attributes, or the caller may not read them.
bool is_nothing(int error) {
    return error == ENODATA || error == EOPNOTSUPP || error == EACCES || error == EPERM;
}

// The number that an extended attribute holds as text, 0 for anything else: `0x` and hexadecimal digits. 0 or a code.
DWORD get_number(const attribute_holder& from, const char* name, uint64_t& out) {
    char text[64];
    const ssize_t size = get(from, name, text, sizeof text);
    out = 0;
    if (size < 0)
        return is_nothing(errno) || errno == ERANGE ? ERROR_SUCCESS : code_of_errno(errno);
    if (size > 2 && text[0] == '0' && (text[1] | 0x20) == 'x')
        std::from_chars(text + 2, text + size, out, 16);
    return ERROR_SUCCESS;
}

bool set_number(const attribute_holder& to, const char* name, uint64_t number) {
    if (number == 0)
        return remove(to, name);
    char text[24];
    const int size = std::snprintf(text, sizeof text, "0x%llx", static_cast<unsigned long long>(number));
    return set(to, name, {text, static_cast<size_t>(size)});
}

// The umask is read from /proc: umask(2) tells it only by changing it, and other threads may be creating files. A umask
// that cannot be read counts as 077, the narrowest that is usual, so that nobody is given more than they should have.
mode_t current_umask() {
    char line[128];
    unsigned mask = 077;
    if (FILE* status = std::fopen("/proc/self/status", "re")) {
        while (std::fgets(line, sizeof line, status))
            if (std::sscanf(line, "Umask: %o", &mask) == 1)
                break;
        std::fclose(status);
    }
    return mask;
}

mode_t with_write_permission(mode_t mode) {
    const mode_t wider = mode | ((mode & 0444) >> 1 & ~current_umask());
    return (wider & 0222) != 0 ? wider : mode | 0200;
}

mode_t mode_with(mode_t mode, DWORD attributes) {
    if (S_ISDIR(mode))
        return mode;
    if (attributes & FILE_ATTRIBUTE_READONLY)
        return mode & ~mode_t{0222};
    return is_read_only(mode) ? with_write_permission(mode) : mode;
}

// Extended attributes can be written by whoever may write the file, so its owner makes it writable for as long as
// that takes. `store` gives false and errno.
template <class Store>
DWORD store_while_writable(const attribute_holder& to, mode_t mode, mode_t new_mode, Store store) {
    const bool widened = is_read_only(mode);
    if (widened && !change_mode(to, mode | 0200))
        return code_of_errno(errno);
    if (!store()) {
        const DWORD code = code_of_errno(errno);
        if (widened)
            change_mode(to, mode);
        return code;
    }
    if (new_mode == (widened ? mode | 0200 : mode) || change_mode(to, new_mode))
        return ERROR_SUCCESS;
    return code_of_errno(errno);
}

// The names of a file's extended attributes. Asking for them costs less than asking for one that is not there, and
// files that have one of ours are few.
class stored_names {
public:
    // 0 or a code.
    DWORD read(const attribute_holder& of) {
        size_ = list(of, names_, sizeof names_);
        has_too_many_ = size_ < 0 && errno == ERANGE;
        return size_ >= 0 || has_too_many_ || is_nothing(errno) ? ERROR_SUCCESS : code_of_errno(errno);
    }

    template <size_t Size>
    bool has(const char (&name)[Size]) const {
        return has_too_many_
               || (size_ > 0 && memmem(names_, static_cast<size_t>(size_), name, Size) != nullptr);
    }

private:
    char names_[512];
    ssize_t size_ = 0;
    bool has_too_many_ = false;
};

} // namespace

DWORD read_stored_bits(const attribute_holder& from, DWORD& out) {
    stored_names names;
    uint64_t bits = 0;
    DWORD code = names.read(from);
    if (code == ERROR_SUCCESS && names.has(bits_name))
        code = get_number(from, bits_name, bits);
    out = static_cast<DWORD>(bits);
    return code;
}

DWORD read_stored(const attribute_holder& from, stored_attributes& out) {
    out = {};
    stored_names names;
    DWORD code = names.read(from);
    uint64_t bits = 0;
    if (code == ERROR_SUCCESS && names.has(bits_name))
        code = get_number(from, bits_name, bits);
    if (code == ERROR_SUCCESS && names.has(created_name))
        code = get_number(from, created_name, out.created);
    out.bits = static_cast<DWORD>(bits);
    return code;
}

DWORD attributes_of(mode_t mode, DWORD stored_bits) {
    if (S_ISLNK(mode))
        return FILE_ATTRIBUTE_REPARSE_POINT;
    if (S_ISDIR(mode))
        return FILE_ATTRIBUTE_DIRECTORY | (stored_bits & kept_for_directories);
    const DWORD bits = (S_ISREG(mode) ? stored_bits & kept_for_files : FILE_ATTRIBUTE_DEVICE)
                       | (is_read_only(mode) ? FILE_ATTRIBUTE_READONLY : 0);
    return bits ? bits : FILE_ATTRIBUTE_NORMAL;
}

DWORD write_attributes(const attribute_holder& to, mode_t mode, DWORD attributes) {
    const bool is_directory = S_ISDIR(mode);
    DWORD old_bits = 0;
    if (can_store(mode))
        if (const DWORD code = read_stored_bits(to, old_bits))
            return code;
    // A file's read-only is stored along for others who look there, but is never a reason to store.
    DWORD bits = attributes & (is_directory ? kept_for_directories : kept_for_files);
    if (bits && !is_directory)
        bits |= attributes & FILE_ATTRIBUTE_READONLY;
    const mode_t new_mode = mode_with(mode, attributes);
    if (bits == old_bits) {
        if (new_mode == mode || change_mode(to, new_mode))
            return ERROR_SUCCESS;
        return code_of_errno(errno);
    }
    if (!can_store(mode))
        return ERROR_NOT_SUPPORTED;
    const DWORD code =
        store_while_writable(to, mode, new_mode, [&] { return set_number(to, bits_name, bits); });
    DWORD bits_now = old_bits;
    if (code != ERROR_SUCCESS && read_stored_bits(to, bits_now) == ERROR_SUCCESS && bits_now != old_bits)
        set_number(to, bits_name, old_bits); // the mode was refused after the bits had been taken
    return code;
}

DWORD write_created(const attribute_holder& to, mode_t mode, uint64_t created) {
    if (!can_store(mode))
        return ERROR_NOT_SUPPORTED;
    return store_while_writable(to, mode, mode, [&] { return set_number(to, created_name, created); });
}

DWORD write_host_times(const attribute_holder& to, const timespec (&times)[2]) {
    // Before Linux 5.8 the empty path was refused.
    if (utimensat(to.at, "", times, AT_EMPTY_PATH) == 0
        || (errno == EINVAL && whole_path(to).call([&](const char* path) {
               return utimensat(AT_FDCWD, path, times, 0);
           }) == 0))
        return ERROR_SUCCESS;
    return code_of_errno(errno);
}

} // namespace platform
