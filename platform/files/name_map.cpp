// Names of files, from the host's bytes to wide text and back.
#include "platform/files/name_map.h"

#include "platform/text/case_fold.h"
#include "platform/text/utf8.h"

namespace platform {

namespace {

constexpr char32_t escaped_byte = 0xDC00;
constexpr char32_t escaped_character = 0xF000;

// A character of ASCII that the platform forbids in names.
bool is_forbidden(char32_t character) {
    return character < 0x80 && !plain_units[character];
}

bool is_escaped_byte(char32_t unit) {
    return unit >= escaped_byte + 0x80 && unit <= escaped_byte + 0xFF;
}

bool is_escaped_character(char32_t unit) {
    // A slash and a zero byte are in no name of the host, so nothing stands for them.
    return unit > escaped_character && unit < escaped_character + 0x80 && unit != escaped_character + '/'
           && is_forbidden(unit - escaped_character);
}

void append_utf8(char32_t character, std::string& out) {
    if (character < 0x800) {
        out += static_cast<char>(0xC0 | character >> 6);
    } else {
        if (character < 0x10000) {
            out += static_cast<char>(0xE0 | character >> 12);
        } else {
            out += static_cast<char>(0xF0 | character >> 18);
            out += static_cast<char>(0x80 | (character >> 12 & 0x3F));
        }
        out += static_cast<char>(0x80 | (character >> 6 & 0x3F));
    }
    out += static_cast<char>(0x80 | (character & 0x3F));
}

// Adds the host's bytes for the unit at `at`, and moves `at` past it.
bool append_beyond_ascii(wide_view name, size_t& at, std::string& out, bool& has_escaped_bytes) {
    const char32_t unit = name[at++];
    if (is_high_surrogate(unit)) {
        if (at == name.size() || !is_low_surrogate(name[at]))
            return false;
        append_utf8(0x10000 + ((unit & 0x3FF) << 10) + (name[at++] & 0x3FFu), out);
    } else if (is_low_surrogate(unit)) {
        if (!is_escaped_byte(unit))
            return false;
        out += static_cast<char>(unit - escaped_byte);
        has_escaped_bytes = true;
    } else if (is_escaped_character(unit)) {
        out += static_cast<char>(unit - escaped_character);
    } else {
        append_utf8(unit, out);
    }
    return true;
}

// Adds the run of plain characters that begins at `at`, and moves `at` past it.
void append_plain(wide_view name, size_t& at, std::string& out) {
    const size_t start = at;
    while (at < name.size() && is_plain_unit(name[at]))
        ++at;
    out.resize(out.size() + (at - start));
    char* end = out.data() + out.size();
    for (size_t i = at; i > start; --i)
        *--end = static_cast<char>(name[i - 1]);
}

bool append_units(wide_view name, std::string& out, bool& has_escaped_bytes) {
    for (size_t at = 0; at < name.size();) {
        append_plain(name, at, out);
        if (at < name.size() && (name[at] < 0x80 || !append_beyond_ascii(name, at, out, has_escaped_bytes)))
            return false;
    }
    return true;
}

} // namespace

size_t wide_name(std::string_view host, WCHAR* out) {
    WCHAR* const start = out;
    while (!host.empty()) {
        const auto byte = static_cast<unsigned char>(host[0]);
        if (byte < 0x80) {
            *out++ = static_cast<WCHAR>(is_forbidden(byte) ? escaped_character + byte : byte);
            host.remove_prefix(1);
            continue;
        }
        const utf8_piece piece = decode_utf8(host.data(), host.size());
        if (piece.malformed || is_escaped_character(piece.character)) {
            for (size_t i = 0; i < piece.length; ++i)
                *out++ = static_cast<WCHAR>(escaped_byte + static_cast<unsigned char>(host[i]));
        } else if (piece.character >= 0x10000) {
            *out++ = static_cast<WCHAR>(0xD7C0 + (piece.character >> 10));
            *out++ = static_cast<WCHAR>(escaped_byte + (piece.character & 0x3FF));
        } else {
            *out++ = static_cast<WCHAR>(piece.character);
        }
        host.remove_prefix(piece.length);
    }
    return static_cast<size_t>(out - start);
}

void append_wide_name(std::string_view host, std::u16string& out) {
    const size_t before = out.size();
    out.resize(before + host.size());
    out.resize(before + wide_name(host, out.data() + before));
}

bool append_host_name(wide_view name, std::string& out) {
    const size_t before = out.size();
    bool has_escaped_bytes = false;
    bool good = append_units(name, out, has_escaped_bytes);
    if (good && has_escaped_bytes) {
        std::u16string back;
        append_wide_name(std::string_view(out).substr(before), back);
        good = back == name;
    }
    if (!good)
        out.resize(before);
    return good;
}

char32_t take_character(std::string_view& host) {
    const auto byte = static_cast<unsigned char>(host[0]);
    if (byte < 0x80) {
        host.remove_prefix(1);
        return byte;
    }
    const utf8_piece piece = decode_utf8(host.data(), host.size());
    host.remove_prefix(piece.malformed ? 1 : piece.length);
    return piece.malformed ? escaped_byte + byte : piece.character;
}

bool same_name(std::string_view host, std::string_view other) {
    while (!host.empty() && !other.empty())
        if (fold_case(take_character(host)) != fold_case(take_character(other)))
            return false;
    return host.empty() && other.empty();
}

} // namespace platform
