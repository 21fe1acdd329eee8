// The system log's socket. The C library's syslog is not for a library: it has one name and one descriptor for the whole
// process, and waits when the log is slow.
#include "platform/core/system_log.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <syslog.h>

#include <cerrno>
#include <string>

#include "platform/core/descriptor.h"

namespace platform {

void write_system_log(std::string_view line) {
    const int error = errno;
    const sockaddr_un address = {AF_UNIX, "/dev/log"};
    const std::string text = '<' + std::to_string(LOG_DAEMON | LOG_ERR) + ">zu[" + std::to_string(getpid())
                             + "]: " + std::string(line);
    const descriptor log(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    sendto(log.get(), text.data(), text.size(), MSG_NOSIGNAL, reinterpret_cast<const sockaddr*>(&address),
           sizeof address);
    errno = error;
}

} // namespace platform
