// Reports of any bytes on a service's socket. Descriptors that come with them do not stay open, and no value goes beyond
// its line.
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>

#include "fuzz/check.h"
#include "helper/notify.h"

namespace {

constexpr size_t most_descriptors = 80;
const std::string path = "/tmp/fuzz_notify." + std::to_string(getpid());

int connected_sender() {
    const int sender = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_un address{AF_UNIX, {}};
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    check(connect(sender, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0);
    return sender;
}

bool send_with_descriptors(int sender, const std::string& text, size_t count) {
    alignas(cmsghdr) char control[CMSG_SPACE(most_descriptors * sizeof(int))] = {};
    iovec piece{const_cast<char*>(text.data()), text.size()};
    msghdr message{};
    message.msg_iov = &piece;
    message.msg_iovlen = 1;
    if (count > 0) {
        message.msg_control = control;
        message.msg_controllen = CMSG_SPACE(count * sizeof(int));
        cmsghdr* const head = CMSG_FIRSTHDR(&message);
        *head = {CMSG_LEN(count * sizeof(int)), SOL_SOCKET, SCM_RIGHTS};
        std::fill_n(reinterpret_cast<int*>(CMSG_DATA(head)), count, sender);
    }
    return sendmsg(sender, &message, 0) >= 0;
}

// The number that the next descriptor gets.
int next_descriptor() {
    const int next = dup(STDIN_FILENO);
    check(next >= 0 && close(next) == 0);
    return next;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static zu_helper::notify_socket receiver;
    static const bool is_open = receiver.open(path);
    check(is_open);
    static const int sender = connected_sender();
    const int next_before = next_descriptor();
    if (size == 0
        || !send_with_descriptors(sender, {data + 1, data + size}, data[0] % (most_descriptors + 1)))
        return 0;
    std::string text;
    check(receiver.receive(getsid(0), text));
    check(text == std::string(data + 1, data + size).substr(0, 4096));
    for (const char* name : {"READY", "STOPPING", "EXTEND_TIMEOUT_USEC", ""})
        check(zu_helper::reported(text, name).find('\n') == std::string_view::npos);
    check(next_descriptor() == next_before);
    return 0;
}
