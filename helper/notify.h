// The socket on which a service reports.
#pragma once

#include <sys/types.h>

#include <string>
#include <string_view>

#include "platform/core/descriptor.h"

namespace zu_helper {

using platform::descriptor;

class notify_socket {
public:
    ~notify_socket();

    bool open(const std::string& path);
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
