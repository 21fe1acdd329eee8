// Numbers in a wide format, as the C library prints them. Integers are converted here; floating-point numbers are
// the C library's own, and widths and long precisions are added around them, so that no area is ever too small.
#include <algorithm>
#include <array>
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "platform/text/format.h"

namespace platform {

namespace {

struct number_text {
    const char* prefix; // sign, or the mark of the base
    size_t prefix_length;
    const char* digits;
    size_t digit_count;
    size_t leading_zeros = 0;  // between prefix and digits
    size_t trailing_zeros = 0; // after the first `mantissa` digits
    size_t mantissa = 0;
};

void put_number(format_output& out, const conversion& how, const number_text& number, bool fill_with_zeros) {
    const size_t length =
        number.prefix_length + number.leading_zeros + number.digit_count + number.trailing_zeros;
    const size_t padding = how.width > length ? how.width - length : 0;
    fill_with_zeros &= !how.left;
    if (!how.left && !fill_with_zeros)
        out.fill(u' ', padding);
    out.put(number.prefix, number.prefix_length);
    out.fill(u'0', number.leading_zeros + (fill_with_zeros ? padding : 0));
    const size_t before_zeros = number.trailing_zeros > 0 ? number.mantissa : number.digit_count;
    out.put(number.digits, before_zeros);
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

constexpr auto digit_pairs = [] {
    std::array<char, 200> pairs{};
    for (size_t i = 0; i < 100; ++i) {
        pairs[2 * i] = static_cast<char>('0' + i / 10);
        pairs[2 * i + 1] = static_cast<char>('0' + i % 10);
    }
    return pairs;
}();

// These write the digits so that they end at `end`, and return where they begin; there are none for 0.
char* write_decimal(uint64_t value, char* end) {
    while (value >= 100) {
        end -= 2;
        std::memcpy(end, &digit_pairs[value % 100 * 2], 2);
        value /= 100;
    }
    if (value >= 10) {
        end -= 2;
        std::memcpy(end, &digit_pairs[value * 2], 2);
    } else if (value > 0) {
        *--end = static_cast<char>('0' + value);
    }
    return end;
}

char* write_binary(uint64_t value, unsigned bits, const char* alphabet, char* end) {
    for (; value; value >>= bits)
        *--end = alphabet[value & ((1u << bits) - 1)];
    return end;
}

char* write_digits(uint64_t value, WCHAR letter, char* end) {
    switch (letter) {
    case u'o': return write_binary(value, 3, "01234567", end);
    case u'x': return write_binary(value, 4, "0123456789abcdef", end);
    case u'X': return write_binary(value, 4, "0123456789ABCDEF", end);
    default: return write_decimal(value, end);
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

    char area[32];
    char* const end = area + sizeof area;
    const char* digits = write_digits(value, how.letter, end);
    const auto digit_count = static_cast<size_t>(end - digits);
    const char* prefix = is_signed ? sign_of(negative, how) : "";
    size_t least_digits = how.precision < 0 ? 1 : static_cast<size_t>(how.precision);
    if (how.alternative && how.letter == u'o')
        least_digits = std::max(least_digits, digit_count + 1);
    else if (how.alternative && value)
        prefix = how.letter == u'x' ? "0x" : how.letter == u'X' ? "0X" : prefix;

    number_text number{prefix, std::strlen(prefix), digits, digit_count};
    number.leading_zeros = least_digits > digit_count ? least_digits - digit_count : 0;
    put_number(out, how, number, how.zeros && how.precision < 0);
}

namespace {

// No value of the type has a digit other than 0 behind so many.
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
    }
    ~floating_text() { std::free(block_); }
    floating_text(const floating_text&) = delete;
    floating_text& operator=(const floating_text&) = delete;

    bool made() const { return length_ >= 0; }
    const char* text() const { return block_ ? block_ : area_; }
    size_t length() const { return static_cast<size_t>(length_); }

private:
    char area_[512];
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
    number_text number{at, static_cast<size_t>(digits - at), digits, static_cast<size_t>(end - digits)};
    if (finite && zeros_beyond > 0) {
        const char marks[] = {'e', 'E', 'p', 'P'};
        const char* exponent = hexadecimal ? std::find_first_of(digits, end, marks + 2, marks + 4)
                                           : std::find_first_of(digits, end, marks, marks + 2);
        number.mantissa = static_cast<size_t>(exponent - digits);
        number.trailing_zeros = static_cast<size_t>(zeros_beyond);
    }
    put_number(out, how, number, how.zeros && finite);
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
