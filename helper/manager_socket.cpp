// Reports to systemd, in its own protocol.
#include "helper/manager_socket.h"

#include <sys/socket.h>
#include <sys/un.h>

#include <cstddef>
#include <cstdlib>

#include "platform/api/services.h"

namespace zu_helper {

namespace {

// The unit gets this time beyond what the service asks for, so that the library's wait ends first.
constexpr uint64_t spare_ms = 1000;

const char* word_of(platform::DWORD state) {
    switch (state) {
    case SERVICE_START_PENDING: return "start-pending";
    case SERVICE_STOP_PENDING: return "stop-pending";
    case SERVICE_RUNNING: return "running";
    default: return "stopped";
    }
}

} // namespace

manager_socket::manager_socket() : socket_(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
    if (const char* const path = std::getenv("NOTIFY_SOCKET"))
        path_ = path;
    is_for_user_ = path_.starts_with("/run/user/");
    for (const char* name : {"NOTIFY_SOCKET", "WATCHDOG_PID", "WATCHDOG_USEC"})
        ::unsetenv(name);
}

void manager_socket::tell(std::string_view text) const {
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    if (path_.empty() || path_.size() >= sizeof address.sun_path)
        return;
    path_.copy(address.sun_path, path_.size());
    if (address.sun_path[0] == '@')
        address.sun_path[0] = 0; // an abstract name, which is no file
    const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + path_.size());
    ::sendto(socket_.get(), text.data(), text.size(), MSG_NOSIGNAL,
             reinterpret_cast<const sockaddr*>(&address), size);
}

void manager_socket::tell(const platform::service_report& report) {
    std::string text = std::string("STATUS=") + word_of(report.state);
    if (report.state != SERVICE_RUNNING)
        text += ", check point " + std::to_string(report.check_point);
    if (report.wait_hint_ms != 0)
        text += "\nEXTEND_TIMEOUT_USEC=" + std::to_string((report.wait_hint_ms + spare_ms) * 1000);
    if (report.state == SERVICE_RUNNING)
        text += "\nREADY=1";
    if (report.state == SERVICE_STOP_PENDING)
        text += "\nSTOPPING=1";
    if (text != told_)
        tell(text);
    told_ = std::move(text);
}

} // namespace zu_helper
