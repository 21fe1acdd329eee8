// The environment's character set, found without touching the process's locale. Single-byte sets are two tables,
// filled once; all others go through the host's converter.
#include "platform/text/charset.h"

#include <iconv.h>
#include <langinfo.h>
#include <locale.h>
#include <strings.h>
#include <sys/mman.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <bit>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <string_view>
#include <utility>

#include "platform/core/descriptor.h"
#include "platform/core/error.h"
#include "platform/core/thread_own.h"
#include "platform/text/utf8.h"

namespace platform {

namespace {

constexpr const char* wide_charset = std::endian::native == std::endian::little ? "UTF-16LE" : "UTF-16BE";
constexpr const char* utf8_charset = "UTF-8";
const iconv_t no_converter = reinterpret_cast<iconv_t>(intptr_t{-1});

constexpr DWORD unknown_charset = ERROR_INVALID_PARAMETER;

// 0, or the code of a shortage that would keep a converter from being found: a search takes one descriptor, and memory
// for a module.
DWORD shortage() {
    const descriptor probe(open("/", O_PATH | O_CLOEXEC));
    if (!probe)
        return code_of_errno(errno);
    constexpr size_t module_bytes = 1 << 20;
    void* const memory =
        mmap(nullptr, module_bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED)
        return code_of_errno(errno);
    munmap(memory, module_bytes);
    return ERROR_SUCCESS;
}

// A converter of the host. It keeps a shift state, so that each thread has its own.
class host_converter {
public:
    host_converter() = default;
    ~host_converter() {
        if (is_open())
            iconv_close(descriptor_);
    }
    host_converter(const host_converter&) = delete;
    host_converter& operator=(const host_converter&) = delete;

    // iconv_open gives EINVAL for a set that the host does not know, but also for a module that it could not load. And
    // when its first attempt to read the table of sets has failed, it never reads that table again. So there must be no
    // shortage before the call, and EINVAL counts only when there is none after it.
    DWORD open(const char* to, const char* from) {
        if (const DWORD code = shortage())
            return code;
        descriptor_ = iconv_open(to, from);
        if (!is_open() && errno == EINVAL) // or a shortage has come and gone
            descriptor_ = iconv_open(to, from);
        if (is_open())
            return ERROR_SUCCESS;
        const DWORD code = code_of_errno(errno);
        const DWORD lack = shortage();
        return lack ? lack : code;
    }
    bool is_open() const { return descriptor_ != no_converter; }

    // The converter in its initial shift state.
    iconv_t fresh() const {
        iconv(descriptor_, nullptr, nullptr, nullptr, nullptr);
        return descriptor_;
    }

private:
    iconv_t descriptor_ = no_converter;
};

bool names_utf8(const std::string& charset) {
    return strcasecmp(charset.c_str(), utf8_charset) == 0 || strcasecmp(charset.c_str(), "utf8") == 0;
}

// The locale that the environment names; empty for none, "C" and "POSIX".
std::string environment_locale() {
    for (const char* variable : {"LC_ALL", "LC_CTYPE", "LANG"}) {
        const char* value = std::getenv(variable);
        if (value && *value)
            return std::strcmp(value, "C") == 0 || std::strcmp(value, "POSIX") == 0 ? "" : value;
    }
    return "";
}

// The set named behind the dot of a locale's name; empty for none.
std::string charset_in(const std::string& locale) {
    const size_t dot = locale.find('.');
    if (dot == std::string::npos)
        return "";
    const size_t end = std::min(locale.find('@', dot), locale.size());
    return locale.substr(dot + 1, end - dot - 1);
}

// Asks the host for the set of its locale of that name; UTF-8 when it has no such locale. 0, or the
// code of a shortage.
DWORD ask_for_charset(const std::string& locale, std::string& charset) {
    if (const DWORD code = shortage())
        return code;
    const locale_t host_locale = newlocale(LC_CTYPE_MASK, locale.c_str(), nullptr);
    charset = host_locale ? nl_langinfo_l(CODESET, host_locale) : utf8_charset;
    if (host_locale)
        freelocale(host_locale);
    return host_locale ? ERROR_SUCCESS : shortage();
}

// Finds the environment's set, and opens the converter from it unless it is UTF-8. An unknown set counts as UTF-8. 0,
// or the code of a shortage.
DWORD find_charset(std::string& charset, host_converter& to_wide) {
    charset = utf8_charset;
    const std::string locale = environment_locale();
    std::string named = charset_in(locale);
    if (locale.empty() || names_utf8(named))
        return ERROR_SUCCESS;
    DWORD code = named.empty() ? unknown_charset : to_wide.open(wide_charset, named.c_str());
    if (code == unknown_charset) {
        if (const DWORD lack = ask_for_charset(locale, named))
            return lack;
        if (names_utf8(named))
            return ERROR_SUCCESS;
        code = to_wide.open(wide_charset, named.c_str());
    }
    if (code == unknown_charset)
        return ERROR_SUCCESS;
    charset = named;
    return code;
}

// One step of the host's converter, as far as the input or a small output area goes; 0 or errno. A null input writes
// the bytes that lead back to the initial shift state.
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
    using row = std::pair<WCHAR, unsigned char>;

