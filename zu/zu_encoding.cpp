// Binary-to-text encodings: fields of bits, text over any alphabet, base64, base32 and hexadecimal.
#include <algorithm>
#include <array>

#include "zu/zu_support.h"

namespace {

constexpr uint32_t success = 0;
constexpr uint32_t bad_character = 1;
constexpr uint32_t no_room = 2;   // output area too small
constexpr uint32_t odd_count = 2; // the last hexadecimal digit has no second one
constexpr uint32_t no_symbol = 0xFFFFFFFF;

constexpr uint32_t low_bits(uint32_t count) {
    return (1u << count) - 1;
}

// ZU_get_bits and ZU_set_bits with a 64-bit offset, which reaches the last bit of 4 GiB.
uint32_t read_field(const uint8_t* bytes, uint32_t byte_count, uint64_t offset, uint32_t count) {
    uint32_t value = 0;
    uint64_t at = offset / 8;
    uint32_t bit = offset % 8;
    for (uint32_t done = 0; done < count && at < byte_count; ++at, bit = 0) {
        const uint32_t part = std::min(8 - bit, count - done);
        value |= (uint32_t{bytes[at]} >> bit & low_bits(part)) << done;
        done += part;
    }
    return value;
}

void write_field(uint8_t* bytes, uint32_t byte_count, uint64_t offset, uint32_t count, uint32_t value) {
    uint64_t at = offset / 8;
    uint32_t bit = offset % 8;
    for (uint32_t done = 0; done < count && at < byte_count; ++at, bit = 0) {
        const uint32_t part = std::min(8 - bit, count - done);
        const uint32_t mask = low_bits(part) << bit;
        bytes[at] = static_cast<uint8_t>((bytes[at] & ~mask) | ((value >> done << bit) & mask));
        done += part;
    }
}

// Characters that the bytes need, with the terminator. If the count does not fit the result, the caller has made an
// error: the largest count is asked for then, which no area holds.
uint32_t text_size(uint32_t bits, uint32_t byte_count) {
    const uint64_t symbols = (uint64_t{byte_count} * 8 + bits - 1) / bits;
    return static_cast<uint32_t>(std::min<uint64_t>(symbols + 1, 0xFFFFFFFF));
}

// Writes the symbols from number `first` on, and the terminator.
void encode_from(uint32_t first, uint32_t symbols, const ZU_wchar* alphabet, uint32_t bits,
                 const uint8_t* bytes, uint32_t byte_count, ZU_wchar* text) {
    for (uint32_t i = first; i < symbols; ++i)
        text[i] = alphabet[read_field(bytes, byte_count, uint64_t{i} * bits, bits)];
    text[symbols] = 0;
}

// Reads the symbols from number `first` on; false at a character outside the alphabet.
template <class F>
bool decode_from(uint32_t first, uint32_t symbols, F&& decode, uint32_t bits, const ZU_wchar* text,
                 uint8_t* bytes, uint32_t byte_count) {
    for (uint32_t i = first; i < symbols; ++i) {
        const uint32_t value = decode(text[i]);
        if (value == no_symbol)
            return false;
        write_field(bytes, byte_count, uint64_t{i} * bits, bits, value);
    }
    return true;
}

// ---- The built-in alphabets: the same text, a block at a time ----
//
// A block has as many bytes as a symbol has bits, which makes exactly eight symbols. The functions above take the rest
// that fills no block, and a block with a character outside the alphabet.

constexpr uint32_t block_symbols = 8;
constexpr uint32_t not_in_alphabet = 1u << 31;

struct pair {
    ZU_wchar first, second;
};

template <uint32_t Bits>
struct coder {
    static constexpr uint32_t symbol_count = 1u << Bits;

    const ZU_wchar* alphabet;
    std::array<pair, symbol_count * symbol_count> pairs{}; // the characters of two symbols at once
    // shifted_values[place][character]: the character's value, shifted to its place among four.
    std::array<std::array<uint32_t, 128>, 4> shifted_values{};

    // The first of two symbols has the lower bits, or with high_first the upper ones.
    constexpr explicit coder(const ZU_wchar* text, bool high_first = false) : alphabet(text) {
        for (uint32_t i = 0; i < pairs.size(); ++i) {
            const ZU_wchar low = text[i % symbol_count], high = text[i / symbol_count];
            pairs[i] = high_first ? pair{high, low} : pair{low, high};
        }
        for (uint32_t place = 0; place < 4; ++place) {
            shifted_values[place].fill(not_in_alphabet);
            for (uint32_t i = 0; i < symbol_count; ++i)
                shifted_values[place][text[i]] = i << Bits * (high_first ? place ^ 1 : place);
        }
    }

