// Code pages and the runtime library's wide text calls.
#pragma once

#include "platform/api/base.h"

namespace platform {

// Both give the number of units written (or needed, with an output size of 0), 0 on failure: 87
// (ERROR_INVALID_PARAMETER) for a count of 0, a null or unknown argument, 122 (ERROR_INSUFFICIENT_BUFFER) when the
// output is too small. A count below 0 takes the terminator along.
int WideCharToMultiByte(UINT code_page, DWORD flags, const WCHAR* wide, int count, char* out, int size,
                        const char* default_char, BOOL* used_default);
int MultiByteToWideChar(UINT code_page, DWORD flags, const char* narrow, int count, WCHAR* out, int size);

// The counted wide formatter: the length, without a terminator when it equals `count`; -1 when the output does not
// fit. A null buffer with a count of 0 measures: the length that the output would have.
int _vsnwprintf(WCHAR* out, size_t count, const WCHAR* format, va_list arguments);
int _snwprintf(WCHAR* out, size_t count, const WCHAR* format, ...);

// The length of a text, but not more than `limit`; nothing behind a terminator before it counts as read.
size_t wcsnlen(const WCHAR* text, size_t limit);

// A name of ours. Copies a text without its terminator, at most `limit` units, into an area that it does not lie in;
// returns how many.
size_t copy_text(WCHAR* out, const WCHAR* text, size_t limit);

// White space, one sign, decimal digits; wraps at 32 bits.
int _wtoi(const WCHAR* text);

// Which text comes first when case does not count: below 0, 0 or above 0. Null comes before every text.
int lstrcmpiW(const WCHAR* text, const WCHAR* other);

// A name of ours. While one lives, writing to a stream whose reader is gone fails instead of ending the process.
class quiet_pipes {
public:
    quiet_pipes();
    ~quiet_pipes();
    quiet_pipes(const quiet_pipes&) = delete;
    quiet_pipes& operator=(const quiet_pipes&) = delete;

    // Every write has succeeded, so that none has raised the signal: it need not be looked for.
    void all_written() { may_have_come_ = false; }

private:
    bool blocked_; // the thread held SIGPIPE back already
    bool pending_; // one was waiting before: it is not ours to take
    bool may_have_come_ = true;
};

} // namespace platform

inline constexpr platform::UINT CP_ACP = 0;
inline constexpr platform::UINT CP_UTF8 = 65001;
