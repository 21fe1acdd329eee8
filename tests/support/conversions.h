// The conversions of the library, on texts of the C++ library.
#pragma once

#include <string>

#include <gtest/gtest.h>

#include "zu/zu.h"

namespace zu_test {

template <class To, class Convert, class From>
To converted(Convert* convert, uint32_t encoding, const From* text, size_t length) {
    uint32_t result_length = 99;
    auto* const units = convert(encoding, text, static_cast<int32_t>(length), &result_length);
    const To copy(units, result_length);
    EXPECT_EQ(units[result_length], 0);
    ZU_free(units);
    return copy;
}

inline std::u16string wide_of(const std::string& narrow, uint32_t encoding = ZU_ENCODING_UTF8) {
    return converted<std::u16string>(ZU_char_2_wchar, encoding, narrow.data(), narrow.size());
}

inline std::string narrow_of(const std::u16string& wide, uint32_t encoding = ZU_ENCODING_UTF8) {
    return converted<std::string>(ZU_wchar_2_char, encoding, wide.data(), wide.size());
}

} // namespace zu_test
