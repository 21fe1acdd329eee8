// Dynamic array: places for the addresses of items, each item a block of its own.
#include <algorithm>

#include "zu/zu_support.h"

namespace {

static_assert(sizeof(ZU_DA) == 8 + sizeof(void*));
static_assert(offsetof(ZU_DA, items) == 8);

constexpr uint32_t step = 4;

void grow(ZU_DA* array) {
    const uint64_t bytes = (uint64_t{array->capacity} + step) * sizeof(void*);
    array->items = static_cast<void**>(ZU_realloc(array->items, zu::block_size(bytes)));
    array->capacity += step;
}

// Deletes the first item that the test picks.
template <class F>
ZU_bool delete_first(ZU_DA* array, F&& picks) {
    void** const end = array->items + array->count;
    void** const at = std::find_if(array->items, end, picks);
    return at != end && ZU_DADeleteItemByIndex(array, static_cast<uint32_t>(at - array->items));
}

} // namespace

void ZU_DAInit(ZU_DA* array) {
    *array = {};
}

void* ZU_DANewItem(ZU_DA* array, uint32_t bytes) {
    if (array->count == array->capacity)
        grow(array);
    void* const item = ZU_malloc(bytes);
    std::memset(item, 0, bytes);
    array->items[array->count++] = item;
    return item;
}

void* ZU_DADupItem(ZU_DA* array, const void* data, uint32_t bytes) {
    void* const item = ZU_DANewItem(array, bytes);
    if (bytes != 0)
        std::memcpy(item, data, bytes);
    return item;
}

uint32_t ZU_DADupStrings(ZU_DA* array, const ZU_DA* source) {
    const uint32_t count = source->count;
    for (uint32_t i = 0; i < count; ++i) {
        const zu::text_view text = static_cast<const ZU_wchar*>(source->items[i]);
        ZU_DADupItem(array, text.data(), zu::block_size((uint64_t{text.size()} + 1) * sizeof(ZU_wchar)));
    }
    return count;
}

ZU_bool ZU_DADeleteItemByIndex(ZU_DA* array, uint32_t index) {
    if (index >= array->count)
        return 0;
    void** const at = array->items + index;
    void** const end = array->items + array->count;
    ZU_free(*at);
    std::copy(at + 1, end, at);
    end[-1] = nullptr;
    --array->count;
    return 1;
}

ZU_bool ZU_DADeleteItemByValue(ZU_DA* array, const void* item) {
    return delete_first(array, [item](const void* stored) { return stored == item; });
}

ZU_bool ZU_DADeleteStringByContent(ZU_DA* array, const ZU_wchar* text) {
    const zu::text_view wanted = text;
    return delete_first(
        array, [wanted](const void* stored) { return wanted == static_cast<const ZU_wchar*>(stored); });
}

void ZU_DAFreeItems(ZU_DA* array) {
    std::for_each(array->items, array->items + array->count, ZU_free);
    ZU_free(array->items);
    *array = {};
}
