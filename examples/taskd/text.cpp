#include "text.h"

#include <algorithm>
#include <charconv>

#include "failed.h"

wide_text wide(std::string_view utf8) {
    uint32_t length = 0;
    ZU_wchar* text =
        ZU_char_2_wchar(ZU_ENCODING_UTF8, utf8.data(), static_cast<int32_t>(utf8.size()), &length);
    wide_text result(text, length);
    ZU_free(text);
    return result;
}

std::string narrow(const ZU_wchar* text) {
    uint32_t length = 0;
    char* utf8 = ZU_wchar_2_char(ZU_ENCODING_UTF8, text, -1, &length);
    std::string result(utf8, length);
    ZU_free(utf8);
    return result;
}

std::string taken(ZU_wchar* text) {
    std::string result = text ? narrow(text) : "";
    ZU_free(text);
    return result;
}

wide_text library_path(std::string text) {
    if (text.starts_with('/'))
        text.insert(0, "C:");
    std::replace(text.begin(), text.end(), '/', '\\');
    return wide(text);
}

std::string full_path(const std::string& path) {
    const wide_text given = library_path(path);
    const size_t name = given.rfind('\\') + 1; // 0 where there is no directory
    const wide_text directory = name == 0 ? wide(".") : given.substr(0, name);
    ZU_wchar* const full = ZU_get_actual_full_path(directory.c_str());
    if (!full)
        fail("the directory of " + path);
    return taken(full) + '\\' + narrow(given.c_str() + name);
}

std::string error_text(uint32_t code) {
    const std::string text = taken(ZU_get_error_msg(code));
    return text.empty() ? "error " + std::to_string(code) : text;
}

std::string local_time(ZU_time_t time) {
    ZU_wchar text[20];
    ZU_write_time_t(time, text);
    return {text, text + std::char_traits<ZU_wchar>::length(text)};
}

std::string_view trimmed(std::string_view text) {
    const size_t begin = text.find_first_not_of(" \t\r\n");
    if (begin == text.npos)
        return {};
    return text.substr(begin, text.find_last_not_of(" \t\r\n") - begin + 1);
}

std::vector<std::string_view> pieces(std::string_view text, char separator, size_t at_most) {
    std::vector<std::string_view> result;
    while (result.size() + 1 < at_most && text.find(separator) != text.npos) {
        result.push_back(trimmed(text.substr(0, text.find(separator))));
        text.remove_prefix(text.find(separator) + 1);
    }
    result.push_back(trimmed(text));
    return result;
}

std::vector<std::string_view> words(std::string_view text) {
    std::vector<std::string_view> result = pieces(text, ' ');
    std::erase_if(result, [](std::string_view word) { return word.empty(); });
    return result;
}

bool read_number(std::string_view text, int32_t& number) {
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    return error == std::errc{} && end == text.data() + text.size();
}
