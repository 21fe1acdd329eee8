// Numbers in a wide format, as the C library prints them. Integers are converted here; floating-point numbers are
// the C library's own, and widths and long precisions are added around them, so that no area is ever too small.
#include <algorithm>
#include <array>
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <iterator>

#include "platform/text/format.h"

namespace platform {

namespace {

struct number_text {
    const char* prefix; // sign, or the mark of the base
    size_t prefix_length;
    const char* digits;
    size_t digit_count;
    WCHAR point;               // what a full stop among the digits stands for
    size_t trailing_zeros = 0; // after the first `mantissa` digits
    size_t mantissa = 0;
};

void put_number(format_output& out, const conversion& how, const number_text& number, bool is_finite) {
    const size_t length = number.prefix_length + number.digit_count + number.trailing_zeros;
    const size_t padding = how.width > length ? how.width - length : 0;
    const bool fills_with_zeros = how.zeros && is_finite && !how.left;
    const size_t before_zeros = number.trailing_zeros > 0 ? number.mantissa : number.digit_count;
    if (!how.left && !fills_with_zeros)
        out.fill(u' ', padding);
    out.put(number.prefix, number.prefix_length);
    if (fills_with_zeros)
        out.fill(u'0', padding);
    out.put(number.digits, before_zeros, number.point);
    out.fill(u'0', number.trailing_zeros);
    out.put(number.digits + before_zeros, number.digit_count - before_zeros);
    if (how.left)
        out.fill(u' ', padding);
}

// The argument in 64 bits: cut to its size, and extended by its sign where it has one.
template <class Narrow, class Signed>
uint64_t extended(Signed value, bool is_signed) {
    if (is_signed)
        return static_cast<uint64_t>(int64_t{static_cast<Narrow>(value)});
    return static_cast<std::make_unsigned_t<Narrow>>(value);
}

uint64_t next_integer(const conversion& how, argument_list& arguments, bool is_signed) {
    switch (how.size) {
    case size_prefix::half: return extended<int16_t>(arguments.next<int>(), is_signed);
    case size_prefix::bits_64: return extended<int64_t>(arguments.next<int64_t>(), is_signed);
    case size_prefix::pointer: return extended<intptr_t>(arguments.next<intptr_t>(), is_signed);
    default: return extended<int32_t>(arguments.next<int>(), is_signed);
    }
}

struct digit_pair {
    WCHAR high, low;
};
constexpr auto digit_pairs = [] {
    std::array<digit_pair, 100> pairs{};
    for (size_t i = 0; i < pairs.size(); ++i)
        pairs[i] = {static_cast<WCHAR>(u'0' + i / 10), static_cast<WCHAR>(u'0' + i % 10)};
    return pairs;
}();

// These write the digits so that they end at `end`, and return where they begin; there are none for 0.
template <class Number>
WCHAR* write_decimal(Number value, WCHAR* end) {
    for (; value >= 100; value /= 100) {
        end -= 2;
        std::memcpy(end, &digit_pairs[value % 100], sizeof(digit_pair));
    }
    if (value >= 10) {
        end -= 2;
        std::memcpy(end, &digit_pairs[value], sizeof(digit_pair));
    } else if (value > 0) {
        *--end = static_cast<WCHAR>(u'0' + value);
    }
    return end;
}

WCHAR* write_binary(uint64_t value, unsigned bits, const WCHAR* alphabet, WCHAR* end) {
    for (; value; value >>= bits)
        *--end = alphabet[value & ((1u << bits) - 1)];
    return end;
}

WCHAR* write_digits(uint64_t value, WCHAR letter, WCHAR* end) {
    switch (letter) {
    case u'o': return write_binary(value, 3, u"01234567", end);
    case u'x': return write_binary(value, 4, u"0123456789abcdef", end);
    case u'X': return write_binary(value, 4, u"0123456789ABCDEF", end);
    default:
        // Dividing 32 bits is cheaper.
        return value <= UINT32_MAX ? write_decimal(static_cast<uint32_t>(value), end)
                                   : write_decimal(value, end);
    }
}

const char* sign_of(bool negative, const conversion& how) {
    return negative ? "-" : how.plus ? "+" : how.blank ? " " : "";
}

} // namespace

void put_integer(format_output& out, const conversion& how, argument_list& arguments) {
    const bool is_signed = how.letter == u'd' || how.letter == u'i';
    uint64_t value = next_integer(how, arguments, is_signed);
    const bool negative = is_signed && static_cast<int64_t>(value) < 0;
    if (negative)
        value = 0 - value;

    constexpr size_t area_size = 64, most_digits = 22;
    WCHAR area[area_size];
    WCHAR* const end = area + area_size;
    WCHAR* digits = write_digits(value, how.letter, end);
    const auto digit_count = static_cast<size_t>(end - digits);
    const char* prefix = is_signed ? sign_of(negative, how) : "";
    size_t least_digits = how.precision < 0 ? 1 : static_cast<size_t>(how.precision);
    if (how.alternative && how.letter == u'o')
        least_digits = std::max(least_digits, digit_count + 1);
    else if (how.alternative && value)
        prefix = how.letter == u'x' ? "0x" : how.letter == u'X' ? "0X" : prefix;

    const size_t prefix_length = std::strlen(prefix);
    if (how.zeros && how.precision < 0 && !how.left && how.width > prefix_length)
        least_digits = std::max(least_digits, how.width - prefix_length);
    const size_t zeros = least_digits > digit_count ? least_digits - digit_count : 0;
    const size_t length = prefix_length + zeros + digit_count;
    const size_t padding = how.width > length ? how.width - length : 0;
    if (!how.left)
        out.fill(u' ', padding);
    if (zeros <= area_size - most_digits - 2) { // nearly always: the number fits in one piece
        digits = std::fill_n(digits - zeros, zeros, u'0') - zeros;
        digits = std::copy_backward(prefix, prefix + prefix_length, digits);
        out.put(digits, length);
    } else {
        out.put(prefix, prefix_length);
        out.fill(u'0', zeros);
        out.put(digits, digit_count);
    }
    if (how.left)
        out.fill(u' ', padding);
}

namespace {

// No value of the type has a digit other than 0 after this many.
constexpr int double_digits = 1100;
constexpr int long_double_digits = 16600;

// Text of the C library: on the stack where it fits, as every double with a usual precision does.
class floating_text {
public:
    template <class Float>
    floating_text(const char* format, int precision, Float value) {
        int length = std::snprintf(area_, sizeof area_, format, precision, value);
        if (length >= static_cast<int>(sizeof area_)) {
            const size_t size = static_cast<size_t>(length) + 1;
            block_ = static_cast<char*>(std::malloc(size));
            length = block_ ? std::snprintf(block_, size, format, precision, value) : -1;
        }
        length_ = length;
        if (length > 0)
            take_point();
    }
    ~floating_text() { std::free(block_); }
    floating_text(const floating_text&) = delete;
    floating_text& operator=(const floating_text&) = delete;