    bool exists = false;
    std::array<WCHAR, 256> wide_of_byte{};
    std::array<row, 256> byte_of_wide{}; // ascending
    size_t known = 0;

    explicit single_byte_set(const host_converter& to_wide);

    // The byte of a character; null when the set lacks it.
    const row* find(WCHAR unit) const {
        const row* const end = byte_of_wide.data() + known;
        const row* const found =
            std::lower_bound(byte_of_wide.data(), end, row(unit, static_cast<unsigned char>(0)));
        return found != end && found->first == unit ? found : nullptr;
    }
};

// Asks the converter about every byte.
single_byte_set::single_byte_set(const host_converter& to_wide) : exists(to_wide.is_open()) {
    for (unsigned i = 0; i < 256 && exists; ++i) {
        const char byte = static_cast<char>(i);
        const char* in = &byte;
        size_t in_bytes = 1;
        WCHAR units[4] = {};
        bounded_output<WCHAR> out(units, std::size(units));
        const int error = convert_step(to_wide.fresh(), in, in_bytes, out);
        const bool is_hole = error == EILSEQ;
        exists = is_hole || (error == 0 && out.count() == 1);
        // Holes among the control codes stand for themselves, as the platform has it; so they survive a round trip.
        const bool control = i >= 0x80 && i < 0xA0;
        wide_of_byte[i] = !is_hole ? units[0] : control ? static_cast<WCHAR>(i) : WCHAR{0xFFFD};
        if (!is_hole || control)
            byte_of_wide[known++] = {wide_of_byte[i], static_cast<unsigned char>(i)};
    }
    std::sort(byte_of_wide.begin(), byte_of_wide.begin() + known);
}

// The stand-in for a character that the set lacks: the letter under the accent, the narrow form of a wide one.
WCHAR best_fit(WCHAR unit) {
    constexpr std::u16string_view from_u0100_on =
        u"AaAaAaCcCcCcCcDdDdEeEeEeEeEeGgGgGgGgHhHhIiIiIiIiIi??JjKk?LlLlLl??LlNnNnNn???OoOoOo??RrRrRr"
        u"SsSsSsSsTtTtTtUuUuUuUuUuUuWwYyYZzZzZz?";
    static_assert(from_u0100_on.size() == 0x80);
    if (unit >= 0x100 && unit < 0x180)
        return from_u0100_on[unit - 0x100];
    return unit >= 0xFF01 && unit <= 0xFF5E ? static_cast<WCHAR>(unit - 0xFF01 + u'!') : u'?';
}

struct thread_converters {
    host_converter to_wide, from_wide;
};

// Opens the thread's converter at its first use: one for each call would cost more than the conversion. no_converter,
// with the code, when the host cannot open it.
iconv_t ready(host_converter& converter, const char* to, const char* from) {
    if (!converter.is_open()) {
        if (const DWORD code = converter.open(to, from))
            return fail(code, no_converter);
    }
    return converter.fresh();
}

} // namespace

struct charset {
    std::string name;
    bool is_utf8;
    single_byte_set bytes;
};

const charset* environment_charset() {
    // Never released: exit handlers convert as well.
    static constinit std::atomic<const charset*> settled = nullptr;
    if (const charset* known = settled.load(std::memory_order_acquire))
        return known;
    std::string name;
    host_converter to_wide;
    if (const DWORD code = find_charset(name, to_wide))
        return fail<const charset*>(code);
    const auto* found = new charset{name, names_utf8(name), single_byte_set(to_wide)};
    const charset* earlier = nullptr;
    if (settled.compare_exchange_strong(earlier, found, std::memory_order_acq_rel))
        return found;
    delete found; // another thread was first
    return earlier;
}

bool is_utf8(const charset& set) {
    return set.is_utf8;
}

bool charset_from_wide(const charset& to, const WCHAR* wide, size_t count, bounded_output<char>& out) {
    if (const single_byte_set& set = to.bytes; set.exists) {
        for (const WCHAR* at = wide; at != wide + count; ++at) {
            const auto* row = set.find(*at);
            if (!row)
                row = set.find(best_fit(*at));
            out.put(row ? static_cast<char>(row->second) : '?');
        }
        return true;
    }
    const iconv_t descriptor =
        ready(thread_own<thread_converters>::get().from_wide, to.name.c_str(), wide_charset);
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

bool charset_to_wide(const charset& from, const char* narrow, size_t count, bounded_output<WCHAR>& out) {
    if (const single_byte_set& set = from.bytes; set.exists) {
        for (const char* at = narrow; at != narrow + count; ++at)
            out.put(set.wide_of_byte[static_cast<unsigned char>(*at)]);
        return true;
    }
    const iconv_t descriptor =
        ready(thread_own<thread_converters>::get().to_wide, wide_charset, from.name.c_str());
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
    // A set that composes characters may hold the last one back.
    in = nullptr;
    convert_step(descriptor, in, in_bytes, out);
    return true;
}

} // namespace platform
