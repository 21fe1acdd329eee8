// The platform's socket library.
#pragma once

#include "platform/api/base.h"

namespace platform {

struct WSADATA {
    WORD wVersion;
    WORD wHighVersion;
};

// Counted: the library is started until every start has its clean-up. 0 or the code.
int WSAStartup(WORD version, WSADATA* data);
int WSACleanup();

} // namespace platform
