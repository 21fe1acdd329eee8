#include "support/service.h"

#include <signal.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <fstream>

#include "support/environment.h"
#include "support/scratch.h"

namespace zu_test {

static sigset_t stop_signal;

// Inside a booted system (host/test_service_units.cpp) the services are units of it.
void put_service_program(const std::filesystem::path& directory) {
    std::filesystem::create_symlink(own_program(), directory / "service.exe");
    if (!std::getenv("ZU_TEST_UNITS"))
        return;
    const std::string services = std::getenv("ZU_HOST") + std::string("/services");
    std::filesystem::create_directories(services);
    std::ofstream(services + "/.manager") << "systemd\n";
    must(std::system("systemctl set-environment ZU_HOST=$ZU_HOST") == 0, "set-environment", services);
}

int serve_as_service(int (*body)(const words&), const words& arguments) {
    sigemptyset(&stop_signal);
    sigaddset(&stop_signal, SIGTERM);
    sigprocmask(SIG_BLOCK, &stop_signal, nullptr);
    return body(arguments);
}

void tell_manager(const std::string& text) {
    sockaddr_un manager = {};
    manager.sun_family = AF_UNIX;
    std::strncpy(manager.sun_path, std::getenv("NOTIFY_SOCKET"), sizeof manager.sun_path - 1);
    const int sender = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sendto(sender, text.data(), text.size(), 0, reinterpret_cast<sockaddr*>(&manager), sizeof manager);
    close(sender);
}

void report_state(service_state state, uint32_t hint) {
    const char* const first = state == running ? "READY=1\n" : state == stop_pending ? "STOPPING=1\n" : "";
    tell_manager(first + ("EXTEND_TIMEOUT_USEC=" + std::to_string(hint) + "000"));
}

bool is_told_to_stop(uint32_t within_ms) {
    const timespec limit = {within_ms / 1000, static_cast<long>(within_ms % 1000 * 1'000'000)};
    return sigtimedwait(&stop_signal, nullptr, &limit) > 0;
}

} // namespace zu_test
