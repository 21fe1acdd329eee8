// The runtime library's reading of numbers in wide text.
#include <algorithm>
#include <climits>
#include <iterator>

#include "platform/api/text.h"

namespace platform {

namespace {

bool is_space(WCHAR c) {
    return (c >= 9 && c <= 13) || c == u' ' || c == 0x85 || c == 0xA0 || c == 0x1680
           || (c >= 0x2000 && c <= 0x200A) || c == 0x2028 || c == 0x2029 || c == 0x202F || c == 0x205F
           || c == 0x3000;
}

// The zeros of the scripts whose ten digits stand together.
constexpr WCHAR digit_zeros[] = {0x0030, 0x0660, 0x06F0, 0x0966, 0x09E6, 0x0A66, 0x0AE6, 0x0B66, 0x0C66,
                                 0x0CE6, 0x0D66, 0x0E50, 0x0ED0, 0x0F20, 0x1040, 0x17E0, 0x1810, 0xFF10};

// The value of a digit of any script, or -1.
int digit_value(WCHAR c) {
    const WCHAR* above = std::upper_bound(std::begin(digit_zeros), std::end(digit_zeros), c);
    if (above == std::begin(digit_zeros))
        return -1;
    const int value = c - above[-1];
    return value < 10 ? value : -1;
}

} // namespace

int _wtoi(const WCHAR* text) {
    while (is_space(*text))
        ++text;
    const bool negative = *text == u'-';
    if (*text == u'-' || *text == u'+')
        ++text;
    uint32_t value = 0; // wraps, as the runtime's does
    for (int digit; (digit = digit_value(*text)) >= 0; ++text)
        value = value * 10 + static_cast<uint32_t>(digit);
    return static_cast<int>(negative ? 0 - value : value);
}

} // namespace platform
