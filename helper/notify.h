// The socket on which a service reports.
#pragma once

#include <sys/types.h>

#include <string>
#include <string_view>

#include "platform/core/descriptor.h"

namespace zu_helper {

using platform::descriptor;

// The place of the socket to which a service sends its reports. Its name is short, since the host takes 107 bytes. It lies
// in a directory of this user in /run or $XDG_RUNTIME_DIR, under the inode number of the service's directory. Without
// such a directory it lies in a new one of /tmp, whose name nobody can have taken before. The directory goes with the
// last service in it.
class notify_place {
public:
    explicit notify_place(int service_directory);
    ~notify_place();
    notify_place(const notify_place&) = delete;
    notify_place& operator=(const notify_place&) = delete;

    const std::string& path() const { return path_; } // empty when no directory could be made

private:
    std::string directory_;
    std::string path_;
};

class notify_socket {
public:
    ~notify_socket();

    bool open(const std::string& path); // false with errno
    int get() const { return socket_.get(); }

    // Takes the next report of a process of the session; false if there is none. Reports of others are dropped, and
    // descriptors that come with a report are closed.
    bool receive(pid_t session, std::string& text);

private:
    descriptor socket_;
    std::string path_;
};

// The value of a name in a report, which has one line for each name. Without data if the report does not have it.
std::string_view reported(std::string_view text, std::string_view name);

} // namespace zu_helper