    // Makes a second character stand for the symbol of the first.
    constexpr void add(ZU_wchar character, ZU_wchar other) {
        for (auto& values : shifted_values)
            values[other] = values[character];
    }

    // The value of two characters below 128; not_in_alphabet is set in it if one of them has no value.
    uint32_t value_of_pair(const ZU_wchar* text) const {
        return shifted_values[0][text[0]] | shifted_values[1][text[1]];
    }
    uint32_t value_of_four(const ZU_wchar* text) const {
        return value_of_pair(text) | shifted_values[2][text[2]] | shifted_values[3][text[3]];
    }
};

constexpr coder<6> base64(ZU_W("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/"));
constexpr coder<5> base32(ZU_W("abcdefghijklmnopqrstuvwxyz012345"));
constexpr coder<4> hex = [] {
    coder<4> digits(ZU_W("0123456789ABCDEF"), true);
    for (ZU_wchar letter = 'A'; letter <= 'F'; ++letter)
        digits.add(letter, letter - 'A' + 'a');
    return digits;
}();

bool below_128(const ZU_wchar* eight_characters) {
    uint64_t fours[2];
    static_assert(sizeof fours == block_symbols * sizeof(ZU_wchar));
    std::memcpy(fours, eight_characters, sizeof fours);
    return ((fours[0] | fours[1]) & 0xFF80FF80FF80FF80) == 0;
}

// The loops over a block are unrolled: then the compiler reads and writes several bytes at once, which takes a third of
// the time.
template <uint32_t Bits>
void encode_blocks(const coder<Bits>& coder, const uint8_t* bytes, uint32_t blocks, ZU_wchar* text) {
    for (; blocks != 0; --blocks, bytes += Bits, text += block_symbols) {
        uint64_t block = 0;
#pragma GCC unroll 8
        for (uint32_t i = 0; i < Bits; ++i)
            block |= uint64_t{bytes[i]} << 8 * i;
#pragma GCC unroll 4
        for (uint32_t i = 0; i < block_symbols / 2; ++i)
            std::memcpy(text + 2 * i, &coder.pairs[block >> 2 * Bits * i & low_bits(2 * Bits)], sizeof(pair));
    }
}

// Decodes up to the first block that holds a character outside the alphabet; returns the count of decoded blocks.
template <uint32_t Bits>
uint32_t decode_blocks(const coder<Bits>& coder, const ZU_wchar* text, uint32_t blocks, uint8_t* bytes) {
    uint32_t done = 0;
    for (; done < blocks && below_128(text); ++done, bytes += Bits, text += block_symbols) {
        const uint32_t low = coder.value_of_four(text);
        const uint32_t high = coder.value_of_four(text + 4);
        if ((low | high) & not_in_alphabet)
            break;
        const uint64_t block = low | uint64_t{high} << 4 * Bits;
#pragma GCC unroll 8
        for (uint32_t i = 0; i < Bits; ++i)
            bytes[i] = static_cast<uint8_t>(block >> 8 * i);
    }
    return done;
}

template <uint32_t Bits>
uint32_t encode(const coder<Bits>& coder, const uint8_t* bytes, uint32_t byte_count, ZU_wchar* text,
                uint32_t* size) {
    const uint32_t needed = text_size(Bits, byte_count);
    if (*size < needed) {
        *size = needed;
        return no_room;
    }
    const uint32_t blocks = byte_count / Bits;
    encode_blocks(coder, bytes, blocks, text);
    encode_from(blocks * block_symbols, needed - 1, coder.alphabet, Bits, bytes, byte_count, text);
    *size = needed;
    return success;
}

// Common to both ways of decoding: the count of symbols, and the bytes that they make.
struct decoding {
    uint32_t symbols, bytes;

    decoding(uint32_t bits, const ZU_wchar* text, uint32_t character_count)
        : symbols(character_count > 0 && text[character_count - 1] == 0 ? character_count - 1
                                                                        : character_count),
          bytes(static_cast<uint32_t>(uint64_t{bits} * symbols / 8)) {}
};

template <uint32_t Bits>
uint32_t decode(const coder<Bits>& coder, const ZU_wchar* text, uint32_t character_count, uint8_t* bytes,
                uint32_t* size) {
    const decoding counts(Bits, text, character_count);
    const uint32_t room = *size;
    *size = counts.bytes;
    if (room < counts.bytes)
        return no_room;
    const uint32_t blocks = decode_blocks(coder, text, counts.symbols / block_symbols, bytes);
    const auto value_of = [&values = coder.shifted_values[0]](ZU_wchar character) {
        return character < values.size() && values[character] != not_in_alphabet ? values[character]
                                                                                 : no_symbol;
    };
    if (decode_from(blocks * block_symbols, counts.symbols, value_of, Bits, text, bytes, counts.bytes))
        return success;
    *size = 0;
    return bad_character;
}

// The text of an encoding function in new memory.
template <class F>
ZU_wchar* encode_new(F&& encode_to, uint32_t* length) {
    uint32_t size = 0;
    encode_to(static_cast<ZU_wchar*>(nullptr), &size);
    auto* const text = zu::allocate<ZU_wchar>(size);
    encode_to(text, &size);
    if (length)
        *length = size - 1;
    return text;
}

} // namespace

