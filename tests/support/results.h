// What calls of the library give back.
#pragma once

#include <string>

#include "zu/zu.h"

namespace zu_test {

constexpr uint32_t no_code = 0xFFFFFFFF;

// 0 when the call was done; otherwise its code, or no_code when it left none. Each failure has to set its own.
inline uint32_t code_of(bool done) {
    const uint32_t code = GetLastError();
    SetLastError(0);
    return done ? 0 : code != 0 ? code : no_code;
}

// A copy of a text that is the caller's to free, which is freed.
inline std::u16string taken(ZU_wchar* text) {
    const std::u16string copy = text ? text : u"<null>";
    ZU_free(text);
    return copy;
}

} // namespace zu_test
