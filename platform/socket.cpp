// The socket library: counted start and stop.
#include <atomic>

#include "platform/api/sockets.h"

namespace platform {

namespace {

std::atomic<int> starts{0};

constexpr WORD highest_version = 0x0202;

} // namespace

int WSAStartup(WORD version, WSADATA* data) {
    const int major = version & 0xFF;
    if (major == 0)
        return WSAVERNOTSUPPORTED;
    if (!data)
        return WSAEFAULT;
    // A caller that asks for more than there is gets what there is.
    data->wVersion = major > 2 || version == highest_version ? highest_version : version;
    data->wHighVersion = highest_version;
    ++starts;
    return 0;
}

int WSACleanup() {
    int count = starts.load();
    do {
        if (count == 0) {
            SetLastError(WSANOTINITIALISED);
            return -1;
        }
    } while (!starts.compare_exchange_weak(count, count - 1));
    return 0;
}

} // namespace platform
