// UTF-8 and UTF-16. Registers of 64 bytes take all text that is well formed. Where the machine has none, ASCII goes a
// block at a time, and other text in short runs, each of which is sure to fit into the area.
#include "platform/text/utf8.h"

#include <algorithm>
#include <cstring>
#include <type_traits>

#include "platform/text/registers.h"
#include "platform/text/utf8_registers.h"

namespace platform {

namespace {

// Runs of ASCII go in blocks of this many units. The loops over a block have a fixed count and no aliasing, so that
// compilers turn them into vector instructions.
constexpr size_t block = 32;

template <class Unit>
bool is_ascii(Unit unit) {
    return static_cast<std::make_unsigned_t<Unit>>(unit) < 0x80;
}

template <class Unit>
bool is_ascii_block(const Unit* text) {
    constexpr uint64_t beyond_ascii = sizeof(Unit) == 1 ? 0x8080808080808080 : 0xFF80FF80FF80FF80;
    uint64_t words[block * sizeof(Unit) / sizeof(uint64_t)];
    std::memcpy(words, text, sizeof words);
    uint64_t all = 0;
    for (const uint64_t word : words)
        all |= word;
    return (all & beyond_ascii) == 0;
}

// Copies the ASCII text at the head of another in whole blocks; returns its length.
template <class From, class To>
size_t copy_ascii_blocks(const From* __restrict text, To* __restrict out, size_t count) {
    size_t length = 0;
    for (; count - length >= block && is_ascii_block(text + length); length += block) {
        for (size_t i = 0; i < block; ++i)
            out[length + i] = static_cast<To>(text[length + i]);
    }
    return length;
}

// The most units or bytes that are converted between two looks at the room that is left.
constexpr ptrdiff_t run = 32;

size_t encoded_size(char32_t character) {
    return character < 0x80 ? 1 : character < 0x800 ? 2 : character < 0x10000 ? 3 : 4;
}

char continuation(char32_t bits) {
    return static_cast<char>(0x80 | (bits & 0x3F));
}

// Writes a character, and returns what follows it.
inline char* put_utf8(char32_t character, char* out) {
    if (character < 0x80) {
        out[0] = static_cast<char>(character);
        return out + 1;
    }
    if (character < 0x800) {
        out[0] = static_cast<char>(0xC0 | character >> 6);
        out[1] = continuation(character);
        return out + 2;
    }
    if (character < 0x10000) {
        out[0] = static_cast<char>(0xE0 | character >> 12);
        out[1] = continuation(character >> 6);
        out[2] = continuation(character);
        return out + 3;
    }
    out[0] = static_cast<char>(0xF0 | character >> 18);
    out[1] = continuation(character >> 12);
    out[2] = continuation(character >> 6);
    out[3] = continuation(character);
    return out + 4;
}

WCHAR* put_wide(char32_t character, WCHAR* out) {
    if (character < 0x10000) {
        *out = static_cast<WCHAR>(character);
        return out + 1;
    }
    out[0] = static_cast<WCHAR>(0xD7C0 + (character >> 10));
    out[1] = static_cast<WCHAR>(0xDC00 | (character & 0x3FF));
    return out + 2;
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
    size_t size = count, at = 0;
    for (; count - at > block; at += block) {
        uint16_t longer = 0, pairs = 0; // a pair's four bytes are counted as six
        for (size_t i = 0; i < block; ++i) {
            const uint16_t unit = wide[at + i];
            longer = static_cast<uint16_t>(longer + (unit >= 0x80) + (unit >= 0x800));
        }
        for (size_t i = 0; i < block; ++i) {
            const uint16_t high = wide[at + i] & 0xFC00, low = wide[at + i + 1] & 0xFC00;
            pairs = static_cast<uint16_t>(pairs + ((high == 0xD800) & (low == 0xDC00)));
        }
        size += longer - 2u * pairs;
    }
    while (at < count) {
        const wide_piece piece = decode_wide(wide + at, count - at);
        size += encoded_size(piece.character) - piece.length;
        at += piece.length;
    }
    return size;
}

namespace {

// Copies whole blocks of ASCII, and moves both places behind them. False when there are none.
template <class From, class To>
bool move_over_ascii(const conversion_state<From, To>& state, const From*& at, To*& out) {
    if (!is_ascii(*at))
        return false;
    const auto most = static_cast<size_t>(std::min(state.end - at, state.out_end - out));
    const size_t copied = copy_ascii_blocks(at, out, most);
    at += copied;
    out += copied;
    return copied != 0;
}

// Converts runs that are sure to fit into the area: four bytes a unit hold every character, also one whose second unit
// lies behind the run.
void narrow_blocks(narrowing& state) {
    const WCHAR* at = state.at;
    char* out = state.out;
    while (const ptrdiff_t length = std::min({run, state.end - at, (state.out_end - out) / 4})) {
        if (move_over_ascii(state, at, out))
            continue;
        const WCHAR* const stop = at + length;
        if (registers.of_32_bytes && !is_high_surrogate(*at))
            out = narrow_by_eights(at, stop, out);
        while (at < stop) {
            const char32_t unit = *at;
            if (unit < 0xD800 || unit >= 0xE000) {
                out = put_utf8(unit, out);
                ++at;
                continue;
            }
            const wide_piece piece = decode_wide(at, static_cast<size_t>(state.end - at));
            out = put_utf8(piece.character, out);
            at += piece.length;
        }
    }
    state.at = at;
    state.out = out;
}

bool narrow_one(narrowing& state) {
    const wide_piece piece = decode_wide(state.at, static_cast<size_t>(state.end - state.at));
    if (static_cast<size_t>(state.out_end - state.out) < encoded_size(piece.character))
        return false;
    state.out = put_utf8(piece.character, state.out);
    state.at += piece.length;
    return true;
}

bool continues(char byte) {
    return (byte & 0xC0) == 0x80;
}

// Converts as long as the area has room for the longest result of the next run.
void widen_blocks(widening& state) {
    const char* at = state.at;
    WCHAR* out = state.out;
    while (state.end - at >= run + 4 && state.out_end - out >= run + 4) {
        if (move_over_ascii(state, at, out))
            continue;
        const char* const stop = at + run;
        while (at < stop) {
            const auto first = static_cast<unsigned char>(*at);
            if (first < 0x80) {
                *out++ = first;
                ++at;
            } else if (first >= 0xC2 && first < 0xE0 && continues(at[1])) {
                *out++ = static_cast<WCHAR>((first & 0x1F) << 6 | (at[1] & 0x3F));
                at += 2;
            } else if ((first & 0xF0) == 0xE0 && continues(at[1]) && continues(at[2])) {
                const char32_t unit = (first & 0x0Fu) << 12 | (at[1] & 0x3Fu) << 6 | (at[2] & 0x3Fu);
                if (unit < 0x800 || (unit & 0xF800) == 0xD800)
                    break;
                *out++ = static_cast<WCHAR>(unit);
                at += 3;
            } else if ((first & 0xF8) == 0xF0 && continues(at[1]) && continues(at[2]) && continues(at[3])) {
                const char32_t upper = (first & 0x07u) << 18 | (at[1] & 0x3Fu) << 12;
                const char32_t character = upper | (at[2] & 0x3Fu) << 6 | (at[3] & 0x3Fu);
                if (character < 0x10000 || character > 0x10FFFF)
                    break;
                out = put_wide(character, out);
                at += 4;
            } else {
                break;
            }
        }
        if (at < stop) // a malformed character comes next
            break;
    }
    state.at = at;
    state.out = out;
}

bool widen_one(widening& state) {
    const utf8_piece piece = decode(state.at, static_cast<size_t>(state.end - state.at));
    if (state.out_end - state.out < (piece.character >= 0x10000 ? 2 : 1))
        return false;
    state.out = put_wide(piece.character, state.out);
    state.at += piece.length;
    return true;
}

} // namespace

size_t utf8_from_wide(const WCHAR* wide, size_t count, char* out, size_t size) {
    narrowing state{wide, wide + count, out, out + size};
    while (state.at != state.end) {
        registers.of_64_bytes ? narrow_in_registers(state) : narrow_blocks(state);
        if (state.at != state.end && !narrow_one(state))
            return does_not_fit;
    }
    return static_cast<size_t>(state.out - out);
}

size_t wide_size(const char* utf8, size_t count) {
    size_t size = 0;
    for (size_t at = 0; at < count;) {
        if (count - at >= block && is_ascii_block(utf8 + at)) {
            size += block;
            at += block;
            continue;
        }
        const utf8_piece piece = decode(utf8 + at, count - at);
        size += piece.character >= 0x10000 ? 2 : 1;
        at += piece.length;
    }
    return size;
}

size_t wide_from_utf8(const char* utf8, size_t count, WCHAR* out, size_t size) {
    widening state{utf8, utf8 + count, out, out + size};
    while (state.at != state.end) {
        registers.of_64_bytes ? widen_in_registers(state) : widen_blocks(state);
        if (state.at != state.end && !widen_one(state))
            return does_not_fit;
    }
    return static_cast<size_t>(state.out - out);
}

std::string utf8_of(wide_view wide) {
    std::string bytes(utf8_size(wide.data(), wide.size()), '\0');
    utf8_from_wide(wide.data(), wide.size(), bytes.data(), bytes.size());
    return bytes;
}

std::u16string wide_from(std::string_view utf8) {
    std::u16string wide(utf8.size(), u'\0'); // no character has more units than bytes
    wide.resize(wide_from_utf8(utf8.data(), utf8.size(), wide.data(), wide.size()));
    return wide;
}

} // namespace platform
