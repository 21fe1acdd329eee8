// The wide formatter: whole numbers beside the C library's own, and texts by the platform's rules.
#include "support/portable.h"

namespace {

template <class... Values>
std::u16string formatted(const std::u16string& format, Values... values) {
    ZU_s out = nullptr;
    ZU_s_sprintf(&out, format.c_str(), values...);
    const std::u16string copy(ZU_s_text(out), ZU_s_length(out));
    ZU_s_destroy(&out);
    return copy;
}

template <class... Values>
std::string printed(const std::string& format, Values... values) {
    std::string text(static_cast<size_t>(std::snprintf(nullptr, 0, format.c_str(), values...)), 0);
    std::snprintf(text.data(), text.size() + 1, format.c_str(), values...);
    return text;
}

// Every set of flags, with a few widths and precisions: what stands between the percent sign and the size.
std::vector<std::string> all_modifiers() {
    std::vector<std::string> all;
    for (unsigned flags = 0; flags < 32; ++flags) {
        std::string text;
        for (unsigned i = 0; i < 5; ++i)
            text += std::string(flags >> i & 1, "-+ #0"[i]);
        for (const char* width : {"", "6"}) {
            for (const char* precision : {"", ".9"})
                all.push_back(text + width + precision);
        }
    }
    return all;
}

// One conversion in both formatters, without the cost of an assertion for each of half a million cases.
template <class Wide, class Narrow>
bool agree(const std::string& wide_format, Wide value, const std::string& format, Narrow other) {
    const std::string expected = printed(format, other), text = narrow(formatted(wide(wide_format), value));
    if (text == expected)
        return true;
    ADD_FAILURE() << wide_format << " gives " << text << " in place of " << expected;
    return false;
}

TEST(format_numbers, integers_as_the_c_library_prints_them) {
    const int64_t values[] = {0, -1, 0x1FF, INT_MIN, INT64_MIN};
    for (const std::string& text : all_modifiers()) {
        const std::string start = "%" + text;
        const bool is_of_signed_ones = text.find_first_of("+ ") != text.npos; // and nothing for the others
        for (char letter : std::string_view(is_of_signed_ones ? "di" : "diuoxX")) {
            for (int64_t value : values) {
                const int low = static_cast<int>(value);
                ASSERT_TRUE(agree(start + letter, low, start + letter, low));
                ASSERT_TRUE(agree(start + "hh" + letter, low, start + "h" + letter, low));
                ASSERT_TRUE(agree(start + "I32" + letter, value, start + letter, low));
                ASSERT_TRUE(agree(start + "l" + letter, value, start + letter, low));
                ASSERT_TRUE(agree(start + "ll" + letter, value, start + "j" + letter, value));
                ASSERT_TRUE(agree(start + "I64" + letter, value, start + "j" + letter, value));
                ASSERT_TRUE(
                    agree(start + "I" + letter, value, start + "t" + letter, static_cast<ptrdiff_t>(value)));
            }
        }
    }
}

TEST(format_texts, by_the_rules_of_the_platform) {
    const char narrow[] = "nar\xe9", narrow_open[] = {'a', 'b', 'c'};
    const char16_t wide[] = u"wid\u20ac", wide_open[] = {u'a', u'b', u'c'};
    const auto* no_wide = static_cast<const char16_t*>(nullptr);
    const auto* no_narrow = static_cast<const char*>(nullptr);
    auto* address = reinterpret_cast<void*>(uintptr_t{0xABC});
    const std::u16string zeros(2 * sizeof(void*) - 3, u'0');
    const std::pair<std::u16string, std::u16string> rows[] = {
        {formatted(u"%s|%ls|%ws|%lS|%Ls", wide, wide, wide, wide, wide),
         u"wid\u20ac|wid\u20ac|wid\u20ac|wid\u20ac|wid\u20ac"},
        {formatted(u"%S|%hs|%hS", narrow, narrow, narrow), u"nar\u00e9|nar\u00e9|nar\u00e9"},
        {formatted(u"%c%lc%wc%lC|%C%hc", 0x20ac, 0x20ac, 0x20ac, 0x20ac, 0x141, 0x141),
         u"\u20ac\u20ac\u20ac\u20ac|AA"},
        {formatted(u"a%cb", 0), std::u16string(u"a\0b", 3)},
        {formatted(u"%s|%S|%hs", no_wide, no_narrow, no_narrow), u"(null)|(null)|(null)"},
        {formatted(u"%.3s|%10s|%-10S|", no_wide, no_wide, no_narrow), u"(nu|    (null)|(null)    |"},
        {formatted(u"%6s|%-6s|%.2s|%6.2S|%-6.2hs|", u"abc", u"abc", u"abc", "abc", "abc"),
         u"   abc|abc   |ab|    ab|ab    |"},
        {formatted(u"%05s|%-05s|%03c|%.0s|%.s", u"ab", u"ab", 'x', u"ab", u"ab"), u"000ab|ab   |00x||"},
        {formatted(u"%*s|%*s|%.*s|%.*s", 4, u"ab", -4, u"ab", 1, u"ab", -1, u"ab"), u"  ab|ab  |a|ab"},
        {formatted(u"%.3s%.2S", wide_open, narrow_open), u"abcab"},
        {formatted(u"%*d|%-*d|%.*d", -5, 42, 5, 42, -1, 42), u"42   |42   |42"},
        {formatted(u"%#x|%#x|%.0d|%hhd", 0, 255, 0, 0x1FF), u"0|0xff||511"},
        {formatted(u"%p|%#p|%-20p|", address, address, address),
         zeros + u"ABC|0X" + zeros + u"ABC|" + (zeros + u"ABC            ").substr(0, 20) + u"|"},
        {formatted(u"%Iu|%zd|%jd|%td", size_t{5}, ssize_t{-6}, intmax_t{-7}, ptrdiff_t{-8}), u"5|-6|-7|-8"},
        {formatted(u"%y%q%k%b%m%Z%wZ|%d", 42), u"yqkbmZZ|42"},
        {formatted(u"%'d|%1$d|%I5|%Is|%I6d", 1), u"'d|$d|I5|Is|I6d"},
        {formatted(u"100%%|"), u"100%|"},
        {formatted(u"abc%"), u"abc"},
        {formatted(u"abc%-08.3l"), u"abc"},
        {formatted(u"%d%*", 1, 2), u"1"},
    };
    for (const auto& [actual, expected] : rows)
        EXPECT_EQ(actual, expected);
}

TEST(format_texts, rare_conversions) {
    int stored = 7;
    EXPECT_EQ(formatted(u"%5%|%-%"), u"%|%");
    EXPECT_EQ(formatted(u"%n%d", &stored, 42), u"42");
    EXPECT_EQ(formatted(u"%06.d|%06.d|%-6.d|", 0, 5, 0), u"      |     5|      |");
    EXPECT_EQ(stored, 7) << "%n takes its argument";
}

} // namespace
