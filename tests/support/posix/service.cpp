#include "support/service.h"

#include <signal.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>

namespace zu_test {

static sigset_t stop_signal;

std::u16string service_command(const part& plays, const std::string& directory) {
    const std::string self = std::filesystem::read_symlink("/proc/self/exe");
    return std::filesystem::path('"' + self + "\" --part " + plays.name + " \"" + directory + '"')
        .u16string();
}

int serve_as_service(int (*body)(const words&), const words& arguments) {
    sigemptyset(&stop_signal);
    sigaddset(&stop_signal, SIGTERM);
    sigprocmask(SIG_BLOCK, &stop_signal, nullptr);
    return body(arguments);
}

void report_state(service_state state, uint32_t hint) {
    const std::string text = (state == running        ? "READY=1\n"
                              : state == stop_pending ? "STOPPING=1\n"
                                                      : "")
                             + ("EXTEND_TIMEOUT_USEC=" + std::to_string(hint) + "000");
    sockaddr_un manager = {};
    manager.sun_family = AF_UNIX;
    std::strncpy(manager.sun_path, std::getenv("NOTIFY_SOCKET"), sizeof manager.sun_path - 1);
    const int sender = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sendto(sender, text.data(), text.size(), 0, reinterpret_cast<sockaddr*>(&manager), sizeof manager);
    close(sender);
}

void wait_for_stop() {
    int signal;
    sigwait(&stop_signal, &signal);
}

} // namespace zu_test
