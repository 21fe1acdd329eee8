// Character conversion: wide and narrow text both ways, and console output.
#include <algorithm>
#include <cstdio>

#include "zu/zu_support.h"

namespace {

struct code_page {
    platform::UINT number;
    bool known;
};

code_page code_page_of(uint32_t encoding) {
    switch (encoding) {
    case ZU_ENCODING_ANSI: return {CP_ACP, true};
    case ZU_ENCODING_UTF8: return {CP_UTF8, true};
    default: return {0, false};
    }
}

int convert(platform::UINT page, const ZU_wchar* text, int32_t length, char* out, int size) {
    return platform::WideCharToMultiByte(page, 0, text, length, out, size, nullptr, nullptr);
}

int convert(platform::UINT page, const char* text, int32_t length, ZU_wchar* out, int size) {
    return platform::MultiByteToWideChar(page, 0, text, length, out, size);
}

// The count of units to convert. The platform counts them in 31 bits: a longer text gives an empty one.
template <class Unit>
int32_t effective_length(const Unit* text, int32_t length) {
    while (length > 0 && text[length - 1] == 0)
        --length;
    if (length != -1)
        return length;
    const size_t measured = std::char_traits<Unit>::length(text);
    return measured <= INT32_MAX ? static_cast<int32_t>(measured) : 0;
}

// Room that the result probably needs, so that it need not be measured; 0 where measuring costs less. A unit becomes at
// most three bytes of UTF-8.
int likely_room(const ZU_wchar*, int32_t length) {
    constexpr int32_t longest = 512;
    return length > 0 && length <= longest ? 3 * length : 0;
}

// A byte of UTF-8 becomes at most one unit. In a long text the bytes that begin a character are counted, and counted
// twice if the character becomes a surrogate pair. Malformed text may need more.
int likely_room(const char* text, int32_t length) {
    constexpr int32_t short_length = 512, block = 64;
    if (length <= short_length)
        return std::max(length, 0);
    int32_t room = 0, at = 0;
    for (; length - at >= block; at += block) {
        uint8_t units = 0;
        for (int32_t i = at; i < at + block; ++i)
            units = static_cast<uint8_t>(units + (static_cast<int8_t>(text[i]) >= -64)
                                         + (static_cast<uint8_t>(text[i]) >= 0xF0));
        room += units;
    }
    return room + (length - at);
}

// Both directions take the same steps.
template <class To, class From>
To* converted(uint32_t encoding, const From* text, int32_t length, uint32_t* result_length) {
    const zu::keep_last_error keep;
    const code_page page = code_page_of(encoding);
    length = page.known ? effective_length(text, length) : 0;
    int room = likely_room(text, length);
    zu::owned<To> result(zu::allocate<To>(static_cast<uint32_t>(room) + 1));
    int size = room > 0 ? convert(page.number, text, length, result.get(), room) : 0;
    // Nothing was tried, or the room was too small, or the conversion fails and will fail again.
    if (size == 0 && length != 0) {
        room = convert(page.number, text, length, static_cast<To*>(nullptr), 0);
        result.reset(zu::allocate<To>(static_cast<uint32_t>(room) + 1));
        size = room > 0 ? convert(page.number, text, length, result.get(), room) : 0;
    }
    result[static_cast<size_t>(size)] = 0;
    if (result_length)
        *result_length = static_cast<uint32_t>(size);
    return result.release();
}

} // namespace

char* ZU_wchar_2_char(uint32_t encoding, const ZU_wchar* text, int32_t length, uint32_t* result_length) {
    return converted<char>(encoding, text, length, result_length);
}

ZU_wchar* ZU_char_2_wchar(uint32_t encoding, const char* text, int32_t length, uint32_t* result_length) {
    return converted<ZU_wchar>(encoding, text, length, result_length);
}

int32_t ZU_printf_ex(const ZU_wchar* format, ...) {
    zu::scoped_string text;
    va_list arguments;
    va_start(arguments, format);
    ZU_s_sprintf_i(text.address(), format, arguments);
    va_end(arguments);
    const zu::owned<char> narrow(
        ZU_wchar_2_char(ZU_ENCODING_ANSI, text.text(), static_cast<int32_t>(text.length()), nullptr));
    const platform::quiet_pipes quiet;
    return std::printf("%s", narrow.get());
}
