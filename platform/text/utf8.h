// Inside the layer: UTF-8 and UTF-16, both ways. Malformed input never stops a conversion, and the result is always
// well formed.
#pragma once

#include <cstddef>
#include <string>

#include "platform/api/base.h"

namespace platform {

inline constexpr size_t does_not_fit = static_cast<size_t>(-1);

inline constexpr char32_t replacement_character = 0xFFFD;

inline bool is_high_surrogate(char32_t unit) {
    return (unit & 0xFC00) == 0xD800;
}

inline bool is_low_surrogate(char32_t unit) {
    return (unit & 0xFC00) == 0xDC00;
}

// The bytes that wide text takes as UTF-8. A surrogate without its partner counts as U+FFFD.
size_t utf8_size(const WCHAR* wide, size_t count);

// Writes those bytes, without a terminator. Gives their number, or does_not_fit when `size` bytes are too few. The area
// behind them is undefined afterwards, and all of it when they do not fit.
size_t utf8_from_wide(const WCHAR* wide, size_t count, char* out, size_t size);

// The units that UTF-8 takes as wide text. Each maximal bad part, as Unicode recommends, counts as one U+FFFD.
size_t wide_size(const char* utf8, size_t count);

// Writes those units in the same way.
size_t wide_from_utf8(const char* utf8, size_t count, WCHAR* out, size_t size);

// The same in strings of their own.
std::string utf8_of(wide_view wide);
std::u16string wide_from(std::string_view utf8);

// The character at the head of UTF-8 text that is not empty.
struct utf8_piece {
    char32_t character; // replacement_character when it is malformed
    size_t length;      // bytes taken: the whole sequence, or the maximal bad part
    bool malformed;
};
utf8_piece decode_utf8(const char* utf8, size_t count);

} // namespace platform