uint32_t ZU_get_bits(const uint8_t* bytes, uint32_t byte_count, uint32_t bit_offset, uint32_t bit_count) {
    return read_field(bytes, byte_count, bit_offset, bit_count);
}

void ZU_set_bits(uint8_t* bytes, uint32_t byte_count, uint32_t bit_offset, uint32_t bit_count,
                 uint32_t value) {
    write_field(bytes, byte_count, bit_offset, bit_count, value);
}

uint32_t ZU_bin2basex(const ZU_wchar* alphabet, uint32_t bits, const uint8_t* bytes, uint32_t byte_count,
                      ZU_wchar* text, uint32_t* size) {
    const uint32_t needed = text_size(bits, byte_count);
    if (*size < needed) {
        *size = needed;
        return no_room;
    }
    encode_from(0, needed - 1, alphabet, bits, bytes, byte_count, text);
    *size = needed;
    return success;
}

ZU_wchar* ZU_bin2basex_ex(const ZU_wchar* alphabet, uint32_t bits, const uint8_t* bytes, uint32_t byte_count,
                          uint32_t* length) {
    return encode_new(
        [=](ZU_wchar* text, uint32_t* size) { ZU_bin2basex(alphabet, bits, bytes, byte_count, text, size); },
        length);
}

uint32_t ZU_basex2bin(ZU_basex_decode_fn decode_character, uint32_t bits, const ZU_wchar* text,
                      uint32_t character_count, uint8_t* bytes, uint32_t* size) {
    const decoding counts(bits, text, character_count);
    const uint32_t room = *size;
    *size = counts.bytes;
    if (room < counts.bytes)
        return no_room;
    if (decode_from(0, counts.symbols, decode_character, bits, text, bytes, counts.bytes))
        return success;
    *size = 0;
    return bad_character;
}

uint32_t ZU_bin2base64(const uint8_t* bytes, uint32_t byte_count, ZU_wchar* text, uint32_t* size) {
    return encode(base64, bytes, byte_count, text, size);
}

ZU_wchar* ZU_bin2base64_ex(const uint8_t* bytes, uint32_t byte_count, uint32_t* length) {
    return encode_new([=](ZU_wchar* text, uint32_t* size) { encode(base64, bytes, byte_count, text, size); },
                      length);
}

uint32_t ZU_base642bin(const ZU_wchar* text, uint32_t character_count, uint8_t* bytes, uint32_t* size) {
    return decode(base64, text, character_count, bytes, size);
}

uint32_t ZU_bin2base32(const uint8_t* bytes, uint32_t byte_count, ZU_wchar* text, uint32_t* size) {
    return encode(base32, bytes, byte_count, text, size);
}

ZU_wchar* ZU_bin2base32_ex(const uint8_t* bytes, uint32_t byte_count, uint32_t* length) {
    return encode_new([=](ZU_wchar* text, uint32_t* size) { encode(base32, bytes, byte_count, text, size); },
                      length);
}

uint32_t ZU_base322bin(const ZU_wchar* text, uint32_t character_count, uint8_t* bytes, uint32_t* size) {
    return decode(base32, text, character_count, bytes, size);
}

void ZU_bin2hex(const uint8_t* bytes, uint32_t byte_count, ZU_wchar* text) {
    const uint32_t blocks = byte_count / 4;
    encode_blocks(hex, bytes, blocks, text);
    text += size_t{blocks} * block_symbols;
    for (uint32_t i = blocks * 4; i < byte_count; ++i, text += 2)
        std::memcpy(text, &hex.pairs[bytes[i]], sizeof(pair));
    *text = 0;
}

uint32_t ZU_hex2bin(const ZU_wchar* text, uint32_t character_count, uint8_t* bytes) {
    if (character_count % 2 != 0)
        return odd_count;
    const uint32_t blocks = decode_blocks(hex, text, character_count / block_symbols, bytes);
    text += size_t{blocks} * block_symbols;
    for (uint32_t i = blocks * 4; i < character_count / 2; ++i, text += 2) {
        const uint32_t value = (text[0] | text[1]) < 128 ? hex.value_of_pair(text) : not_in_alphabet;
        if (value & not_in_alphabet)
            return bad_character;
        bytes[i] = static_cast<uint8_t>(value);
    }
    return success;
}
