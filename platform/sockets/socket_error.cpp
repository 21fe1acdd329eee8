// The socket library's counted start and stop, and its codes.
#include "platform/sockets/socket_error.h"

#include <atomic>
#include <cerrno>

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
        if (count == 0)
            return socket_failure(WSANOTINITIALISED);
    } while (!starts.compare_exchange_weak(count, count - 1));
    return 0;
}

bool sockets_started() {
    if (starts.load(std::memory_order_relaxed) > 0)
        return true;
    SetLastError(WSANOTINITIALISED);
    return false;
}

int socket_failure(DWORD code) {
    SetLastError(code);
    return SOCKET_ERROR;
}

DWORD code_of_socket_errno(int error) {
    switch (error) {
    case EBADF:
    case ENOTSOCK: return WSAENOTSOCK;
    case EINTR: return WSAEINTR;
    case EACCES:
    case EPERM: return WSAEACCES;
    case EFAULT: return WSAEFAULT;
    case EINVAL: return WSAEINVAL;
    case EMFILE:
    case ENFILE: return WSAEMFILE;
    case EAGAIN:
    case EINPROGRESS: return WSAEWOULDBLOCK;
    case EALREADY: return WSAEALREADY;
    case EDESTADDRREQ: return WSAEDESTADDRREQ;
    case EMSGSIZE: return WSAEMSGSIZE;
    case EPROTOTYPE: return WSAEPROTOTYPE;
    case ENOPROTOOPT: return WSAENOPROTOOPT;
    case EPROTONOSUPPORT: return WSAEPROTONOSUPPORT;
    case ESOCKTNOSUPPORT: return WSAESOCKTNOSUPPORT;
    case EOPNOTSUPP: return WSAEOPNOTSUPP;
    case EPFNOSUPPORT: return WSAEPFNOSUPPORT;
    case EAFNOSUPPORT: return WSAEAFNOSUPPORT;
    case EADDRINUSE: return WSAEADDRINUSE;
    case EADDRNOTAVAIL: return WSAEADDRNOTAVAIL;
    case ENONET:
    case ENETDOWN: return WSAENETDOWN;
    case ENETUNREACH: return WSAENETUNREACH;
    case ENETRESET: return WSAENETRESET;
    case EPROTO:
    case ECONNABORTED: return WSAECONNABORTED;
    case EPIPE:
    case ECONNRESET: return WSAECONNRESET;
    case ENOBUFS:
    case ENOMEM: return WSAENOBUFS;
    case EISCONN: return WSAEISCONN;
    case ENOTCONN: return WSAENOTCONN;
    case ESHUTDOWN: return WSAESHUTDOWN;
    case ETOOMANYREFS: return WSAETOOMANYREFS;
    case ETIMEDOUT: return WSAETIMEDOUT;
    case ECONNREFUSED: return WSAECONNREFUSED;
    case ELOOP: return WSAELOOP;
    case ENAMETOOLONG: return WSAENAMETOOLONG;
    case EHOSTDOWN: return WSAEHOSTDOWN;
    case EHOSTUNREACH: return WSAEHOSTUNREACH;
    case EUSERS: return WSAEUSERS;
    case EDQUOT: return WSAEDQUOT;
    case ESTALE: return WSAESTALE;
    case EREMOTE: return WSAEREMOTE;
    default: return WSAEINVAL;
    }
}

} // namespace platform
