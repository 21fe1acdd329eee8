// Patterns and message templates of any kind.
#include <algorithm>

#include "fuzz/check.h"
#include "zu/zu.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 1)
        return 0;
    std::u16string all(data + 1, data + size);
    std::erase(all, u'\0');
    const std::u16string first = all.substr(0, data[0]), second = all.substr(first.size());
    ZU_wildcard_match(first.c_str(), second.c_str());
    ZU_wildcard_match_win32_file(first.c_str(), second.c_str());
    // Widths of many digits make texts that no memory holds, and numbers of inserts beyond those that are passed.
    const auto are_digits = [](ZU_wchar a, ZU_wchar b) {
        return a >= u'0' && a <= u'9' && b >= u'0' && b <= u'9';
    };
    if (std::adjacent_find(all.begin(), all.end(), are_digits) != all.end())
        return 0;
    ZU_s s = nullptr;
    const int32_t length = ZU_s_format_message(&s, all.c_str(), u"1", u"22", static_cast<ZU_wchar*>(nullptr),
                                               u"4444", u"", u"6", u"7", u"8", u"9");
    check(length == static_cast<int32_t>(ZU_s_length(s)));
    ZU_s_destroy(&s);
    return 0;
}
