// Finding the file that a path names on the host.
#include "platform/files/place.h"

#include <linux/fs.h>
#include <sys/ioctl.h>

#include "platform/core/error.h"
#include "platform/files/directory_scan.h"
#include "platform/files/spelling.h"
#include "platform/text/case_fold.h"

namespace platform {

namespace {

// The host takes 4,096 bytes in one call, of which /proc/self/fd/N/ may take some.
constexpr size_t longest_piece = 4000;

descriptor enter(int at, const char* directory) {
    return descriptor(retried([&] { return openat(at, directory, O_PATH | O_DIRECTORY | O_CLOEXEC); }));
}

bool may_have_other_spelling(std::string_view name) {
    while (!name.empty())
        if (has_other_case(take_character(name)))
            return true;
    return false;
}

// Whether the file system itself ignores case in a directory, so that no other spelling needs to be looked for.
bool ignores_case(int directory) {
    int flags = 0;
    return ioctl(directory, FS_IOC_GETFLAGS, &flags) == 0 && (flags & FS_CASEFOLD_FL);
}

// Looks for a name in another case. Empty with errno: ENOENT also for a directory that may not be listed, in which
// names count as they are spelled.
std::string look_in(descriptor directory, std::string_view wanted) {
    if (directory && !ignores_case(directory.get()))
        return find_spelling_in(std::move(directory), wanted);
    if (directory || errno == EACCES)
        errno = ENOENT;
    return {};
}

// Gives a component the spelling of the directory's entry. False, with errno, when there is no such entry.
bool respell(int at, std::string& component) {
    struct stat status;
    if (retried([&] { return fstatat(at, component.c_str(), &status, AT_SYMLINK_NOFOLLOW); }) == 0)
        return true;
    if (errno != ENOENT || !may_have_other_spelling(component))
        return false;
    std::string stored = look_in(descriptor(open_to_list(at, ".")), component);
    if (stored.empty())
        return false;
    component = std::move(stored);
    return true;
}

} // namespace

DWORD place::set(const WCHAR* path, path_use use) {
    return parse_path(path, use, path_);
}

void place::set_host_path(const char* path) {
    path_.host = path;
}

std::string_view place::last_name() const {
    const std::string_view host = path_.host;
    return is_drive_directory() ? std::string_view() : host.substr(host.rfind('/') + 1);
}

bool place::set_to_parent() {
    if (is_drive_directory())
        return false;
    path_.host.resize(path_.host.rfind('/'));
    given_name_.clear();
    searched_ = false;
    if (start_ > path_.host.size()) {
        start_ = 0;
        at_.reset();
    }
    return true;
}

// Puts another spelling in the place of the last component.
void place::spell_last(std::string_view stored) {
    std::string given(last_name());
    path_.host.resize(path_.host.size() - given.size());
    path_.host += stored;
    given_name_ = std::move(given);
}

std::string place::whole_name() const {
    if (!is_too_long())
        return path_.host.empty() ? "/" : path_.host;
    return "/proc/self/fd/" + std::to_string(at_.get()) + '/' + name();
}

// Opens the directories of a long path, piece by piece, until the rest of it fits into one call.
bool place::reach() {
    while (path_.host.size() - start_ > longest_piece) {
        const size_t cut = path_.host.rfind('/', start_ + longest_piece);
        std::string piece = path_.host.substr(start_, cut - start_);
        descriptor next = enter(directory(), piece.c_str());
        if (!next)
            return errno == ENOENT && !searched_ && find_spelling();
        at_ = std::move(next);
        start_ = cut + 1;
    }
    return true;
}

bool place::find_spelling() {
    if (searched_)
        return false;
    searched_ = true;
    if (is_drive_directory()) {
        directory_missing_ = true;
        errno = ENOENT;
        return false;
    }
    if (path_.host.size() - start_ > longest_piece)
        return walk();
    // Most often only the last component is missing, and its directory has the right spelling.
    const size_t end = path_.host.size() - last_name().size();
    const std::string folder = end > start_ ? path_.host.substr(start_, end - start_) : ".";
    if (!may_have_other_spelling(last_name())) {
        struct stat status;
        if (retried([&] { return fstatat(directory(), folder.c_str(), &status, 0); }) != 0)
            return errno == ENOENT && walk();
        errno = ENOENT;
        return false;
    }
    descriptor opened(open_to_list(directory(), folder.c_str()));
    if (!opened && errno == ENOENT)
        return walk();
    const std::string stored = look_in(std::move(opened), last_name());
    if (stored.empty())
        return false;
    // The two are equal when another program has made the file since.
    if (stored != last_name())
        spell_last(stored);
    return true;
}

// Finds the stored spelling of each component, from the drive's directory on. True when the last one exists.
bool place::walk() {
    const std::string wanted = path_.host;
    std::string found = wanted.substr(0, path_.root_size);
    descriptor here = enter(AT_FDCWD, found.empty() ? "/" : found.c_str());
    for (size_t at = path_.root_size; here;) {
        const size_t end = std::min(wanted.find('/', at + 1), wanted.size());
        std::string component = wanted.substr(at + 1, end - at - 1);
        const bool is_there = respell(here.get(), component);
        if (end == wanted.size()) {
            // Whether the last component exists or not, `here` is its directory.
            start_ = found.size() + 1;
            path_.host = std::move(found) + wanted.substr(at);
            at_ = std::move(here);
            if (component != last_name())
                spell_last(component);
            return is_there;
        }
        if (!is_there)
            break;
        here = enter(here.get(), component.c_str());
        found += '/' + component;
        at = end;
    }
    directory_missing_ = errno == ENOENT;
    return false;
}

bool place::find() {
    struct stat status;
    return attempt([&](int at, const char* path) { return fstatat(at, path, &status, AT_SYMLINK_NOFOLLOW); })
           == 0;
}

DWORD place::code_of(int error) const {
    switch (error) {
    case ENOENT:
        return directory_missing_ || is_drive_directory() ? ERROR_PATH_NOT_FOUND : ERROR_FILE_NOT_FOUND;
    case ENOTDIR: return ERROR_PATH_NOT_FOUND;
    default: return code_of_errno(error);
    }
}

} // namespace platform
