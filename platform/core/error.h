// Inside the layer: from the host's errno to the platform's last-error code, and the texts of the codes.
#pragma once

#include <cstddef>

#include "platform/api/base.h"

namespace platform {

// The platform's code for a value of errno. Where errno alone does not decide (sockets, a directory in the place of a
// file), the caller decides first.
DWORD code_of_errno(int error);

// Sets the last-error code to that of the present errno.
void set_last_error_from_errno();

// Sets the last-error code and gives a failed result: FALSE, null, or the one that is named.
template <class Result = BOOL>
Result fail(DWORD code, Result result = {}) {
    SetLastError(code);
    return result;
}

// The result of a call whose work has ended with a code: TRUE for ERROR_SUCCESS, else FALSE with the code set.
inline BOOL result_of(DWORD code) {
    return code == ERROR_SUCCESS ? TRUE : fail(code);
}

// Puts the thread's last-error code back at the end of a scope.
class keep_last_error {
public:
    keep_last_error() : code_(GetLastError()) {}
    ~keep_last_error() { SetLastError(code_); }
    keep_last_error(const keep_last_error&) = delete;
    keep_last_error& operator=(const keep_last_error&) = delete;

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
