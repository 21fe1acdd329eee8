// UTF-8 and UTF-16: runs of ASCII go a block at a time, everything else character by character.
#include "platform/text/utf8.h"

#include <algorithm>
#include <type_traits>

namespace platform {

namespace {

// Runs of ASCII go in blocks of this many units. The loops over a block are of the plain form, with a fixed count
// and without aliasing, that compilers turn into vector instructions.
constexpr size_t block = 32;

template <class Unit>
bool is_ascii(Unit unit) {
    return static_cast<std::make_unsigned_t<Unit>>(unit) < 0x80;
}

template <class Unit>
bool is_ascii_block(const Unit* text) {
    std::make_unsigned_t<Unit> all = 0;
    for (size_t i = 0; i < block; ++i)
        all |= static_cast<std::make_unsigned_t<Unit>>(text[i]);
    return is_ascii(all);
}

// The length of the ASCII text at the head of another.
template <class Unit>
size_t ascii_run(const Unit* text, size_t count) {
    size_t length = 0;
    while (count - length >= block && is_ascii_block(text + length))
        length += block;
    while (length < count && is_ascii(text[length]))
        ++length;
    return length;
}

// The same, copied unit by unit.
template <class From, class To>
size_t copy_ascii_run(const From* __restrict text, To* __restrict out, size_t count) {
    size_t length = 0;
    for (; count - length >= block && is_ascii_block(text + length); length += block) {
        for (size_t i = 0; i < block; ++i)
            out[length + i] = static_cast<To>(text[length + i]);
    }
    for (; length < count && is_ascii(text[length]); ++length)
        out[length] = static_cast<To>(text[length]);
    return length;
}

size_t encoded_size(char32_t character) {
    return character < 0x80 ? 1 : character < 0x800 ? 2 : character < 0x10000 ? 3 : 4;
}

void encode(char32_t character, size_t length, char* out) {
    static constexpr unsigned char lead_marks[] = {0, 0x00, 0xC0, 0xE0, 0xF0};
    for (size_t i = length; --i > 0; character >>= 6)
        out[i] = static_cast<char>(0x80 | (character & 0x3F));
    out[0] = static_cast<char>(lead_marks[length] | character);
}

struct wide_piece {
    char32_t character;
    size_t length;
};

wide_piece decode_wide(const WCHAR* wide, size_t count) {
    const char32_t unit = wide[0];
    if (!is_high_surrogate(unit))
        return {is_low_surrogate(unit) ? replacement_character : unit, 1};
    if (count < 2 || !is_low_surrogate(wide[1]))
        return {replacement_character, 1};
    return {0x10000 + ((unit & 0x3FF) << 10) + (wide[1] & 0x3FFu), 2};
}

// The span of the byte after a lead byte is narrower than that of the later ones: no overlong forms, no surrogates,
// nothing above U+10FFFF.
struct lead_byte {
    size_t length; // 0: cannot lead
    unsigned char second_first, second_last;
};

lead_byte lead_of(unsigned char byte) {
    if (byte < 0xC2)
        return {0, 0, 0};
    if (byte < 0xE0)
        return {2, 0x80, 0xBF};
    if (byte < 0xF0)
        return {3, static_cast<unsigned char>(byte == 0xE0 ? 0xA0 : 0x80),
                static_cast<unsigned char>(byte == 0xED ? 0x9F : 0xBF)};
    if (byte < 0xF5)
        return {4, static_cast<unsigned char>(byte == 0xF0 ? 0x90 : 0x80),
                static_cast<unsigned char>(byte == 0xF4 ? 0x8F : 0xBF)};
    return {0, 0, 0};
}

inline utf8_piece decode(const char* utf8, size_t count) {
    const auto byte_at = [&](size_t i) { return static_cast<unsigned char>(utf8[i]); };
    const unsigned char first = byte_at(0);
    if (first < 0x80)
        return {first, 1, false};
    if (first >= 0xC2 && first < 0xE0 && count > 1 && (byte_at(1) & 0xC0) == 0x80) // most alphabets
        return {(first & 0x1Fu) << 6 | (byte_at(1) & 0x3Fu), 2, false};
    const lead_byte lead = lead_of(first);
    if (lead.length == 0)
        return {replacement_character, 1, true};
    char32_t character = first & (0x7Fu >> lead.length);
    unsigned char lowest = lead.second_first;
    unsigned char highest = lead.second_last;
    for (size_t i = 1; i < lead.length; ++i) {
        if (i == count || byte_at(i) < lowest || byte_at(i) > highest)
            return {replacement_character, i, true};
        character = character << 6 | (byte_at(i) & 0x3Fu);
        lowest = 0x80;
        highest = 0xBF;
    }
    return {character, lead.length, false};
}

} // namespace

utf8_piece decode_utf8(const char* utf8, size_t count) {
    return decode(utf8, count);
}

size_t utf8_size(const WCHAR* wide, size_t count) {
    size_t size = 0;
    for (size_t at = 0; at < count;) {
        if (is_ascii(wide[at])) {
            const size_t run = ascii_run(wide + at, count - at);
            size += run;
            at += run;
            continue;
        }
        const wide_piece piece = decode_wide(wide + at, count - at);
        size += encoded_size(piece.character);
        at += piece.length;
    }
    return size;
}

size_t utf8_from_wide(const WCHAR* wide, size_t count, char* out, size_t size) {
    size_t written = 0;
    for (size_t at = 0; at < count;) {
        if (written == size)
            return does_not_fit;
        if (is_ascii(wide[at])) {
            const size_t run = copy_ascii_run(wide + at, out + written, std::min(count - at, size - written));
            written += run;
            at += run;
            continue;
        }
        const wide_piece piece = decode_wide(wide + at, count - at);
        const size_t length = encoded_size(piece.character);
        if (size - written < length)
            return does_not_fit;
        encode(piece.character, length, out + written);
        written += length;
        at += piece.length;
    }
    return written;
}

size_t wide_size(const char* utf8, size_t count) {
    size_t size = 0;
    for (size_t at = 0; at < count;) {
        if (is_ascii(utf8[at])) {
            const size_t run = ascii_run(utf8 + at, count - at);
            size += run;
            at += run;
            continue;
        }
        const utf8_piece piece = decode(utf8 + at, count - at);
        size += piece.character >= 0x10000 ? 2 : 1;
        at += piece.length;
    }
    return size;
}

size_t wide_from_utf8(const char* utf8, size_t count, WCHAR* out, size_t size) {
    size_t written = 0;
    for (size_t at = 0; at < count;) {
        if (written == size)
            return does_not_fit;
        if (is_ascii(utf8[at])) {
            const size_t run = copy_ascii_run(utf8 + at, out + written, std::min(count - at, size - written));
            written += run;
            at += run;
            continue;
        }
        const utf8_piece piece = decode(utf8 + at, count - at);
        const bool pair = piece.character >= 0x10000;
        if (size - written < (pair ? 2u : 1u))
            return does_not_fit;
        if (pair) {
            const char32_t offset = piece.character - 0x10000;
            out[written++] = static_cast<WCHAR>(0xD800 | offset >> 10);
            out[written++] = static_cast<WCHAR>(0xDC00 | (offset & 0x3FF));
        } else {
            out[written++] = static_cast<WCHAR>(piece.character);
        }
        at += piece.length;
    }
    return written;
}

std::string utf8_of(wide_view wide) {
    std::string bytes(utf8_size(wide.data(), wide.size()), '\0');
    utf8_from_wide(wide.data(), wide.size(), bytes.data(), bytes.size());
    return bytes;
}

std::u16string wide_from(std::string_view utf8) {
    std::u16string wide(wide_size(utf8.data(), utf8.size()), u'\0');
    wide_from_utf8(utf8.data(), utf8.size(), wide.data(), wide.size());
    return wide;
}

} // namespace platform
