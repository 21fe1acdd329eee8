// Formats of any kind over arguments that every conversion can take: pointers to texts. Areas of every size, which
// must be filled as the measured length says.
#include <utility>

#include "fuzz/check.h"
#include "platform/platform.h"

namespace {

constexpr size_t argument_count = 64; // a conversion takes at most as many arguments as it has units

const char16_t* const texts[] = {u"text", u"", u"a longer text, of more units than an area has", nullptr};

template <size_t... I>
int format(char16_t* out, size_t count, const char16_t* text, std::index_sequence<I...>) {
    return platform::_snwprintf(out, count, text, texts[I % 4]..., 1.5, -1e300, 0.0, 1e-320, 3.0, 2.5, 1e15,
                                -0.0);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 1 || size > argument_count)
        return 0;
    std::u16string text;
    for (size_t i = 1; i < size; ++i)
        text += static_cast<char16_t>(data[i] == 0xFF ? 0x20ac : data[i]);
    constexpr auto slots = std::make_index_sequence<argument_count>();
    char16_t area[257];
    area[256] = u'~';
    const size_t count = data[0];
    area[count] = u'~';
    const int measured = format(nullptr, 0, text.c_str(), slots);
    const int length = format(area, count, text.c_str(), slots);
    check(area[count] == u'~');
    const bool fits = measured >= 0 && static_cast<size_t>(measured) <= count;
    check(length == (fits ? measured : -1));
    if (fits && static_cast<size_t>(length) < count)
        check(area[length] == 0);
    return 0;
}
