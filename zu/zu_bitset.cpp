// Bitsets: bits in bytes, of fixed size or growing with the highest index asked for.
#include <algorithm>

#include "zu/zu_support.h"

struct ZU_bitset {
    uint32_t capacity; // bits that the data holds
    uint32_t size;     // bits in the set
    ZU_bool growable;
    ZU_bool fill; // the value of new bits
    uint8_t* data;
};

namespace {

static_assert(sizeof(ZU_bitset) == (sizeof(void*) == 8 ? 24 : 16));
static_assert(offsetof(ZU_bitset, growable) == 8);
static_assert(offsetof(ZU_bitset, data) == (sizeof(void*) == 8 ? 16 : 12));

int fill_byte(const ZU_bitset* bitset) {
    return bitset->fill ? 0xFF : 0x00;
}

void grow(ZU_bitset* bitset, uint32_t size) {
    if (bitset->capacity < size) {
        const uint32_t old_bytes = bitset->capacity / 8;
        const uint32_t new_bytes = (size + 31) / 32 * 4;
        bitset->data = static_cast<uint8_t*>(ZU_realloc(bitset->data, new_bytes));
        std::memset(bitset->data + old_bytes, fill_byte(bitset), new_bytes - old_bytes);
        bitset->capacity = new_bytes * 8;
    }
    bitset->size = size;
}

uint8_t value_of(uint8_t byte, uint32_t index) {
    return byte >> index % 8 & 1;
}

// The byte that holds a bit. A growable set grows until it has the bit.
uint8_t& byte_of(ZU_bitset* bitset, uint32_t index) {
    if (bitset->growable && index >= bitset->size)
        grow(bitset, index + 1);
    return bitset->data[index / 8];
}

uint8_t mask_of(uint32_t index) {
    return static_cast<uint8_t>(1u << index % 8);
}

} // namespace

ZU_bitset* ZU_new_bitset(uint32_t size, ZU_bool fill, ZU_bool growable) {
    auto* const bitset = zu::allocate<ZU_bitset>();
    *bitset = {0, size, growable, fill, nullptr};
    if (size == 0)
        return bitset;
    const uint32_t bytes = size / 8 + (size % 8 != 0);
    bitset->data = static_cast<uint8_t*>(ZU_malloc(bytes));
    std::memset(bitset->data, fill_byte(bitset), bytes);
    bitset->capacity = bytes * 8;
    return bitset;
}

uint8_t ZU_set_bit(ZU_bitset* bitset, uint32_t index) {
    uint8_t& holder = byte_of(bitset, index);
    const uint8_t old = holder;
    holder = old | mask_of(index);
    return value_of(old, index);
}

uint8_t ZU_clear_bit(ZU_bitset* bitset, uint32_t index) {
    uint8_t& holder = byte_of(bitset, index);
    const uint8_t old = holder;
    holder = static_cast<uint8_t>(old & ~mask_of(index));
    return value_of(old, index);
}

uint8_t ZU_test_bit(ZU_bitset* bitset, uint32_t index) {
    return value_of(byte_of(bitset, index), index);
}

uint32_t ZU_bitset_size(const ZU_bitset* bitset) {
    return bitset->size;
}

void ZU_bitset_to_str(const ZU_bitset* bitset, ZU_bool low_first, ZU_s* text) {
    ZU_s_clear(text);
    ZU_s_reserve(text, bitset->size);
    ZU_wchar piece[256]; // appending one character at a time would cost a call for each
    const uint32_t piece_size = sizeof piece / sizeof *piece;
    for (uint32_t done = 0; done < bitset->size;) {
        const uint32_t count = std::min(piece_size, bitset->size - done);
        for (uint32_t i = 0; i < count; ++i, ++done) {
            const uint32_t index = low_first ? done : bitset->size - 1 - done;
            piece[i] = value_of(bitset->data[index / 8], index) ? ZU_W('1') : ZU_W('0');
        }
        ZU_s_append_n(text, piece, count);
    }
}

void ZU_free_bitset(ZU_bitset* bitset) {
    if (!bitset)
        return;
    ZU_free(bitset->data);
    ZU_free(bitset);
}
