// Inside this folder: how a socket call fails.
#pragma once

#include "platform/api/sockets.h"

namespace platform {

// The one translation from errno for calls on sockets. Where errno says too little, the call asks the socket first.
DWORD code_of_socket_errno(int error);

// Whether the library is started; sets the code when it is not.
bool sockets_started();

// Sets the last-error code and gives the result of a failed call.
int socket_failure(DWORD code);

} // namespace platform
