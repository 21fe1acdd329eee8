// Patterns, tokens and message templates of any kind.
#include <algorithm>

#include "fuzz/check.h"
#include "zu/zu.h"

namespace {

void tokens(std::u16string text, const std::u16string& separators) {
    const auto expected = std::count_if(
        text.begin(), text.end(), [&](ZU_wchar c) { return separators.find(c) == std::u16string::npos; });
    size_t letters = 0;
    ZU_wchar* context = nullptr;
    for (ZU_wchar* token = ZU_strtok(text.data(), separators.c_str(), &context); token;
         token = ZU_strtok(nullptr, separators.c_str(), &context)) {
        check(*token != 0);
        letters += std::char_traits<ZU_wchar>::length(token);
    }
    check(letters == static_cast<size_t>(expected));
}

// Widths of many digits, and those that an insert's address would give, make texts that no memory holds.
bool has_a_wide_field(const std::u16string& message) {
    size_t digits = 0;
    for (ZU_wchar c : message) {
        digits = c >= u'0' && c <= u'9' ? digits + 1 : 0;
        if (digits > 1 || c == u'*')
            return true;
    }
    return false;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 1)
        return 0;
    std::u16string all(data + 1, data + size);
    std::erase(all, u'\0');
    const std::u16string first = all.substr(0, data[0]), second = all.substr(first.size());
    ZU_wildcard_match(first.c_str(), second.c_str());
    ZU_wildcard_match_win32_file(first.c_str(), second.c_str());
    tokens(second, first);
    if (!has_a_wide_field(all)) {
        ZU_s s = nullptr;
        const int32_t length =
            ZU_s_format_message(&s, all.c_str(), u"1", u"22", static_cast<ZU_wchar*>(nullptr), u"4444", u"",
                                u"6", u"7", u"8", u"9");
        check(length == static_cast<int32_t>(ZU_s_length(s)));
        ZU_s_destroy(&s);
    }
    return 0;
}
