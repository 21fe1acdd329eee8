// The debugger output: one datagram a line, as UTF-8, to the socket "zu-debug" in the runtime directory. The caller never
// waits: a line that cannot be delivered at once is lost.
#include "platform/api/debugger.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <time.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <string>
#include <string_view>

#include "platform/api/text.h"
#include "platform/core/clock.h"
#include "platform/core/descriptor.h"
#include "platform/core/error.h"

namespace platform {

namespace {

constexpr size_t longest_datagram = 32 * 1024;
constexpr int64_t pause_after_failure_ms = 1000;

// The time of the next attempt, on the monotonic clock. Threads that race for it make one attempt too many, no more.
std::atomic<int64_t> next_attempt_ms{0};

// Makes the listener's address. False if there is no runtime directory, or its name is too long for an address.
bool find_listener(sockaddr_un& address) {
    const char* given = secure_getenv("XDG_RUNTIME_DIR");
    std::string_view directory = given ? given : "";
    if (directory.empty() && geteuid() == 0)
        directory = "/run";
    constexpr std::string_view name = "/zu-debug";
    if (directory.empty() || directory.size() + name.size() >= sizeof address.sun_path)
        return false;
    address = {};
    address.sun_family = AF_UNIX;
    directory.copy(address.sun_path, directory.size());
    name.copy(address.sun_path + directory.size(), name.size());
    return true;
}

// At most the first 32 KiB of a text, cut between two characters.
std::string to_datagram(std::u16string_view text) {
    text = text.substr(0, longest_datagram); // every unit gives a byte at least
    const int units = static_cast<int>(text.size());
    std::string bytes;
    if (units == 0)
        return bytes;
    bytes.resize(static_cast<size_t>(
        WideCharToMultiByte(CP_UTF8, 0, text.data(), units, nullptr, 0, nullptr, nullptr)));
    WideCharToMultiByte(CP_UTF8, 0, text.data(), units, bytes.data(), static_cast<int>(bytes.size()), nullptr,
                        nullptr);
    if (bytes.size() > longest_datagram) {
        size_t end = longest_datagram;
        while (end > 0 && (static_cast<unsigned char>(bytes[end]) & 0xC0) == 0x80)
            --end;
        bytes.resize(end);
    }
    return bytes;
}

// The socket lives for one line: a socket that is kept could be closed by a daemon that starts, or reach a child.
bool deliver(const WCHAR* text) {
    sockaddr_un address;
    if (!find_listener(address))
        return false;
    // Without a listener the line need not be converted.
    if (access(address.sun_path, F_OK) != 0)
        return false;
    const descriptor sender(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (!sender)
        return false;
    const std::string line = to_datagram(text);
    return sendto(sender.get(), line.data(), line.size(), MSG_DONTWAIT | MSG_NOSIGNAL,
                  reinterpret_cast<const sockaddr*>(&address), sizeof address)
           >= 0;
}

} // namespace

void OutputDebugStringW(const WCHAR* text) {
    if (!text)
        return;
    const int64_t now = coarse_now_ms();
    if (now < next_attempt_ms.load(std::memory_order_relaxed))
        return;
    const keep_last_error code;
    const int error = errno;
    if (!deliver(text))
        next_attempt_ms.store(now + pause_after_failure_ms, std::memory_order_relaxed);
    errno = error;
}

} // namespace platform
