// One conversion of a wide format: flags, width, precision, size, letter.
#include <algorithm>
#include <climits>

#include "platform/text/format.h"

namespace platform {

namespace {

bool parse_flag(WCHAR c, conversion& parsed) {
    switch (c) {
    case u'-': return parsed.left = true;
    case u'+': return parsed.plus = true;
    case u' ': return parsed.blank = true;
    case u'#': return parsed.alternative = true;
    case u'0': return parsed.zeros = true;
    default: return false;
    }
}

bool is_digit(WCHAR c) {
    return c >= u'0' && c <= u'9';
}

// A number that is too large for an int becomes INT_MAX: no output of that length fits anywhere.
int parse_number(const WCHAR*& at) {
    int64_t value = 0;
    for (; is_digit(*at); ++at)
        value = std::min<int64_t>(value * 10 + (*at - u'0'), INT_MAX);
    return static_cast<int>(value);
}

void parse_width(const WCHAR*& at, argument_list& arguments, conversion& parsed) {
    int64_t width;
    if (*at == u'*') {
        ++at;
        width = arguments.next<int>();
    } else {
        width = parse_number(at);
    }
    parsed.left |= width < 0;
    parsed.width = static_cast<size_t>(width < 0 ? -width : width);
}

void parse_precision(const WCHAR*& at, argument_list& arguments, conversion& parsed) {
    if (*at != u'.')
        return;
    ++at;
    if (*at == u'*') {
        ++at;
        parsed.precision = std::max(arguments.next<int>(), -1);
    } else {
        parsed.precision = parse_number(at);
    }
}

// `I` is a size only before a number's letter or with its 32 or 64; otherwise it is a letter without a meaning.
bool parse_capital_i(const WCHAR*& at, conversion& parsed) {
    if (at[1] == u'6' && at[2] == u'4') {
        parsed.size = size_prefix::bits_64;
        at += 3;
        return true;
    }
    if (at[1] == u'3' && at[2] == u'2') {
        parsed.size = size_prefix::bits_32;
        at += 3;
        return true;
    }
    for (WCHAR letter : {u'd', u'i', u'o', u'u', u'x', u'X'}) {
        if (at[1] == letter) {
            parsed.size = size_prefix::pointer;
            ++at;
            return true;
        }
    }
    return false;
}

bool parse_size(const WCHAR*& at, conversion& parsed) {
    switch (*at) {
    case u'h': parsed.size = size_prefix::half; break;
    case u'l':
        if (at[1] == u'l') {
            parsed.size = size_prefix::bits_64;
            ++at;
        } else {
            parsed.size = size_prefix::wide;
        }
        break;
    case u'w': parsed.size = size_prefix::wide; break;
    case u'j': parsed.size = size_prefix::bits_64; break;
    case u'z':
    case u't': parsed.size = size_prefix::pointer; break;
    case u'L': parsed.size = size_prefix::long_double; break;
    case u'I': return parse_capital_i(at, parsed);
    default: return false;
    }
    ++at;
    return true;
}

} // namespace

const WCHAR* parse_conversion(const WCHAR* at, argument_list& arguments, conversion& parsed) {
    while (parse_flag(*at, parsed))
        ++at;
    parse_width(at, arguments, parsed);
    parse_precision(at, arguments, parsed);
    while (parse_size(at, parsed)) {}
    parsed.letter = *at;
    if (parsed.letter == u'p') { // all digits of an address, in capitals
        parsed.letter = u'X';
        parsed.size = size_prefix::pointer;
        parsed.precision = 2 * sizeof(void*);
    }
    return *at ? at + 1 : at;
}

} // namespace platform
