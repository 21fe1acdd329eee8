// The counted wide formatter: plain text, and the conversions of texts and characters.
#include "platform/text/format.h"

#include <algorithm>
#include <climits>
#include <cstring>

#include "platform/api/text.h"

namespace platform {

size_t format_output::taken(size_t length) {
    count_ += length;
    if (count_ > INT_MAX || (!measures_ && length > left_))
        failed_ = true;
    const size_t fits = std::min(length, left_);
    left_ -= fits;
    return fits;
}

void format_output::put_long(const WCHAR* text, size_t length) {
    if (const size_t fits = taken(length)) {
        std::memcpy(at_, text, fits * sizeof(WCHAR));
        at_ += fits;
    }
}

void format_output::put(const char* text, size_t length, WCHAR point) {
    const char* end = text + taken(length);
    for (; text != end; ++text)
        *at_++ = *text == '.' ? point : static_cast<unsigned char>(*text);
}

void format_output::fill_some(WCHAR unit, size_t length) {
    at_ = std::fill_n(at_, taken(length), unit);
}

int format_output::finish() {
    if (left_ > 0)
        *at_ = 0;
    return failed_ || count_ > INT_MAX ? -1 : static_cast<int>(count_);
}

namespace {

size_t length_up_to(const WCHAR* text, size_t limit) {
    return wcsnlen(text, limit);
}

size_t length_up_to(const char* text, size_t limit) {
    return strnlen(text, limit);
}

template <class Unit>
void put_padded(format_output& out, const conversion& how, const Unit* text, size_t length) {
    const size_t padding = how.width > length ? how.width - length : 0;
    if (!how.left)
        out.fill(how.zeros ? u'0' : u' ', padding);
    out.put(text, length);
    if (how.left)
        out.fill(u' ', padding);
}

template <class Unit>
void put_text(format_output& out, const conversion& how, const Unit* text) {
    if (!text) {
        put_text(out, how, u"(null)");
        return;
    }
    const size_t decisive = std::max(how.width, out.decisive_length());
    const size_t limit =
        how.precision < 0 ? decisive : std::min(decisive, static_cast<size_t>(how.precision));
    put_padded(out, how, text, length_up_to(text, limit));
}

// In a wide format the small letters take wide text and the capital ones narrow text, unless a size says otherwise.
bool takes_narrow(const conversion& how) {
    if (how.size == size_prefix::half)
        return true;
    return how.size != size_prefix::wide && (how.letter == u'S' || how.letter == u'C');
}

void put_character(format_output& out, const conversion& how, argument_list& arguments) {
    const int value = arguments.next<int>();
    const WCHAR unit = takes_narrow(how) ? static_cast<unsigned char>(value) : static_cast<WCHAR>(value);
    put_padded(out, how, &unit, 1);
}

void put_conversion(format_output& out, const conversion& how, argument_list& arguments) {
    switch (how.letter) {
    case 0: break;
    case u's':
    case u'S':
        if (takes_narrow(how))
            put_text(out, how, arguments.next<const char*>());
        else
            put_text(out, how, arguments.next<const WCHAR*>());
        break;
    case u'c':
    case u'C': put_character(out, how, arguments); break;
    case u'd':
    case u'i':
    case u'u':
    case u'o':
    case u'x':
    case u'X': put_integer(out, how, arguments); break;
    case u'a':
    case u'A':
    case u'e':
    case u'E':
    case u'f':
    case u'F':
    case u'g':
    case u'G': put_floating(out, how, arguments); break;
    case u'n':
        // Storing through an argument is how formats are attacked; the argument is taken, and that is all.
        arguments.next<void*>();
        break;
    // Z as well. The platform takes a counted text there, but the argument of a message template is always a plain
    // text, and the author of a template must not be able to have it read as anything else.
    default: out.put(how.letter);
    }
}

} // namespace

int _vsnwprintf(WCHAR* out, size_t count, const WCHAR* format, va_list arguments) {
    if (!format || (!out && count > 0))
        return -1;
    argument_list list(arguments);
    format_output output(out, count);
    while (*format && !output.failed()) {
        const WCHAR* end = format;
        while (*end && *end != u'%')
            ++end;
        output.put(format, static_cast<size_t>(end - format));
        if (!*end)
            break;
        conversion how;
        how.letter = end[1];
        // Without flags, a width or a size there is nothing to be parsed.
        const bool is_plain = how.letter == u's' || how.letter == u'd' || how.letter == u'u';
        format = is_plain ? end + 2 : parse_conversion(end + 1, list, how);
        put_conversion(output, how, list);
    }
    return output.finish();
}

int _snwprintf(WCHAR* out, size_t count, const WCHAR* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const int length = _vsnwprintf(out, count, format, arguments);
    va_end(arguments);
    return length;
}

} // namespace platform
