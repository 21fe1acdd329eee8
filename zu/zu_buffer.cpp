// Byte buffer: a block and its capacity; the callers know how much of it is in use.
#include <utility>

#include "zu/zu_support.h"

namespace {

constexpr uint32_t granularity = 4;

uint32_t rounded_up(uint32_t size) {
    const uint32_t rounded = (size + granularity - 1) & ~(granularity - 1);
    return rounded >= size ? rounded : size; // the last three sizes of 32 bits have no multiple above them
}

} // namespace

uint8_t* ZU_buf_get_ex(ZU_buf* buffer, uint32_t size, uint32_t keep) {
    if (buffer->capacity >= size)
        return buffer->data;
    const uint32_t capacity = rounded_up(size);
    auto* data = zu::allocate<uint8_t>(capacity);
    if (keep != 0)
        std::memcpy(data, buffer->data, keep);
    ZU_free(buffer->data);
    *buffer = {data, capacity};
    return data;
}

void ZU_buf_append(ZU_buf* buffer, uint32_t offset, const void* bytes, uint32_t count) {
    if (count == 0)
        return;
    std::memcpy(ZU_buf_get_ex(buffer, offset + count, offset) + offset, bytes, count);
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
