// Inside this folder: the parts of the wide formatter. Where the output goes, where the arguments come from, and one
// conversion of a format.
#pragma once

#include <cstdarg>
#include <cstddef>

#include "platform/api/base.h"

namespace platform {

// Takes what fits and counts all of it; without an area it measures.
class format_output {
public:
    format_output(WCHAR* out, size_t size) : at_(out), left_(size), measures_(!out) {}

    void put(WCHAR unit) { put(&unit, 1); }
    void put(const WCHAR* text, size_t length) {
        if (length > short_length || length > left_) {
            put_long(text, length);
            return;
        }
        count_ += length;
        left_ -= length;
        for (const WCHAR* const end = text + length; text != end;) // most pieces are short: no call
            *at_++ = *text++;
    }
    // Each byte becomes one character, and a full stop the point.
    void put(const char* text, size_t length, WCHAR point = u'.');
    void fill(WCHAR unit, size_t length) {
        if (length != 0)
            fill_some(unit, length);
    }

    // The output cannot be made any more: it does not fit, or its length is no int.
    void fail() { failed_ = true; }
    bool failed() const { return failed_; }

    // The length of a text need not be counted beyond this.
    size_t decisive_length() const { return measures_ ? SIZE_MAX : left_ + 1; }

    // The length, or -1. Writes the terminator where there is room for it.
    int finish();

private:
    static constexpr size_t short_length = 16;

    size_t taken(size_t length);
    void put_long(const WCHAR* text, size_t length);
    void fill_some(WCHAR unit, size_t length);

    WCHAR* at_;
    size_t left_;
    size_t count_ = 0;
    bool measures_;
    bool failed_ = false;
};

// A copy of the caller's list, which can be passed on by reference whatever a va_list is made of.
class argument_list {
public:
    explicit argument_list(va_list list) { va_copy(list_, list); }
    ~argument_list() { va_end(list_); }
    argument_list(const argument_list&) = delete;
    argument_list& operator=(const argument_list&) = delete;

    template <class T>
    T next() {
        return va_arg(list_, T);
    }

private:
    va_list list_;
};

enum class size_prefix {
    none,
    half,        // h
    wide,        // l, w: 32-bit numbers, as the platform's long; wide texts
    bits_32,     // I32
    bits_64,     // ll, I64, j
    pointer,     // I, z, t
    long_double, // L
};

struct conversion {
    bool left = false;        // -
    bool plus = false;        // +
    bool blank = false;       // space
    bool alternative = false; // #
    bool zeros = false;       // 0
    size_t width = 0;
    int precision = -1; // none
    size_prefix size = size_prefix::none;
    WCHAR letter = 0; // 0: the format ended within the conversion; p is read as a number for X
};

// Reads the conversion after a percent sign, with the arguments that its stars name; returns what follows it.
const WCHAR* parse_conversion(const WCHAR* at, argument_list& arguments, conversion& parsed);

// Put the number of the letters d i u o x X, and of a A e E f F g G.
void put_integer(format_output& out, const conversion& how, argument_list& arguments);
void put_floating(format_output& out, const conversion& how, argument_list& arguments);

} // namespace platform
