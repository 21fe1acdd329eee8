// Reports are datagrams to the socket that NOTIFY_SOCKET names, in the protocol that services of the host speak.
#include "reports.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <string_view>

namespace {

// An address of the socket's family is that family and the path.
struct socket_path {
    sockaddr_storage address{};
    int32_t length;

    explicit socket_path(std::string_view path) {
        constexpr size_t start = offsetof(sockaddr, sa_data);
        path = path.substr(0, sizeof address - start - 1);
        char* const bytes = reinterpret_cast<char*>(&address) + start;
        std::copy(path.begin(), path.end(), bytes);
        if (bytes[0] == '@')
            bytes[0] = 0; // an abstract name, which is no file
        address.ss_family = AF_UNIX;
        length = static_cast<int32_t>(start + path.size());
    }
};

const char* manager() {
    return std::getenv("NOTIFY_SOCKET");
}

void report(std::string_view text) {
    if (!manager())
        return;
    const SOCKET sender = ZU_socket(AF_UNIX, SOCK_DGRAM, 0);
    if (sender == INVALID_SOCKET)
        return;
    const socket_path to(manager());
    ZU_sendto(sender, text.data(), static_cast<int32_t>(text.size()), 0,
              reinterpret_cast<const sockaddr*>(&to.address), to.length);
    ZU_socket_close(sender);
}

} // namespace

void service_reports::ready() {
    report("READY=1");
}

void service_reports::ending() {
    report("STOPPING=1");
    if (!manager() || asking_)
        return;
    has_ended_ = ZU_create_event(1);
    asking_ = ZU_thread_create(ask_for_time, this);
}

// Asks for five more seconds, once a second.
uint32_t service_reports::ask_for_time(void* self) {
    do
        report("EXTEND_TIMEOUT_USEC=5000000");
    while (ZU_wait_for_event(static_cast<service_reports*>(self)->has_ended_, 1000) == 0);
    return 0;
}

service_reports::~service_reports() {
    if (asking_) {
        ZU_set_event(has_ended_);
        ZU_thread_wait_for_termination(asking_, nullptr);
    }
    if (has_ended_)
        ZU_destroy_event(has_ended_);
}
