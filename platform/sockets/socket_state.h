// Inside this folder: questions to the kernel about a socket, for where errno and poll say too little.
#pragma once

namespace platform {

// SOCK_STREAM, SOCK_DGRAM ...; -1, with errno, when the descriptor is no socket.
int socket_type(int descriptor);

// AF_INET ...; -1 when the descriptor is no socket.
int socket_family(int descriptor);

// Whether an internet socket has a local port. Sockets of other families count as bound.
bool socket_is_bound(int descriptor);

bool socket_blocks(int descriptor);

enum class stream_state {
    unknown, // no TCP socket
    fresh,   // neither connected nor failed; maybe bound
    pending, // an attempt goes on
    failed,  // the attempt has failed
    listening,
    open,      // nobody has closed anything
    half_shut, // this side has shut its sending direction
    peer_shut, // the peer has shut its own
    both_shut,
    gone, // the connection was reset, or is closed on both sides
};

stream_state stream_state_of(int descriptor);

} // namespace platform
