// The environment's character set, found without touching the process's locale. Single-byte sets are two tables,
// filled once; all others go through the host's converter.
#include "platform/text/charset.h"

#include <iconv.h>
#include <langinfo.h>
#include <locale.h>
#include <strings.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <utility>

#include "platform/core/error.h"
#include "platform/core/thread_own.h"
#include "platform/text/utf8.h"

namespace platform {

namespace {

constexpr const char* wide_charset = std::endian::native == std::endian::little ? "UTF-16LE" : "UTF-16BE";
const iconv_t no_converter = reinterpret_cast<iconv_t>(intptr_t{-1});

bool is_usable(const std::string& charset) {
    const iconv_t converter = iconv_open(wide_charset, charset.c_str());
    if (converter == no_converter)
        return false;
    iconv_close(converter);
    return true;
}

// The set named behind the dot of a locale's name, else the one of the host's locale of that name.
std::string charset_of_locale(const std::string& locale) {
    const size_t dot = locale.find('.');
    if (dot != std::string::npos) {
        const size_t end = std::min(locale.find('@', dot), locale.size());
        std::string charset = locale.substr(dot + 1, end - dot - 1);
        if (!charset.empty() && is_usable(charset))
            return charset;
    }
    const locale_t host_locale = newlocale(LC_CTYPE_MASK, locale.c_str(), nullptr);
    if (!host_locale)
        return "UTF-8";
    std::string charset = nl_langinfo_l(CODESET, host_locale);
    freelocale(host_locale);
    return is_usable(charset) ? charset : "UTF-8";
}

std::string find_charset() {
    for (const char* variable : {"LC_ALL", "LC_CTYPE", "LANG"}) {
        const char* value = std::getenv(variable);
        if (!value || !*value)
            continue;
        const std::string_view locale = value;
        if (locale == "C" || locale == "POSIX")
            break;
        return charset_of_locale(std::string(locale));
    }
    return "UTF-8";
}

// Descriptors keep a shift state, so each thread has its own; opening one for each call would cost more than the
// conversion.
class converter {
public:
    ~converter() {
        for (iconv_t descriptor : {to_wide_, from_wide_}) {
            if (descriptor != no_converter)
                iconv_close(descriptor);
        }
    }

    iconv_t to_wide() { return opened(to_wide_, wide_charset, environment_charset().c_str()); }
    iconv_t from_wide() { return opened(from_wide_, environment_charset().c_str(), wide_charset); }

private:
    static iconv_t opened(iconv_t& descriptor, const char* to, const char* from) {
        if (descriptor == no_converter)
            descriptor = iconv_open(to, from);
        if (descriptor == no_converter)
            set_last_error_from_errno();
        else
            iconv(descriptor, nullptr, nullptr, nullptr, nullptr); // back to the initial shift state
        return descriptor;
    }

    iconv_t to_wide_ = no_converter;
    iconv_t from_wide_ = no_converter;
};

// One step of the host's converter, as far as the input or a small output area goes; 0 or errno. A null input writes
// what leads back to the initial shift state.
template <class Unit>
int convert_step(iconv_t descriptor, const char*& in, size_t& in_bytes, bounded_output<Unit>& out) {
    Unit area[128];
    char* from = const_cast<char*>(in);
    char* to = reinterpret_cast<char*>(area);
    size_t to_bytes = sizeof area;
    const bool failed = iconv(descriptor, in ? &from : nullptr, in ? &in_bytes : nullptr, &to, &to_bytes)
                        == static_cast<size_t>(-1);
    const int error = failed ? errno : 0;
    in = from;
    std::for_each(area, area + (sizeof area - to_bytes) / sizeof(Unit), [&](Unit unit) { out.put(unit); });
    return error == E2BIG ? 0 : error;
}

void put_question_mark(iconv_t descriptor, bounded_output<char>& out) {
    const WCHAR mark = u'?';
    const char* in = reinterpret_cast<const char*>(&mark);
    size_t in_bytes = sizeof mark;
    convert_step(descriptor, in, in_bytes, out);
}

// A set of 256 characters, one byte each.
struct single_byte_set {
    bool exists = false;
    std::array<WCHAR, 256> wide_of_byte{};
    std::array<std::pair<WCHAR, unsigned char>, 256> byte_of_wide{}; // ascending
    size_t known = 0;

    single_byte_set();

