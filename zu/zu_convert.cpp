// Character conversion: wide and narrow text both ways, and console output.
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

// What is to be converted. A text of more units than the platform counts cannot be, and nothing stands for it.
template <class Unit>
int32_t effective_length(const Unit* text, int32_t length) {
    while (length > 0 && text[length - 1] == 0)
        --length;
    if (length != -1)
        return length;
    const size_t measured = std::char_traits<Unit>::length(text);
    return measured <= INT32_MAX ? static_cast<int32_t>(measured) : 0;
}

// Both directions take the same steps.
template <class To, class From>
To* converted(uint32_t encoding, const From* text, int32_t length, uint32_t* result_length) {
    const zu::keep_last_error keep;
    if (result_length)
        *result_length = 0;
    length = effective_length(text, length);
    const code_page page = code_page_of(encoding);
    int size =
        length != 0 && page.known ? convert(page.number, text, length, static_cast<To*>(nullptr), 0) : 0;
    To* result = zu::allocate<To>(static_cast<uint32_t>(size) + 1);
    if (size > 0)
        size = convert(page.number, text, length, result, size);
    result[size] = 0;
    if (result_length)
        *result_length = static_cast<uint32_t>(size);
    return result;
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
