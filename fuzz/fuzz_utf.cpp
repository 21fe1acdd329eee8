// Bytes of any kind as UTF-8, and as wide text: what comes out is well formed, as long as measured, and a fixed point.
#include "fuzz/check.h"
#include "platform/text/registers.h"
#include "platform/text/utf8.h"

namespace {

std::u16string widened(const std::string& narrow) {
    std::u16string wide(platform::wide_size(narrow.data(), narrow.size()), 0);
    check(platform::wide_from_utf8(narrow.data(), narrow.size(), wide.data(), wide.size()) == wide.size());
    if (std::u16string area = wide; !area.empty())
        check(platform::wide_from_utf8(narrow.data(), narrow.size(), area.data(), area.size() - 1)
              == platform::does_not_fit);
    return wide;
}

std::string narrowed(const std::u16string& wide) {
    std::string narrow(platform::utf8_size(wide.data(), wide.size()), 0);
    check(platform::utf8_from_wide(wide.data(), wide.size(), narrow.data(), narrow.size()) == narrow.size());
    if (std::string area = narrow; !area.empty())
        check(platform::utf8_from_wide(wide.data(), wide.size(), area.data(), area.size() - 1)
              == platform::does_not_fit);
    return narrow;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const platform::wide_registers all = platform::registers;
    const std::string bytes(reinterpret_cast<const char*>(data), size);
    const std::u16string units = units_of(data, size);
    platform::registers = {};
    const std::u16string from_bytes = widened(bytes);
    const std::string from_units = narrowed(units);
    for (const platform::wide_registers& some : {platform::wide_registers{all.of_32_bytes, false}, all}) {
        platform::registers = some;
        check(widened(bytes) == from_bytes && narrowed(units) == from_units);
    }
    check(widened(narrowed(from_bytes)) == from_bytes && narrowed(widened(from_units)) == from_units);
    for (size_t at = 0; at < from_units.size();) {
        const platform::utf8_piece piece =
            platform::decode_utf8(from_units.data() + at, from_units.size() - at);
        check(!piece.malformed);
        at += piece.length;
    }
    return 0;
}
