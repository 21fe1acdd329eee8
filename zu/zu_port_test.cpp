// Port test: one connection attempt, awaited for a limited time.
#include "zu/zu_socket.h"

namespace {

enum : int32_t { connected = 0, failed = 1, timed_out = 2 };

// Waits for the outcome of an attempt in progress. A failure shows in the error set alone, so that is read first.
int32_t wait_for_outcome(SOCKET socket, const platform::timeval& timeout) {
    platform::one_socket_set writable(socket);
    platform::one_socket_set in_error(socket);
    const int ready = platform::select(0, nullptr, &writable, &in_error, &timeout);
    if (ready < 0)
        return failed;
    if (ready == 0)
        return timed_out;
    if (platform::__WSAFDIsSet(socket, &in_error) > 0)
        return failed;
    return platform::__WSAFDIsSet(socket, &writable) ? connected : failed;
}

// Every failure leaves its code in the last-error slot.
int32_t test_with(SOCKET socket, const ZU_wchar* address, uint16_t port, const platform::timeval& timeout) {
    if (zu::bind_to(socket, zu::ipv4(0, INADDR_ANY)) < 0)
        return failed;
    unsigned long non_blocking = 1;
    if (platform::ioctlsocket(socket, FIONBIO, &non_blocking) < 0)
        return failed;
    if (zu::connect_to(socket, zu::ipv4(port, ZU_inet_addr_tchar(address))) == 0)
        return connected;
    if (platform::GetLastError() != WSAEWOULDBLOCK)
        return failed;
    return wait_for_outcome(socket, timeout);
}

} // namespace

int32_t ZU_socket_test_port(const ZU_wchar* address, uint16_t port, uint32_t timeout_ms) {
    if (!address) {
        platform::SetLastError(ERROR_INVALID_PARAMETER);
        return failed;
    }
    platform::timeval timeout;
    timeout.tv_sec = static_cast<decltype(timeout.tv_sec)>(timeout_ms / 1000);
    timeout.tv_usec = static_cast<decltype(timeout.tv_usec)>(timeout_ms % 1000 * 1000);

    const SOCKET socket = ZU_socket(AF_INET, SOCK_STREAM, 0);
    if (socket == INVALID_SOCKET)
        return failed;
    const int32_t result = test_with(socket, address, port, timeout);
    const platform::DWORD code = platform::GetLastError();
    ZU_socket_close(socket);
    platform::SetLastError(result == connected ? static_cast<platform::DWORD>(ERROR_SUCCESS) : code);
    return result;
}
