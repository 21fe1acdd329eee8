// The socket on which a service reports.
#pragma once

#include <sys/types.h>

#include <string>
#include <string_view>

#include "platform/core/descriptor.h"

namespace zu_helper {

using platform::descriptor;

// Where a service sends its reports: a socket with a short name, since the host takes 107 bytes. It lies in a directory
// of this user in /run or $XDG_RUNTIME_DIR, under the number of the service's directory. Where there is none, it lies in
// a new directory of /tmp, whose name nobody can have taken before.
class notify_place {
public:
    explicit notify_place(int service_directory);
    ~notify_place();
    notify_place(const notify_place&) = delete;
    notify_place& operator=(const notify_place&) = delete;

    const std::string& path() const { return path_; } // empty when no directory could be made

private:
    std::string path_;
    std::string made_; // the new directory
};

class notify_socket {
public:
    ~notify_socket();

    bool open(const std::string& path); // false with errno
    int get() const { return socket_.get(); }

    // The next report of a process of the session; false when there is none. Reports of others, and descriptors that
    // come with one, are dropped.
    bool receive(pid_t session, std::string& text);

private:
    descriptor socket_;
    std::string path_;
};

// The value that a report gives to a name, in a line of its own; without data when it does not.
std::string_view reported(std::string_view text, std::string_view name);

} // namespace zu_helper