    // The byte of a character; null when the set lacks it.
    const std::pair<WCHAR, unsigned char>* find(WCHAR unit) const {
        const auto* const end = byte_of_wide.data() + known;
        const auto* const row =
            std::lower_bound(byte_of_wide.data(), end, std::pair(unit, static_cast<unsigned char>(0)));
        return row != end && row->first == unit ? row : nullptr;
    }
};

single_byte_set::single_byte_set() {
    const iconv_t descriptor = iconv_open(wide_charset, environment_charset().c_str());
    if (descriptor == no_converter)
        return;
    exists = true;
    for (unsigned i = 0; i < 256 && exists; ++i) {
        const char byte = static_cast<char>(i);
        const char* in = &byte;
        size_t in_bytes = 1;
        WCHAR units[4] = {};
        bounded_output<WCHAR> out(units, std::size(units));
        const int error = convert_step(descriptor, in, in_bytes, out);
        const bool is_hole = error == EILSEQ;
        exists = is_hole || (error == 0 && out.count() == 1);
        iconv(descriptor, nullptr, nullptr, nullptr, nullptr);
        // Holes among the control codes stand for themselves, as the platform has it; so they survive a round trip.
        const bool control = i >= 0x80 && i < 0xA0;
        wide_of_byte[i] = !is_hole ? units[0] : control ? static_cast<WCHAR>(i) : WCHAR{0xFFFD};
        if (!is_hole || control)
            byte_of_wide[known++] = {wide_of_byte[i], static_cast<unsigned char>(i)};
    }
    iconv_close(descriptor);
    std::sort(byte_of_wide.begin(), byte_of_wide.begin() + known);
}

// What stands in for a character that the set lacks: the letter under the accent, the narrow form of a wide one.
WCHAR best_fit(WCHAR unit) {
    constexpr std::u16string_view from_u0100_on =
        u"AaAaAaCcCcCcCcDdDdEeEeEeEeEeGgGgGgGgHhHhIiIiIiIiIi??JjKk?LlLlLl??LlNnNnNn???OoOoOo??RrRrRr"
        u"SsSsSsSsTtTtTtUuUuUuUuUuUuWwYyYZzZzZz?";
    static_assert(from_u0100_on.size() == 0x80);
    if (unit >= 0x100 && unit < 0x180)
        return from_u0100_on[unit - 0x100];
    return unit >= 0xFF01 && unit <= 0xFF5E ? static_cast<WCHAR>(unit - 0xFF01 + u'!') : u'?';
}

const single_byte_set& environment_set() {
    static const single_byte_set set;
    return set;
}

} // namespace

const std::string& environment_charset() {
    static const std::string& charset = *new std::string(find_charset()); // for exit handlers as well
    return charset;
}

bool environment_is_utf8() {
    static const bool is_utf8 = strcasecmp(environment_charset().c_str(), "UTF-8") == 0
                                || strcasecmp(environment_charset().c_str(), "utf8") == 0;
    return is_utf8;
}

bool charset_from_wide(const WCHAR* wide, size_t count, bounded_output<char>& out) {
    if (const single_byte_set& set = environment_set(); set.exists) {
        for (const WCHAR* at = wide; at != wide + count; ++at) {
            const auto* row = set.find(*at);
            if (!row)
                row = set.find(best_fit(*at));
            out.put(row ? static_cast<char>(row->second) : '?');
        }
        return true;
    }
    const iconv_t descriptor = thread_own<converter>::get().from_wide();
    if (descriptor == no_converter)
        return false;
    const char* in = reinterpret_cast<const char*>(wide);
    size_t in_bytes = count * sizeof(WCHAR);
    while (in_bytes > 0) {
        if (convert_step(descriptor, in, in_bytes, out) == 0)
            continue;
        WCHAR units[2] = {};
        std::memcpy(units, in, std::min(in_bytes, sizeof units));
        const size_t skipped = is_high_surrogate(units[0]) && is_low_surrogate(units[1]) ? 2 : 1;
        for (size_t i = 0; i < skipped; ++i)
            put_question_mark(descriptor, out);
        in += skipped * sizeof(WCHAR);
        in_bytes -= skipped * sizeof(WCHAR);
    }
    in = nullptr;
    convert_step(descriptor, in, in_bytes, out);
    return true;
}

bool charset_to_wide(const char* narrow, size_t count, bounded_output<WCHAR>& out) {
    if (const single_byte_set& set = environment_set(); set.exists) {
        for (const char* at = narrow; at != narrow + count; ++at)
            out.put(set.wide_of_byte[static_cast<unsigned char>(*at)]);
        return true;
    }
    const iconv_t descriptor = thread_own<converter>::get().to_wide();
    if (descriptor == no_converter)
        return false;
    const char* in = narrow;
    size_t in_bytes = count;
    while (in_bytes > 0) {
        const int error = convert_step(descriptor, in, in_bytes, out);
        if (error == 0)
            continue;
        out.put(replacement_character);
        const size_t skipped = error == EINVAL ? in_bytes : 1; // the text ends inside a character
        in += skipped;
        in_bytes -= skipped;
    }
    in = nullptr;
    convert_step(descriptor, in, in_bytes, out); // a set that composes characters may hold the last one back
    return true;
}

} // namespace platform
