// Code pages: the checks and codes of the platform's two conversions around UTF-8 and the environment's set.
#include <climits>
#include <cstring>

#include "platform/api/text.h"
#include "platform/core/error.h"
#include "platform/text/charset.h"
#include "platform/text/utf8.h"

namespace platform {

namespace {

DWORD check(UINT code_page, DWORD flags, const void* in, int count, const void* out, int size) {
    if (!in || count == 0 || size < 0 || (size > 0 && (!out || out == in)))
        return ERROR_INVALID_PARAMETER;
    if (code_page != CP_ACP && code_page != CP_UTF8)
        return ERROR_INVALID_PARAMETER;
    return flags == 0 ? ERROR_SUCCESS : ERROR_INVALID_FLAGS;
}

// The set of a code page, or null when that is UTF-8. False, with a code, when it could not be found.
bool find_set(UINT code_page, const charset*& set) {
    if (code_page == CP_UTF8)
        return true;
    set = environment_charset();
    if (!set)
        return false;
    if (is_utf8(*set))
        set = nullptr;
    return true;
}

int result_of(size_t written, int size) {
    if (size > 0 && written > static_cast<size_t>(size)) // does_not_fit is the largest of all
        return fail(ERROR_INSUFFICIENT_BUFFER);
    return written > INT_MAX ? fail(ERROR_ARITHMETIC_OVERFLOW) : static_cast<int>(written);
}

} // namespace

int WideCharToMultiByte(UINT code_page, DWORD flags, const WCHAR* wide, int count, char* out, int size,
                        const char* default_char, BOOL* used_default) {
    if (const DWORD code = check(code_page, flags, wide, count, out, size))
        return fail(code);
    if (default_char || used_default)
        return fail(ERROR_INVALID_PARAMETER);
    const size_t units = count < 0 ? std::char_traits<WCHAR>::length(wide) + 1 : static_cast<size_t>(count);
    const size_t room = static_cast<size_t>(size);
    const charset* set = nullptr;
    if (!find_set(code_page, set))
        return 0;
    if (!set)
        return result_of(room == 0 ? utf8_size(wide, units) : utf8_from_wide(wide, units, out, room), size);
    bounded_output<char> output(out, room);
    return charset_from_wide(*set, wide, units, output) ? result_of(output.count(), size) : 0;
}

int MultiByteToWideChar(UINT code_page, DWORD flags, const char* narrow, int count, WCHAR* out, int size) {
    if (const DWORD code = check(code_page, flags, narrow, count, out, size))
        return fail(code);
    const size_t bytes = count < 0 ? std::strlen(narrow) + 1 : static_cast<size_t>(count);
    const size_t room = static_cast<size_t>(size);
    const charset* set = nullptr;
    if (!find_set(code_page, set))
        return 0;
    if (!set)
        return result_of(room == 0 ? wide_size(narrow, bytes) : wide_from_utf8(narrow, bytes, out, room),
                         size);
    bounded_output<WCHAR> output(out, room);
    return charset_to_wide(*set, narrow, bytes, output) ? result_of(output.count(), size) : 0;
}

} // namespace platform
