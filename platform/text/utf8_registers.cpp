// Up to 32 units or 64 bytes at a step. Each character is put together in a lane of its own, and the bytes or units
// that the lanes really have are pressed together.
#include "platform/text/utf8_registers.h"

#ifdef __x86_64__
#include <immintrin.h>

#include <algorithm>

#ifndef __clang__
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized" // raised by the compiler's own header at every use
#endif
#define WITH_64_BYTES [[gnu::target("avx512f,avx512bw,avx512vl,avx512vbmi,avx512vbmi2,bmi2,popcnt")]]

namespace platform {

namespace {

constexpr size_t lanes = 16; // lanes of 32 bits in a register

constexpr uint64_t low_bits(size_t count) {
    return count < 64 ? (uint64_t{1} << count) - 1 : ~uint64_t{0};
}

WITH_64_BYTES inline __m512i all(uint32_t value) {
    return _mm512_set1_epi32(static_cast<int>(value));
}

// Bits of each lane, moved to where they belong.
WITH_64_BYTES inline __m512i right(__m512i value, unsigned shift, uint32_t kept) {
    return _mm512_and_si512(_mm512_srli_epi32(value, shift), all(kept));
}
WITH_64_BYTES inline __m512i left(__m512i value, unsigned shift, uint32_t kept) {
    return _mm512_and_si512(_mm512_slli_epi32(value, shift), all(kept));
}
WITH_64_BYTES inline __m512i either(__m512i a, __m512i b, __m512i c) {
    return _mm512_or_si512(_mm512_or_si512(a, b), c);
}

// Writes the bytes that are marked, and those alone where the area ends; false when it is too small for them.
WITH_64_BYTES inline bool put_bytes(narrowing& state, __m512i bytes, uint64_t marked) {
    const auto count = static_cast<size_t>(__builtin_popcountll(marked));
    const auto room = static_cast<size_t>(state.out_end - state.out);
    const __m512i pressed = _mm512_maskz_compress_epi8(marked, bytes);
    if (room >= 64)
        _mm512_storeu_si512(state.out, pressed);
    else if (room >= count)
        _mm512_mask_storeu_epi8(state.out, low_bits(count), pressed);
    else
        return false;
    state.out += count;
    return true;
}

// Characters of up to three bytes, one in each lane.
WITH_64_BYTES inline __m512i encoded_units(__m512i units) {
    const __m512i last = left(units, 16, 0x3F0000);
    const __m512i three = either(right(units, 12, 0x0F), left(units, 2, 0x3F00), last);
    const __m512i two = _mm512_or_si512(right(units, 6, 0x1F), left(units, 8, 0x3F00));
    const __mmask16 is_two = _mm512_cmpge_epu32_mask(units, all(0x80));
    const __mmask16 is_three = _mm512_cmpge_epu32_mask(units, all(0x800));
    const __m512i short_form = _mm512_mask_or_epi32(units, is_two, two, all(0x80C0));
    return _mm512_mask_or_epi32(short_form, is_three, three, all(0x8080E0));
}

// Characters of four bytes from high surrogates and the units behind them.
WITH_64_BYTES inline __m512i encoded_pairs(__m512i high, __m512i low) {
    const __m512i offset = _mm512_or_si512(left(high, 10, 0xFFC00), right(low, 0, 0x3FF));
    const __m512i character = _mm512_add_epi32(offset, all(0x10000));
    const __m512i first = _mm512_or_si512(right(character, 18, 0x07), right(character, 4, 0x3F00));
    const __m512i second = _mm512_or_si512(left(character, 10, 0x3F0000), left(character, 24, 0x3F000000));
    return either(first, second, all(0x808080F0));
}

// One step over units of any kind; false at a surrogate without its partner, and when the area is too small.
WITH_64_BYTES inline bool narrow_lanes(narrowing& state) {
    const auto left_over = static_cast<size_t>(state.end - state.at);
    size_t taken = std::min(lanes, left_over);
    const auto known = static_cast<__mmask16>(low_bits(taken));
    const __m512i units = _mm512_cvtepu16_epi32(_mm256_maskz_loadu_epi16(known, state.at));
    const __m512i kind = right(units, 0, 0xFC00);
    uint32_t high = _mm512_cmpeq_epi32_mask(kind, all(0xD800));
    const uint32_t low = _mm512_cmpeq_epi32_mask(kind, all(0xDC00));
    __m512i words = encoded_units(units);
    if (high | low) {
        if (high >> (taken - 1)) // its partner, if it has one, is not in these lanes
            --taken;
        high &= static_cast<uint32_t>(low_bits(taken));
        if (taken == 0 || low != high << 1 || high >> (taken - 1))
            return false;
        const __m512i next = _mm512_alignr_epi32(_mm512_setzero_si512(), units, 1);
        words = _mm512_mask_mov_epi32(words, static_cast<__mmask16>(high), encoded_pairs(units, next));
    }
    const auto leads = static_cast<__mmask16>(low_bits(taken) & ~low);
    words = _mm512_maskz_mov_epi32(leads, words);
    const __m512i marks =
        _mm512_or_si512(words, _mm512_maskz_mov_epi32(leads, all(1))); // U+0000 is a byte, too
    if (!put_bytes(state, words, _mm512_test_epi8_mask(marks, marks)))
        return false;
    state.at += taken;
    return true;
}

// The same over 32 units that have at most two bytes each.
WITH_64_BYTES inline bool narrow_short_lanes(narrowing& state, __m512i units, __mmask32 longer,
                                             size_t taken) {
    const __m512i first = _mm512_or_si512(_mm512_srli_epi16(units, 6), _mm512_set1_epi16(0xC0));
    const __m512i second = _mm512_and_si512(_mm512_slli_epi16(units, 8), _mm512_set1_epi16(0x3F00));
    const __m512i both = either(first, second, _mm512_set1_epi16(static_cast<short>(0x8000)));
    const __m512i pairs = _mm512_mask_mov_epi16(units, longer, both);
    const __m512i marks =
        _mm512_or_si512(pairs, _mm512_maskz_set1_epi16(static_cast<__mmask32>(low_bits(taken)), 1));
    if (!put_bytes(state, pairs, _mm512_test_epi8_mask(marks, marks)))
        return false;
    state.at += taken;
    return true;
}

} // namespace

WITH_64_BYTES void narrow_in_registers(narrowing& state) {
    const __m512i two_bytes = _mm512_set1_epi16(0x80), three_bytes = _mm512_set1_epi16(0x800);
    bool moves = true;
    while (state.at < state.end && moves) {
        const auto taken = std::min<size_t>(32, static_cast<size_t>(state.end - state.at));
        const auto known = static_cast<__mmask32>(low_bits(taken));
        const __m512i units = _mm512_maskz_loadu_epi16(known, state.at);
        const __mmask32 longer = _mm512_cmpge_epu16_mask(units, two_bytes);
        if (longer == 0 && static_cast<size_t>(state.out_end - state.out) >= taken) {
            _mm256_mask_storeu_epi8(state.out, known, _mm512_cvtepi16_epi8(units));
            state.at += taken;
            state.out += taken;
        } else if (_mm512_cmpge_epu16_mask(units, three_bytes) == 0) {
            moves = narrow_short_lanes(state, units, longer, taken);
        } else {
            moves = narrow_lanes(state);
        }
    }
}

namespace {

// Characters that have been decoded, one in each lane.
struct decoded_lanes {
    __m512i characters;
    uint32_t two, three, four; // lanes of at least so many bytes
    uint32_t bad;              // lanes with a malformed character
};

// The one of four numbers that belongs to the length of each lane's character.
WITH_64_BYTES inline __m512i by_length(const decoded_lanes& lengths, uint32_t one, uint32_t two,
                                       uint32_t three, uint32_t four) {
    const __m512i up_to_two = _mm512_mask_mov_epi32(all(one), static_cast<__mmask16>(lengths.two), all(two));
    const __m512i up_to_three =
        _mm512_mask_mov_epi32(up_to_two, static_cast<__mmask16>(lengths.three), all(three));
    return _mm512_mask_mov_epi32(up_to_three, static_cast<__mmask16>(lengths.four), all(four));
}

WITH_64_BYTES inline decoded_lanes decode_lanes(__m512i bytes, uint64_t places) {
    const __m512i indexes =
        _mm512_set_epi64(0x3F3E3D3C3B3A3938, 0x3736353433323130, 0x2F2E2D2C2B2A2928, 0x2726252423222120,
                         0x1F1E1D1C1B1A1918, 0x1716151413121110, 0x0F0E0D0C0B0A0908, 0x0706050403020100);
    const __m512i firsts =
        _mm512_cvtepu8_epi32(_mm512_castsi512_si128(_mm512_maskz_compress_epi8(places, indexes)));
    // The four bytes from each place on, the first one highest.
    const __m512i spread = _mm512_mullo_epi32(firsts, all(0x01010101));
    const __m512i words = _mm512_permutexvar_epi8(_mm512_add_epi32(spread, all(0x00010203)), bytes);

    decoded_lanes decoded;
    decoded.two = _mm512_cmpge_epu32_mask(words, all(0xC0000000));
    decoded.three = _mm512_cmpge_epu32_mask(words, all(0xE0000000));
    decoded.four = _mm512_cmpge_epu32_mask(words, all(0xF0000000));
    const __m512i kept =
        _mm512_and_si512(words, by_length(decoded, 0x7F000000, 0x1F3F3F3F, 0x0F3F3F3F, 0x073F3F3F));
    const __m512i upper = _mm512_or_si512(right(kept, 6, 0x01FC0000), right(kept, 4, 0x0003F000));
    const __m512i lower = _mm512_or_si512(right(kept, 2, 0x00000FC0), right(kept, 0, 0x0000003F));
    decoded.characters = _mm512_srlv_epi32(_mm512_or_si512(upper, lower), by_length(decoded, 18, 12, 6, 0));

    const __m512i marks = by_length(decoded, 0, 0x00C00000, 0x00C0C000, 0x00C0C0C0);
    // A character below the lowest one of its length is an overlong form.
    const __m512i lowest = by_length(decoded, 0, 0x80, 0x800, 0x10000);
    const __m512i surrogate = _mm512_and_si512(decoded.characters, all(0xFFFFF800));
    const __m512i continuing = _mm512_and_si512(marks, all(0x00808080));
    decoded.bad = _mm512_cmpneq_epi32_mask(_mm512_and_si512(words, marks), continuing)
                  | _mm512_cmplt_epu32_mask(decoded.characters, lowest)
                  | _mm512_cmpgt_epu32_mask(decoded.characters, all(0x10FFFF))
                  | _mm512_cmpge_epu32_mask(words, all(0xF5000000))
                  | _mm512_cmpeq_epi32_mask(surrogate, all(0xD800));
    return decoded;
}

// Writes the characters of the first lanes: one unit each, or a pair.
WITH_64_BYTES inline void put_units(widening& state, const decoded_lanes& decoded, size_t taken) {
    const auto lanes_taken = static_cast<__mmask16>(low_bits(taken));
    const auto pairs = static_cast<__mmask16>(decoded.four & lanes_taken);
    if (pairs == 0) {
        _mm256_storeu_si256(reinterpret_cast<__m256i_u*>(state.out),
                            _mm512_cvtepi32_epi16(decoded.characters));
        state.out += taken;
        return;
    }
    const __m512i high = _mm512_add_epi32(_mm512_srli_epi32(decoded.characters, 10), all(0xD7C0));
    const __m512i low = _mm512_or_si512(left(decoded.characters, 16, 0x03FF0000), all(0xDC000000));
    const __m512i words = _mm512_mask_or_epi32(decoded.characters, pairs, high, low);
    const __m512i one = _mm512_maskz_mov_epi32(lanes_taken, all(1));
    const __m512i marks = _mm512_mask_mov_epi32(one, pairs, all(0x10001));
    _mm512_storeu_si512(state.out, _mm512_maskz_compress_epi16(_mm512_test_epi16_mask(marks, marks), words));
    state.out += taken + static_cast<size_t>(__builtin_popcount(pairs));
}

// One step over bytes of ASCII.
WITH_64_BYTES inline void widen_ascii(widening& state, __m512i bytes, size_t count) {
    const __m512i first = _mm512_cvtepu8_epi16(_mm512_castsi512_si256(bytes));
    const __m512i second = _mm512_cvtepu8_epi16(_mm512_extracti64x4_epi64(bytes, 1));
    _mm512_mask_storeu_epi16(state.out, static_cast<__mmask32>(low_bits(count)), first);
    if (count > 32)
        _mm512_mask_storeu_epi16(state.out + 32, static_cast<__mmask32>(low_bits(count - 32)), second);
    state.at += count;
    state.out += count;
}

// Writes characters of one byte or two, the first bytes apart from the second ones.
WITH_64_BYTES inline void put_short_units(widening& state, __m256i first_bytes, __m256i second_bytes,
                                          size_t count) {
    const __m512i first = _mm512_cvtepu8_epi16(first_bytes), second = _mm512_cvtepu8_epi16(second_bytes);
    const __m512i upper = _mm512_and_si512(_mm512_slli_epi16(first, 6), _mm512_set1_epi16(0x7C0));
    const __m512i both = _mm512_or_si512(upper, _mm512_and_si512(second, _mm512_set1_epi16(0x3F)));
    const __mmask32 twos = _mm512_cmpge_epu16_mask(first, _mm512_set1_epi16(0x80));
    _mm512_mask_storeu_epi16(state.out, static_cast<__mmask32>(low_bits(count)),
                             _mm512_mask_mov_epi16(first, twos, both));
    state.out += count;
}

// Where the character behind the first `taken` ones begins.
WITH_64_BYTES inline size_t place_behind(size_t taken, uint64_t leads) {
    return static_cast<size_t>(__builtin_ctzll(_pdep_u64(uint64_t{1} << taken, leads)));
}

// One step over characters of one byte or two; false where there are others.
WITH_64_BYTES inline bool widen_short_lanes(widening& state, __m512i bytes, size_t count) {
    const uint64_t known = low_bits(count);
    const uint64_t twos = _mm512_cmpge_epu8_mask(bytes, _mm512_set1_epi8(static_cast<char>(0xC2)));
    const uint64_t ones = ~_mm512_movepi8_mask(bytes) & known;
    if (_mm512_cmpge_epu8_mask(bytes, _mm512_set1_epi8(static_cast<char>(0xE0))) != 0)
        return false;
    const bool is_cut = twos >> (count - 1); // the last character goes beyond the register
    const uint64_t leads = (ones | twos) & low_bits(count - is_cut);
    const uint64_t continuing =
        _mm512_cmplt_epi8_mask(bytes, _mm512_set1_epi8(static_cast<char>(0xC0))) & known;
    if ((ones | twos | continuing) != known || (twos << 1 & known) != continuing)
        return false; // some byte continues nothing, is not continued, or has no place in UTF-8
    const __m512i next = _mm512_maskz_loadu_epi8(low_bits(count - 1), state.at + 1);
    const __m512i first = _mm512_maskz_compress_epi8(leads, bytes);
    const __m512i second = _mm512_maskz_compress_epi8(leads, next);
    const auto units = static_cast<size_t>(__builtin_popcountll(leads));
    if (units == 0)
        return false;
    put_short_units(state, _mm512_castsi512_si256(first), _mm512_castsi512_si256(second),
                    std::min<size_t>(units, 32));
    if (units > 32)
        put_short_units(state, _mm512_extracti64x4_epi64(first, 1), _mm512_extracti64x4_epi64(second, 1),
                        units - 32);
    state.at += count - is_cut;
    return true;
}

// One step over bytes of any kind; false at a malformed character. The step's length comes from the leading bytes
// alone, so that the next step need not wait for this one's characters.
WITH_64_BYTES inline bool widen_lanes(widening& state, __m512i bytes, size_t count) {
    // A character that begins before this place lies in the register, whatever its length.
    constexpr size_t whole = 61;
    const __m512i last_continuing = _mm512_set1_epi8(static_cast<char>(0xBF));
    const uint64_t leads = _mm512_cmpgt_epi8_mask(bytes, last_continuing) & low_bits(count);
    if (!(leads & 1))
        return false;
    const uint64_t places = leads & low_bits(whole);
    const uint64_t ends = count < 64 ? leads | uint64_t{1} << count : leads; // the text's end is one
    size_t taken = std::min({lanes, static_cast<size_t>(__builtin_popcountll(places)),
                             static_cast<size_t>(__builtin_popcountll(ends)) - 1});
    const decoded_lanes decoded = decode_lanes(bytes, places);
    if (const auto bad = decoded.bad & low_bits(taken))
        taken = static_cast<size_t>(__builtin_ctzll(bad));
    if (taken == 0)
        return false;
    const size_t length = place_behind(taken, ends);
    const auto lanes_taken = static_cast<uint32_t>(low_bits(taken));
    const int lengths = __builtin_popcount(decoded.two & lanes_taken)
                        + __builtin_popcount(decoded.three & lanes_taken)
                        + __builtin_popcount(decoded.four & lanes_taken);
    if (taken + static_cast<size_t>(lengths) != length) // some bytes continue no character
        return false;
    put_units(state, decoded, taken);
    state.at += length;
    return true;
}

} // namespace

WITH_64_BYTES void widen_in_registers(widening& state) {
    bool moves = true;
    while (state.at < state.end && moves) {
        const auto count = std::min<size_t>(64, static_cast<size_t>(state.end - state.at));
        const auto room = static_cast<size_t>(state.out_end - state.out);
        const __m512i bytes = _mm512_maskz_loadu_epi8(low_bits(count), state.at);
        if (_mm512_movepi8_mask(bytes) == 0 && room >= count)
            widen_ascii(state, bytes, count);
        else if (room < count || !widen_short_lanes(state, bytes, count))
            moves = room >= 2 * lanes && widen_lanes(state, bytes, count);
    }
}

} // namespace platform

#else

namespace platform {

void narrow_in_registers(narrowing&) {}
void widen_in_registers(widening&) {}

} // namespace platform

#endif
