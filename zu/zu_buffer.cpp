// Byte buffer: a block and its capacity; the callers know how much of it is in use.
#include <algorithm>
#include <utility>

#include "zu/zu_support.h"

namespace {

constexpr uint32_t granularity = 4;

uint32_t rounded_up(uint32_t size) {
    const uint32_t rounded = (size + granularity - 1) & ~(granularity - 1);
    return rounded >= size ? rounded : size; // rounding up the last three 32-bit sizes overflows
}

// Makes room for `size` bytes. If a larger block takes the place of the old one, the caller owns the old one.
zu::owned<uint8_t> grow(ZU_buf* buffer, uint32_t size, uint32_t keep) {
    if (buffer->capacity >= size)
        return zu::owned<uint8_t>();
    const uint32_t capacity = rounded_up(size);
    auto* const data = zu::allocate<uint8_t>(capacity);
    if (keep != 0)
        std::memcpy(data, buffer->data, keep);
    return zu::owned<uint8_t>(std::exchange(*buffer, {data, capacity}).data);
}

} // namespace

uint8_t* ZU_buf_get_ex(ZU_buf* buffer, uint32_t size, uint32_t keep) {
    grow(buffer, size, keep);
    return buffer->data;
}

void ZU_buf_append(ZU_buf* buffer, uint32_t offset, const void* bytes, uint32_t count) {
    if (count == 0)
        return;
    const uint32_t end = zu::block_size(uint64_t{offset} + count);
    // The bytes may lie in the old block, so it is freed after they are copied.
    const zu::owned<uint8_t> old = grow(buffer, end, std::min(offset, buffer->capacity));
    std::memmove(buffer->data + offset, bytes, count);
}

uint8_t* ZU_buf_detach(ZU_buf* buffer, uint32_t* capacity) {
    if (capacity)
        *capacity = buffer->capacity;
    uint8_t* data = buffer->data;
    *buffer = {};
    return data;
}

ZU_buf* ZU_buf_swap(ZU_buf* a, ZU_buf* b) {
    std::swap(*a, *b);
    return a;
}

void ZU_buf_destroy(ZU_buf* buffer) {
    if (!buffer)
        return;
    ZU_free(buffer->data);
    *buffer = {};
}
