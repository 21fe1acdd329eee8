// UTF-8 and UTF-16: runs of ASCII go a block at a time, everything else character by character.
#include "platform/utf8.h"

#include <cstring>

namespace platform {

namespace {

// Large enough to fill vector registers, small enough that short texts meet it.
constexpr size_t block = 16;

// Fixed-size loads keep the loops below free of aliasing questions, so that they become vector instructions.
bool is_ascii_block(const char* utf8) {
    uint64_t words[block / 8];
    std::memcpy(words, utf8, block);
    return ((words[0] | words[1]) & 0x8080808080808080u) == 0;
}

bool is_ascii_block(const WCHAR* wide) {
    uint64_t words[block / 4];
    std::memcpy(words, wide, block * sizeof(WCHAR));
    return ((words[0] | words[1] | words[2] | words[3]) & 0xFF80FF80FF80FF80u) == 0;
}

void widen_block(const char* utf8, WCHAR* out) {
    unsigned char bytes[block];
    WCHAR units[block];
    std::memcpy(bytes, utf8, block);
    for (size_t i = 0; i < block; ++i)
        units[i] = bytes[i];
    std::memcpy(out, units, sizeof units);
}

void narrow_block(const WCHAR* wide, char* out) {
    WCHAR units[block];
    unsigned char bytes[block];
    std::memcpy(units, wide, sizeof units);
    for (size_t i = 0; i < block; ++i)
        bytes[i] = static_cast<unsigned char>(units[i]);
    std::memcpy(out, bytes, block);
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

} // namespace

utf8_piece decode_utf8(const char* utf8, size_t count) {
    const auto byte_at = [&](size_t i) { return static_cast<unsigned char>(utf8[i]); };
    const unsigned char first = byte_at(0);
    if (first < 0x80)
        return {first, 1, false};
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

size_t utf8_size(const WCHAR* wide, size_t count) {
    size_t size = 0;
    for (size_t at = 0; at < count;) {
        if (count - at >= block && is_ascii_block(wide + at)) {
            size += block;
            at += block;
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
        if (count - at >= block && size - written >= block && is_ascii_block(wide + at)) {
            narrow_block(wide + at, out + written);
            written += block;
            at += block;
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
        if (count - at >= block && is_ascii_block(utf8 + at)) {
            size += block;
            at += block;
            continue;
        }
        const utf8_piece piece = decode_utf8(utf8 + at, count - at);
        size += piece.character >= 0x10000 ? 2 : 1;
        at += piece.length;
    }
    return size;
}

size_t wide_from_utf8(const char* utf8, size_t count, WCHAR* out, size_t size) {
    size_t written = 0;
    for (size_t at = 0; at < count;) {
        if (count - at >= block && size - written >= block && is_ascii_block(utf8 + at)) {
            widen_block(utf8 + at, out + written);
            written += block;
            at += block;
            continue;
        }
        const utf8_piece piece = decode_utf8(utf8 + at, count - at);
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

} // namespace platform
