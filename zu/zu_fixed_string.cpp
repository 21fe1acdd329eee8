// Fixed-capacity string: one text in a block sized for it, and its length-prefixed narrow form.
#include "zu/zu_support.h"

namespace {

// The text may lie in the record's own block, so a new block is filled before the old one is freed.
void assign(ZU_fixed_s* s, const ZU_wchar* text, size_t length) {
    if (length == 0) {
        ZU_fixed_s_destroy(s);
        return;
    }
    ZU_wchar* block = s->length < length ? zu::allocate<ZU_wchar>(uint64_t{length} + 1) : s->text;
    std::memmove(block, text, length * sizeof(ZU_wchar));
    block[length] = 0;
    if (block != s->text)
        ZU_free(s->text);
    s->text = block;
    s->length = static_cast<uint32_t>(length);
}

} // namespace

void ZU_fixed_s_create(ZU_fixed_s* s, const ZU_wchar* text) {
    ZU_fixed_s_assign(s, text ? text : ZU_W(""));
}

void ZU_fixed_s_assign(ZU_fixed_s* s, const ZU_wchar* text) {
    assign(s, text, zu::text_view(text).size());
}

void ZU_fixed_s_assign_s(ZU_fixed_s* s, const ZU_fixed_s* source) {
    assign(s, source->text, source->length);
}

void ZU_fixed_s_destroy(ZU_fixed_s* s) {
    ZU_free(s->text);
    *s = {};
}

int32_t ZU_fixed_s_to_buffer(const ZU_fixed_s* s, uint32_t encoding, uint8_t** buffer) {
    uint32_t count = 0;
    const zu::owned<char> narrow(
        s->length != 0 ? ZU_wchar_2_char(encoding, s->text, static_cast<int32_t>(s->length), &count)
                       : nullptr);
    auto* block = zu::allocate<uint8_t>(uint64_t{sizeof count} + count);
    for (unsigned i = 0; i < sizeof count; ++i)
        block[i] = static_cast<uint8_t>(count >> (8 * i));
    if (count != 0)
        std::memcpy(block + sizeof count, narrow.get(), count);
    *buffer = block;
    return static_cast<int32_t>(sizeof count + count);
}
