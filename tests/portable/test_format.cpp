// The wide formatter: texts by the platform's rules. Numbers are those of results/.
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

TEST(format_texts, by_the_rules_of_the_platform) {
    const char narrow[] = "nar\xe9", narrow_open[] = {'a', 'b', 'c'};
    const char16_t wide[] = u"wid\u20ac", wide_open[] = {u'a', u'b', u'c'};
    const auto* no_wide = static_cast<const char16_t*>(nullptr);
    const auto* no_narrow = static_cast<const char*>(nullptr);
    const std::pair<std::u16string, std::u16string> rows[] = {
        {formatted(u"%s|%ls|%ws|%lS|%Ls", wide, wide, wide, wide, wide),
         u"wid\u20ac|wid\u20ac|wid\u20ac|wid\u20ac|wid\u20ac"},
        {formatted(u"%S|%hs|%hS", narrow, narrow, narrow), u"nar\u00e9|nar\u00e9|nar\u00e9"},
        {formatted(u"%c%lc%wc%lC|%C%hc", 0x20ac, 0x20ac, 0x20ac, 0x20ac, 0x141, 0x141),
         u"\u20ac\u20ac\u20ac\u20ac|AA"},
        {formatted(u"a%cb", 0), std::u16string(u"a\0b", 3)},
        {formatted(u"%s|%S|%hs", no_wide, no_narrow, no_narrow), u"(null)|(null)|(null)"},
        {formatted(u"%05s|%-05s|%03c|%.0s|%.s", u"ab", u"ab", 'x', u"ab", u"ab"), u"000ab|ab   |00x||"},
        {formatted(u"%.3s%.2S", wide_open, narrow_open), u"abcab"},
        {formatted(u"%Iu|%zd|%jd|%td", size_t{5}, ssize_t{-6}, intmax_t{-7}, ptrdiff_t{-8}), u"5|-6|-7|-8"},
        {formatted(u"100%%|"), u"100%|"},
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
