// Patterns and message templates of any kind; dotted addresses, as the C library reads them but for one blank alone, and
// the way back.
#include <arpa/inet.h>

#include <algorithm>

#include "fuzz/check.h"
#include "platform/platform.h"
#include "zu/zu.h"

static void check_address(const std::string& text) {
    in_addr expected{INADDR_NONE};
    if (text == " ")
        expected.s_addr = 0;
    else if (inet_aton(text.c_str(), &expected) == 0)
        expected.s_addr = INADDR_NONE;
    const uint32_t address = ZU_inet_addr(text.c_str());
    check(address == expected.s_addr);
    char dotted[16];
    ZU_inet_ntoa(address, dotted);
    check(address == INADDR_NONE || ZU_inet_addr(dotted) == address);
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 1)
        return 0;
    check_address(std::string(data + 1, data + size).c_str());
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
