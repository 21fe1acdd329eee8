// UTF-16 to UTF-8, eight units at a step, for machines that lack registers of 64 bytes. Each unit is encoded in a lane of
// its own, and a table tells which bytes of the lanes are pressed together.
#include "platform/text/utf8_registers.h"

#ifdef __x86_64__
#include <immintrin.h>

#include <array>

#define WITH_32_BYTES [[gnu::target("avx2,popcnt")]]

namespace platform {

namespace {

constexpr size_t register_bytes = sizeof(__m128i);

// The places of the bytes that are used, for each key. The key's bits number the lanes, once for the lanes of at least
// two bytes, and once more, further up, for those of three.
template <size_t LaneBytes>
constexpr auto places_of_bytes = [] {
    constexpr size_t lanes = register_bytes / LaneBytes;
    std::array<std::array<char, register_bytes>, 256> places{};
    for (unsigned key = 0; key < places.size(); ++key) {
        size_t count = 0;
        for (size_t lane = 0; lane < lanes; ++lane) {
            size_t length = 1;
            for (size_t bit = lane; bit < 8; bit += lanes)
                length += key >> bit & 1;
            for (size_t byte = 0; byte < length; ++byte)
                places[key][count++] = static_cast<char>(lane * LaneBytes + byte);
        }
    }
    return places;
}();

WITH_32_BYTES inline __m128i either(__m128i a, __m128i b, __m128i c) {
    return _mm_or_si128(_mm_or_si128(a, b), c);
}

WITH_32_BYTES inline __m128i kept(__m128i value, int bits) {
    return _mm_and_si128(value, _mm_set1_epi32(bits));
}

// Writes a whole register, and returns where the bytes that are used end.
template <size_t LaneBytes>
WITH_32_BYTES inline char* put_bytes(char* out, __m128i lanes, unsigned key) {
    const auto* const places = reinterpret_cast<const __m128i_u*>(&places_of_bytes<LaneBytes>[key]);
    _mm_storeu_si128(reinterpret_cast<__m128i_u*>(out), _mm_shuffle_epi8(lanes, _mm_loadu_si128(places)));
    return out + register_bytes / LaneBytes + __builtin_popcount(key);
}

// Eight units that have at most two bytes each.
WITH_32_BYTES inline char* put_short_units(char* out, __m128i units) {
    const __m128i second = kept(_mm_slli_epi16(units, 8), 0x3F003F00);
    const __m128i two = either(_mm_srli_epi16(units, 6), second, _mm_set1_epi16(static_cast<short>(0x80C0)));
    const __m128i is_longer = _mm_cmpgt_epi16(units, _mm_set1_epi16(0x7F));
    const int key = _mm_movemask_epi8(_mm_packs_epi16(is_longer, _mm_setzero_si128()));
    return put_bytes<2>(out, _mm_blendv_epi8(units, two, is_longer), static_cast<unsigned>(key));
}

// Four units, none of which is a surrogate.
WITH_32_BYTES inline char* put_units(char* out, __m128i units) {
    const __m128i second = kept(_mm_slli_epi32(units, 8), 0x3F00);
    const __m128i two = either(_mm_srli_epi32(units, 6), second, _mm_set1_epi32(0x80C0));
    const __m128i rest =
        _mm_or_si128(kept(_mm_slli_epi32(units, 2), 0x3F00), kept(_mm_slli_epi32(units, 16), 0x3F0000));
    const __m128i three = either(_mm_srli_epi32(units, 12), rest, _mm_set1_epi32(0x8080E0));
    const __m128i is_longer = _mm_cmpgt_epi32(units, _mm_set1_epi32(0x7F));
    const __m128i is_three = _mm_cmpgt_epi32(units, _mm_set1_epi32(0x7FF));
    const __m128i lanes = _mm_blendv_epi8(_mm_blendv_epi8(units, two, is_longer), three, is_three);
    const int key =
        _mm_movemask_ps(_mm_castsi128_ps(is_longer)) | _mm_movemask_ps(_mm_castsi128_ps(is_three)) << 4;
    return put_bytes<4>(out, lanes, static_cast<unsigned>(key));
}

} // namespace

WITH_32_BYTES char* narrow_by_eights(const WCHAR*& text, const WCHAR* stop, char* out) {
    const WCHAR* at = text;
    for (; stop - at >= 8; at += 8) {
        const __m128i units = _mm_loadu_si128(reinterpret_cast<const __m128i_u*>(at));
        const __m128i kinds = _mm_and_si128(units, _mm_set1_epi16(static_cast<short>(0xF800)));
        if (_mm_testz_si128(kinds, kinds)) {
            out = put_short_units(out, units);
            continue;
        }
        const __m128i surrogates = _mm_cmpeq_epi16(kinds, _mm_set1_epi16(static_cast<short>(0xD800)));
        if (!_mm_testz_si128(surrogates, surrogates))
            break;
        out = put_units(out, _mm_cvtepu16_epi32(units));
        out = put_units(out, _mm_cvtepu16_epi32(_mm_srli_si128(units, 8)));
    }
    text = at;
    return out;
}

} // namespace platform

#else

namespace platform {

char* narrow_by_eights(const WCHAR*&, const WCHAR*, char* out) {
    return out;
}

} // namespace platform

#endif
