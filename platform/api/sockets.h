// The platform's socket library. Sockets, addresses, levels, options and flags are the host's own.
#pragma once

#include <netdb.h>
#include <sys/ioctl.h>

#include "platform/api/base.h"

namespace platform {

using ::fd_set;
using ::hostent;
using ::sockaddr;
using ::sockaddr_in;
using ::SOCKET;
using ::timeval;

struct WSADATA {
    WORD wVersion;
    WORD wHighVersion;
};

// Counted: the library is started until every start has its clean-up. 0 or the code. Every call below but inet_addr
// and __WSAFDIsSet fails with 10093 (WSANOTINITIALISED) while it is not started.
int WSAStartup(WORD version, WSADATA* data);
int WSACleanup();

SOCKET socket(int family, int type, int protocol);
SOCKET accept(SOCKET socket, sockaddr* address, int* length); // takes over the listener's blocking mode
int closesocket(SOCKET socket);
int bind(SOCKET socket, const sockaddr* address, int length);
int connect(SOCKET socket, const sockaddr* address, int length);
int listen(SOCKET socket, int backlog);
int setsockopt(SOCKET socket, int level, int option, const char* value, int length);
int ioctlsocket(SOCKET socket, long command, unsigned long* argument); // FIONBIO alone
int send(SOCKET socket, const char* buffer, int length, int flags);
// A name of ours: send without flags, once a wait has shown room, takes what there is room for and never blocks.
int send_what_fits(SOCKET socket, const char* buffer, int length);
int recv(SOCKET socket, char* buffer, int capacity, int flags);
int sendto(SOCKET socket, const char* buffer, int length, int flags, const sockaddr* address,
           int address_length);
int recvfrom(SOCKET socket, char* buffer, int capacity, int flags, sockaddr* address, int* address_length);

// Readiness. A time-out leaves the last-error code alone, and the sets empty.
int select(int ignored, fd_set* read, fd_set* write, fd_set* error, const timeval* timeout);

// A name of ours: a set of one socket, whatever its number: the host's fd_set ends at descriptor 1,023.
struct one_socket_set {
    SOCKET member; // INVALID_SOCKET when it is not, or not any more, in the set

    explicit one_socket_set(SOCKET socket) : member(socket) {}
};
int select(int ignored, one_socket_set* read, one_socket_set* write, one_socket_set* error,
           const timeval* timeout);
int __WSAFDIsSet(SOCKET socket, one_socket_set* set);

// Dotted text in its one to four parts; INADDR_NONE for everything else. The last-error code stays.
uint32_t inet_addr(const char* text);

// The record belongs to the calling thread, until its next look-up. Null or "" asks for this computer's own entry.
hostent* gethostbyname(const char* name);

} // namespace platform
