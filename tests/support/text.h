// Wide text and UTF-8.
#pragma once

#include <filesystem>
#include <string>
#include <string_view>

namespace zu_test {

inline std::u16string wide(std::string_view utf8) {
    return std::filesystem::u8path(utf8).u16string();
}

inline std::string narrow(std::u16string_view text) {
    const std::u8string utf8 = std::filesystem::path(text).u8string();
    return {utf8.begin(), utf8.end()};
}

} // namespace zu_test
