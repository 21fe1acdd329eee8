// Inside this folder: datagram sockets, and what the network reports about datagrams that were sent.
#pragma once

#include <sys/socket.h>

namespace platform {

// Makes a new datagram socket hear of ports where nobody listens.
void begin_datagrams(int descriptor);

// False until this process has made a datagram socket here. Every socket is a stream then, and needs none of this.
bool datagrams_in_use();

// Whether a socket is a datagram socket without a port. Nothing can arrive there, yet the kernel would wait.
bool waits_in_vain(int descriptor);

// Whether a failed send, whose error is errno, may have told of an earlier datagram and done nothing itself.
bool may_tell_of_an_earlier_datagram(int descriptor);

// Receives from a socket of any kind and tells whether a datagram was longer than the buffer. -1 with errno:
// ECONNREFUSED once for each datagram that found nobody.
ssize_t receive_maybe_datagram(int descriptor, char* buffer, size_t capacity, int flags, sockaddr* address,
                               socklen_t* length, bool& truncated);

} // namespace platform
