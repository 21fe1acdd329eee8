// Inside the layer: a place, which is the file that a path names on the host, whatever the case of the path's letters
// and however long it is; the file need not exist.
//
// A call of the host is made in the spelling of the path first, so it costs nothing more when the case is right. When
// nothing has that name (ENOENT), the directory of the first missing component is searched for another spelling, and
// the call is made again. A path that is too long for one call of the host is walked in pieces, so every call gets a
// directory and a path below it.
#pragma once

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <climits>
#include <string>

#include "platform/core/descriptor.h"
#include "platform/core/retry.h"
#include "platform/files/path.h"

namespace platform {

class place {
public:
    // Sets the place, which is done once. 0, or the code of a path that can name nothing.
    DWORD set(const WCHAR* path, path_use use = path_use::exact);
    void set_host_path(const char* path);

    bool is_root() const { return path_.is_root; }
    bool is_network() const { return path_.is_network; }
    bool is_volume() const { return path_.is_volume; }
    bool ends_with_separator() const { return path_.ends_with_separator; }
    const std::u16string& pattern() const { return path_.pattern; }
    bool is_drive_directory() const { return path_.host.size() == path_.root_size; }

    // The last component, as the host spells it; empty for a root.
    std::string_view last_name() const;

    // The last component as the path spelled it, whatever spelling has been found.
    std::string_view given_name() const { return given_name_.empty() ? last_name() : given_name_; }

    // Goes back to that spelling, for a file that is to get the name as it was given.
    void use_given_name() { spell_last(std::string(given_name())); }

    // Goes up to the directory that the place is in; false at the drive's directory.
    bool set_to_parent();

    // Makes a call of the host on the place: call(directory, path) gives -1 and errno when it fails. After ENOENT it
    // is made again in the stored spelling, once one has been found.
    template <class Call>
    int attempt(Call call) {
        const auto made = [&] { return call(directory(), name()); };
        if (!reach())
            return -1;
        int result = retried(made);
        if (result < 0 && errno == ENOENT && find_spelling())
            result = retried(made);
        return result;
    }

    // Looks for the place, without following a link at its end, and takes on the spelling that the file system has for
    // it. False, with errno, when it does not exist.
    bool find();

    // The code for an errno of a call on the place: 2 (ERROR_FILE_NOT_FOUND) for a missing name, 3
    // (ERROR_PATH_NOT_FOUND) for a missing directory.
    DWORD code_of(int error) const;

    // The two arguments for the host's calls. `name` may be several components.
    int directory() const { return start_ ? at_.get() : AT_FDCWD; }
    const char* name() const { return path_.host.empty() ? "/" : path_.host.c_str() + start_; }

    // A path for the calls that take no directory. A long one names the place's own descriptor (/proc/self/fd/N/...), so
    // it must not be used after the end of the place.
    std::string whole_name() const;
    bool is_too_long() const { return path_.host.size() >= PATH_MAX; }

private:
    bool reach();
    bool find_spelling();
    bool walk();
    void spell_last(std::string_view stored);

    parsed_path path_;
    descriptor at_;          // the directory that `name` starts from, once `start_` is set
    size_t start_ = 0;       // how much of the path has been walked
    std::string given_name_; // the path's own spelling, once another is in use
    bool searched_ = false;
    bool directory_missing_ = false;
};

} // namespace platform
