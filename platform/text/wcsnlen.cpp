// The length of a wide text, and its copy. Words and vectors that do not reach into another page may be read beyond a
// terminator, which is harmless, although no sanitizer can know that.
#include <algorithm>
#include <cstring>

#include "platform/api/text.h"
#include "platform/text/registers.h"

#ifdef __x86_64__
#include <immintrin.h>
#endif

namespace platform {

namespace {

using word = uint64_t __attribute__((may_alias));
constexpr size_t word_units = sizeof(word) / sizeof(WCHAR);

bool has_zero(word units) {
    constexpr word ones = 0x0001000100010001u;
    return ((units - ones) & ~units & (ones << 15)) != 0;
}

__attribute__((no_sanitize("address", "thread"))) size_t length_by_words(const WCHAR* text, size_t limit) {
    size_t length = 0;
    for (; reinterpret_cast<uintptr_t>(text + length) % sizeof(word) != 0; ++length) {
        if (length == limit || !text[length])
            return length;
    }
    while (length < limit && !has_zero(*reinterpret_cast<const word*>(text + length)))
        length += word_units;
    while (length < limit && text[length])
        ++length;
    return std::min(length, limit);
}

// Copies a text whose units, up to the limit, all lie in one page.
__attribute__((no_sanitize("address", "thread"))) size_t copy_short(WCHAR* out, const WCHAR* text,
                                                                    size_t limit) {
    using vector = uint16_t __attribute__((vector_size(16)));
    // Clang takes a lower alignment from a typedef alone, not from an alias.
    typedef uint16_t unaligned __attribute__((vector_size(16), may_alias, aligned(1)));
    static_assert(alignof(unaligned) == 1);
    using halves = uint64_t __attribute__((vector_size(16)));
    constexpr size_t vector_units = sizeof(vector) / sizeof(WCHAR);
    size_t length = 0;
    for (; limit - length >= vector_units; length += vector_units) {
        const vector units = *reinterpret_cast<const unaligned*>(text + length);
        const auto zeros = reinterpret_cast<halves>(units == 0);
        if ((zeros[0] | zeros[1]) != 0)
            break;
        *reinterpret_cast<unaligned*>(out + length) = units;
    }
    for (; length < limit && text[length]; ++length)
        out[length] = text[length];
    return length;
}

// Out of line, which keeps copy_text short for the usual short text.
[[gnu::noinline]] size_t copy_long(WCHAR* out, const WCHAR* text, size_t limit) {
    const size_t length = wcsnlen(text, limit);
    std::memcpy(out, text, length * sizeof(WCHAR));
    return length;
}

#ifdef __x86_64__
#define WITH_32_BYTES __attribute__((target("avx2,bmi"), no_sanitize("address", "thread")))

constexpr size_t vector_bytes = sizeof(__m256i);
constexpr size_t vector_units = vector_bytes / sizeof(WCHAR);
constexpr size_t block_bytes = 4 * vector_bytes;

// Two bits for each zero unit of a vector.
WITH_32_BYTES inline uint32_t zeros_in(const __m256i* at) {
    return static_cast<uint32_t>(_mm256_movemask_epi8(_mm256_cmpeq_epi16(*at, _mm256_setzero_si256())));
}

WITH_32_BYTES inline bool has_no_zero(const __m256i* block) {
    const __m256i first = _mm256_min_epu16(block[0], block[1]), second = _mm256_min_epu16(block[2], block[3]);
    const __m256i least = _mm256_min_epu16(first, second);
    return _mm256_movemask_epi8(_mm256_cmpeq_epi16(least, _mm256_setzero_si256())) == 0;
}

// The text begins at an even address.
WITH_32_BYTES size_t length_by_vectors(const WCHAR* text, size_t limit) {
    // The bytes of the first vector that lie before the text.
    const size_t before = reinterpret_cast<uintptr_t>(text) % vector_bytes;
    const auto* at = reinterpret_cast<const __m256i*>(reinterpret_cast<const char*>(text) - before);
    size_t length = 0;
    if (const uint32_t zeros = zeros_in(at) >> before)
        return std::min<size_t>(_tzcnt_u32(zeros) / sizeof(WCHAR), limit);
    length = (vector_bytes - before) / sizeof(WCHAR);
    for (++at; length < limit; ++at, length += vector_units) {
        for (; reinterpret_cast<uintptr_t>(at) % block_bytes == 0 && length < limit && has_no_zero(at);
             at += 4)
            length += 4 * vector_units;
        if (length >= limit)
            break;
        if (const uint32_t zeros = zeros_in(at))
            return std::min(length + _tzcnt_u32(zeros) / sizeof(WCHAR), limit);
    }
    return limit;
}
#else
size_t length_by_vectors(const WCHAR* text, size_t limit) {
    return length_by_words(text, limit);
}
#endif

} // namespace

size_t wcsnlen(const WCHAR* text, size_t limit) {
    if (limit == 0)
        return 0;
    const bool is_even = reinterpret_cast<uintptr_t>(text) % sizeof(WCHAR) == 0;
    return registers.of_32_bytes && is_even ? length_by_vectors(text, limit) : length_by_words(text, limit);
}

size_t copy_text(WCHAR* out, const WCHAR* text, size_t limit) {
    constexpr size_t short_limit = 32;
    constexpr uintptr_t smallest_page = 4096;
    const uintptr_t place_in_page = reinterpret_cast<uintptr_t>(text) % smallest_page;
    if (limit <= short_limit && place_in_page + limit * sizeof(WCHAR) <= smallest_page)
        return copy_short(out, text, limit);
    return copy_long(out, text, limit);
}

} // namespace platform