    bool made() const { return length_ >= 0; }
    const char* text() const { return block_ ? block_ : area_; }
    size_t length() const { return static_cast<size_t>(length_); }
    WCHAR point() const { return point_; } // what a full stop in the text stands for

private:
    // The locale's decimal point may be one character of several bytes: a full stop takes their place.
    void take_point() {
        char* const text = block_ ? block_ : area_;
        char* const end = text + length_;
        const auto is_ascii = [](char c) { return static_cast<unsigned char>(c) < 0x80; };
        char* const begin = std::find_if_not(text, end, is_ascii);
        if (begin == end)
            return;
        const char* const behind = std::find_if(begin, end, is_ascii);
        wchar_t half[8];
        if (std::swprintf(half, std::size(half), L"%.1f", 0.5) != 3)
            return;
        point_ = static_cast<WCHAR>(half[1]);
        *begin = '.';
        length_ = static_cast<int>(std::copy(behind, static_cast<const char*>(end), begin + 1) - text);
    }

    char area_[512];
    WCHAR point_ = u'.';
    char* block_ = nullptr;
    int length_;
};

void put_parts(format_output& out, const conversion& how, const floating_text& text, int zeros_beyond) {
    const char* at = text.text();
    const char* end = at + text.length();
    const char* digits = at;
    if (*digits == '-' || *digits == '+' || *digits == ' ')
        ++digits;
    const bool finite = std::isdigit(static_cast<unsigned char>(*digits)) != 0;
    const bool hexadecimal = how.letter == u'a' || how.letter == u'A';
    if (finite && hexadecimal)
        digits += 2;
    number_text number{at, static_cast<size_t>(digits - at), digits, static_cast<size_t>(end - digits),
                       text.point()};
    if (finite && zeros_beyond > 0) {
        const char marks[] = {'e', 'E', 'p', 'P'};
        const char* exponent = hexadecimal ? std::find_first_of(digits, end, marks + 2, marks + 4)
                                           : std::find_first_of(digits, end, marks, marks + 2);
        number.mantissa = static_cast<size_t>(exponent - digits);
        number.trailing_zeros = static_cast<size_t>(zeros_beyond);
    }
    put_number(out, how, number, finite);
}

} // namespace

void put_floating(format_output& out, const conversion& how, argument_list& arguments) {
    const bool is_long = how.size == size_prefix::long_double;
    const int most_digits = is_long ? long_double_digits : double_digits;
    const int precision = std::min(how.precision, most_digits);
    const bool drops_zeros = (how.letter == u'g' || how.letter == u'G') && !how.alternative;

    char format[12];
    char* at = format;
    *at++ = '%';
    if (how.plus)
        *at++ = '+';
    if (how.blank)
        *at++ = ' ';
    if (how.alternative)
        *at++ = '#';
    *at++ = '.';
    *at++ = '*';
    if (is_long)
        *at++ = 'L';
    *at++ = static_cast<char>(how.letter);
    *at = 0;
    const floating_text text = is_long ? floating_text(format, precision, arguments.next<long double>())
                                       : floating_text(format, precision, arguments.next<double>());
    if (!text.made()) {
        out.fail();
        return;
    }
    put_parts(out, how, text, drops_zeros || how.precision <= precision ? 0 : how.precision - precision);
}

} // namespace platform
