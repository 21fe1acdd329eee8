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

#include "platform/core/error.h"

namespace platform {

namespace {

constexpr char bits_name[] = "user.DOSATTRIB";
constexpr char created_name[] = "user.zu.created";

constexpr DWORD kept_for_files = FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM | FILE_ATTRIBUTE_ARCHIVE
                                 | FILE_ATTRIBUTE_TEMPORARY | FILE_ATTRIBUTE_NOT_CONTENT_INDEXED;
constexpr DWORD kept_for_directories = FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM
                                       | FILE_ATTRIBUTE_ARCHIVE | FILE_ATTRIBUTE_NOT_CONTENT_INDEXED;

// The path for a call that takes no directory.
class whole_path {
public:
    explicit whole_path(const attribute_holder& of) : text_(of.path) {
        if (of.path && of.at != AT_FDCWD) {
            made_ = "/proc/self/fd/" + std::to_string(of.at) + '/' + of.path;
            text_ = made_.c_str();
        }
    }
    const char* get() const { return text_; } // null for a descriptor

private:
    const char* text_;
    std::string made_;
};

ssize_t get(const attribute_holder& from, const char* name, void* out, size_t size) {
    const whole_path path(from);
    return path.get() ? getxattr(path.get(), name, out, size) : fgetxattr(from.at, name, out, size);
}

bool set(const attribute_holder& to, const char* name, std::string_view text) {
    const whole_path path(to);
    return (path.get() ? setxattr(path.get(), name, text.data(), text.size(), 0)
                       : fsetxattr(to.at, name, text.data(), text.size(), 0))
           == 0;
}

bool remove(const attribute_holder& to, const char* name) {
    const whole_path path(to);
    const int result = path.get() ? removexattr(path.get(), name) : fremovexattr(to.at, name);
    return result == 0 || errno == ENODATA || errno == EOPNOTSUPP;
}

bool change_mode(const attribute_holder& to, mode_t mode) {
    return (to.path ? fchmodat(to.at, to.path, mode & 07777, 0) : fchmod(to.at, mode & 07777)) == 0;
}

// New in Linux 6.13, and of the same number everywhere: the names of the extended attributes of an entry, without a
// walk to its directory.
constexpr long list_in_directory = 465;
std::atomic<bool> lists_in_directory{true};

ssize_t list(const attribute_holder& from, char* out, size_t size) {
    if (!from.path)
        return flistxattr(from.at, out, size);
    if (from.at != AT_FDCWD && lists_in_directory.load(std::memory_order_relaxed)) {
        const ssize_t result = syscall(list_in_directory, from.at, from.path, 0, out, size);
        // Filters on system calls answer EPERM, too, for calls that they do not know.
        if (result >= 0 || (errno != ENOSYS && errno != EPERM))
            return result;
        lists_in_directory.store(false, std::memory_order_relaxed);
    }
    return listxattr(whole_path(from).get(), out, size);
}

// The number that an extended attribute holds as text, 0 for anything else: `0x` and hexadecimal digits.
uint64_t get_number(const attribute_holder& from, const char* name) {
    char text[64];
    const ssize_t size = get(from, name, text, sizeof text);
    uint64_t number = 0;
    if (size > 2 && text[0] == '0' && (text[1] | 0x20) == 'x')
        std::from_chars(text + 2, text + size, number, 16);
    return number;
}

bool set_number(const attribute_holder& to, const char* name, uint64_t number) {
    if (number == 0)
        return remove(to, name);
    char text[24];
    const int size = std::snprintf(text, sizeof text, "0x%llx", static_cast<unsigned long long>(number));
    return set(to, name, {text, static_cast<size_t>(size)});
}

// Never changed for a moment to be read: other threads may be creating files.
mode_t current_umask() {
    char line[128];
    unsigned mask = 022;
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

} // namespace

namespace {

// The names of a file's extended attributes. Asking for them costs less than asking for one that is not there, and
// files that have one of ours are few.
class stored_names {
public:
    explicit stored_names(const attribute_holder& of) : size_(list(of, names_, sizeof names_)) {
        if (size_ < 0)
            has_too_many_ = errno == ERANGE;
    }

    template <size_t Size>
    bool has(const char (&name)[Size]) const {
        return has_too_many_
               || (size_ > 0 && memmem(names_, static_cast<size_t>(size_), name, Size) != nullptr);
    }

private:
    char names_[512];
    ssize_t size_;
    bool has_too_many_ = false;
};

} // namespace

DWORD read_stored_bits(const attribute_holder& from) {
    return stored_names(from).has(bits_name) ? static_cast<DWORD>(get_number(from, bits_name)) : 0;
}

stored_attributes read_stored(const attribute_holder& from) {
    const stored_names names(from);
    stored_attributes stored;
    if (names.has(bits_name))
        stored.bits = static_cast<DWORD>(get_number(from, bits_name));
    if (names.has(created_name))
        stored.created = get_number(from, created_name);
    return stored;
}

DWORD attributes_of(mode_t mode, DWORD stored_bits) {
    if (S_ISDIR(mode))
        return FILE_ATTRIBUTE_DIRECTORY | (stored_bits & kept_for_directories);
    const DWORD bits = (stored_bits & kept_for_files) | (is_read_only(mode) ? FILE_ATTRIBUTE_READONLY : 0);
    return bits ? bits : FILE_ATTRIBUTE_NORMAL;
}

DWORD write_attributes(const attribute_holder& to, mode_t mode, DWORD attributes) {
    const bool is_directory = S_ISDIR(mode);
    const DWORD old_bits = can_store(mode) ? read_stored_bits(to) : 0;
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
    if (code != ERROR_SUCCESS && read_stored_bits(to) != old_bits)
        set_number(to, bits_name, old_bits); // the mode was refused after the bits had been taken
    return code;
}

DWORD write_created(const attribute_holder& to, mode_t mode, uint64_t created) {
    if (!can_store(mode))
        return ERROR_NOT_SUPPORTED;
    return store_while_writable(to, mode, mode, [&] { return set_number(to, created_name, created); });
}

} // namespace platform
