// Attributes and creation times.
#include "platform/attributes.h"

#include <sys/xattr.h>

#include <charconv>
#include <cstdio>
#include <cstring>
#include <string_view>

#include "platform/error.h"

namespace platform {

namespace {

constexpr char bits_name[] = "user.DOSATTRIB";
constexpr char created_name[] = "user.zu.created";

constexpr DWORD kept_for_files = FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM | FILE_ATTRIBUTE_ARCHIVE
                                 | FILE_ATTRIBUTE_TEMPORARY | FILE_ATTRIBUTE_NOT_CONTENT_INDEXED;
constexpr DWORD kept_for_directories = FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM
                                       | FILE_ATTRIBUTE_ARCHIVE | FILE_ATTRIBUTE_NOT_CONTENT_INDEXED;

ssize_t get(const attribute_holder& from, const char* name, void* out, size_t size) {
    return from.path ? getxattr(from.path, name, out, size) : fgetxattr(from.descriptor, name, out, size);
}

ssize_t list(const attribute_holder& from, char* out, size_t size) {
    return from.path ? listxattr(from.path, out, size) : flistxattr(from.descriptor, out, size);
}

bool set(const attribute_holder& to, const char* name, std::string_view text) {
    return (to.path ? setxattr(to.path, name, text.data(), text.size(), 0)
                    : fsetxattr(to.descriptor, name, text.data(), text.size(), 0))
           == 0;
}

bool remove(const attribute_holder& to, const char* name) {
    const int result = to.path ? removexattr(to.path, name) : fremovexattr(to.descriptor, name);
    return result == 0 || errno == ENODATA || errno == EOPNOTSUPP;
}

bool change_mode(const attribute_holder& to, mode_t mode) {
    return (to.path ? chmod(to.path, mode & 07777) : fchmod(to.descriptor, mode & 07777)) == 0;
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

DWORD read_stored_bits(const attribute_holder& from) {
    return static_cast<DWORD>(get_number(from, bits_name));
}

stored_attributes read_stored(const attribute_holder& from) {
    // Files with one of the two are few, so one call asks for both at once.
    char names[1024];
    const ssize_t size = list(from, names, sizeof names);
    const bool is_too_long = size < 0 && errno == ERANGE;
    const std::string_view present(names, size > 0 ? static_cast<size_t>(size) : 0);
    const auto has = [&](std::string_view name) { return is_too_long || present.find(name) != present.npos; };
    stored_attributes stored;
    if (has({bits_name, sizeof bits_name}))
        stored.bits = static_cast<DWORD>(get_number(from, bits_name));
    if (has({created_name, sizeof created_name}))
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
