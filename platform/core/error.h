// Inside the layer: from the host's errno to the platform's last-error code, and the texts of the codes.
#pragma once

#include <cstddef>

#include "platform/api/base.h"

namespace platform {

// The platform's code for a value of errno. Calls with more to go by than errno (sockets, directories that
// stand where a file is wanted) sort that out themselves first.
DWORD code_of_errno(int error);

// Sets the last-error code to that of the present errno.
void set_last_error_from_errno();

// Puts the thread's last-error code back at the end of a scope.
class last_error_kept {
public:
    last_error_kept() : code_(GetLastError()) {}
    ~last_error_kept() { SetLastError(code_); }
    last_error_kept(const last_error_kept&) = delete;
    last_error_kept& operator=(const last_error_kept&) = delete;

private:
    DWORD code_;
};

struct error_text {
    DWORD code;
    const WCHAR* text; // one sentence, ended by CR LF
};

extern const error_text error_texts[]; // ascending by code
extern const size_t error_text_count;

} // namespace platform
