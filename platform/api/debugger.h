// The debugger's output string.
#pragma once

#include "platform/api/base.h"

namespace platform {

// Hands one line to whoever listens on the socket "zu-debug", and never waits for them. The last-error code stays.
void OutputDebugStringW(const WCHAR* text);

} // namespace platform
