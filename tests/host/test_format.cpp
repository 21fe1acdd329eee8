// The wide formatter: numbers beside the C library's own, texts by the platform's rules, and the counted area. About
// Linux: the layer's own formatter stands in for the platform's.
#include <cfloat>
#include <cmath>

#include "support/test.h"

namespace {

// The output, which must be the same whatever the area, as far as it goes.
template <class... Values>
std::u16string formatted(const std::u16string& format, Values... values) {
    const int measured = platform::_snwprintf(nullptr, 0, format.c_str(), values...);
    const size_t length = measured < 0 ? 0 : static_cast<size_t>(measured);
    std::u16string result;
    for (size_t room : {length + 1, length, length ? length - 1 : 0}) {
        std::u16string area(length + 2, u'~');
        EXPECT_EQ(platform::_snwprintf(area.data(), room, format.c_str(), values...),
                  room < length ? -1 : measured);
        if (room > length) {
            EXPECT_EQ(area[length], 0);
            result = area.substr(0, length);
        }
        EXPECT_EQ(area.substr(0, std::min(room, length)), result.substr(0, room));
        EXPECT_EQ(area[room], u'~') << "no unit beyond the area, and a terminator where there is room alone";
    }
    return result;
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
        for (const char* width : {"", "1", "6", "31"}) {
            for (const char* precision : {"", ".", ".1", ".9", ".40"})
                all.push_back(text + width + precision);
        }
    }
    return all;
}

// One conversion in both formatters, without the cost of an assertion for each of half a million cases.
template <class Wide, class Narrow>
bool agree(const std::string& wide_format, Wide value, const std::string& format, Narrow other) {
    char16_t area[512];
    const std::string expected = printed(format, other);
    const int length = platform::_snwprintf(area, std::size(area), wide(wide_format).c_str(), value);
    if (length >= 0 && narrow({area, static_cast<size_t>(length)}) == expected)
        return true;
    ADD_FAILURE() << wide_format << " gives " << narrow({area, 100}) << " in place of " << expected;
    return false;
}

TEST(format_numbers, integers_as_the_c_library_prints_them) {
    const int64_t values[] = {0,       1,       -1,          42,        0x1FF,    -0x8000,
                              INT_MAX, INT_MIN, 0x123456789, INT64_MAX, INT64_MIN};
    for (const std::string& text : all_modifiers()) {
        const std::string start = "%" + text;
        for (char letter : {'d', 'i', 'u', 'o', 'x', 'X'}) {
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

TEST(format_numbers, floating_point_as_the_c_library_prints_it) {
    const double values[] = {0.0,  -0.0,  0.5,     1.5,     2.5,      -0.5,   0.1,      9.9999995, 1234.5678,
                             1e15, 1e100, -1e-100, DBL_MAX, -DBL_MIN, 5e-324, INFINITY, -INFINITY, NAN};
    for (const std::string& text : all_modifiers()) {
        const std::string start = "%" + text;
        for (char letter : {'a', 'A', 'e', 'E', 'f', 'F', 'g', 'G'}) {
            for (double value : values) {
                const long double third = static_cast<long double>(value) / 3;
                ASSERT_TRUE(agree(start + letter, value, start + letter, value));
                ASSERT_TRUE(agree(start + "L" + letter, third, start + "L" + letter, third));
            }
        }
    }
}

TEST(format_numbers, widths_and_precisions_beyond_any_area) {
    for (const char* text : {"500", "-500", "0500", "#.1099", ".1100", ".1101", "#.5000", "+09000.3000"}) {
        const std::string start = std::string("%") + text;
        for (const std::string& format : {start + "a", start + "e", start + "f", start + "g"}) {
            for (double value : {5e-324, -DBL_MAX, 0.0, 1.0 / 3, static_cast<double>(INFINITY)})
                EXPECT_EQ(narrow(formatted(wide(format), value)), printed(format, value)) << format;
        }
        EXPECT_EQ(narrow(formatted(wide(start + "d"), -7)), printed(start + "d", -7)) << text;
    }
    const long double tiny = LDBL_MIN / 3;
    EXPECT_EQ(narrow(formatted(u"%.17000Lf|%.20000Le", tiny, tiny)),
              printed("%.17000Lf|%.20000Le", tiny, tiny));
    EXPECT_EQ(platform::_snwprintf(nullptr, 0, u"%2147483647d%d", 1, 1), -1) << "a length that is no int";
    EXPECT_EQ(platform::_snwprintf(nullptr, 0, u"%99999999999999999999d", 1), INT_MAX);
}

TEST(format_numbers, a_decimal_point_of_several_bytes_is_one_character) {
    const file_place place;
    if (run_command("localedef -i ps_AF -f UTF-8 " + place.host_path("ps_AF.UTF-8")).exit_code != 0)
        GTEST_SKIP() << "the host cannot make the locale: no localedef, or not its sources";
    setenv("LOCPATH", place.host_path().c_str(), 1);
    ASSERT_STREQ(setlocale(LC_NUMERIC, "ps_AF.UTF-8"), "ps_AF.UTF-8");
    EXPECT_EQ(formatted(u"%.2f|%08.1f|%-7.1f|%e|%.1101f", 1.5, -0.5, 2.5, 1e9, 0.5).substr(0, 41),
              u"1\u066b50|-00000\u066b5|2\u066b5    |1\u066b000000e+09|0\u066b5000");
    setlocale(LC_NUMERIC, "C");
}

TEST(format_texts, by_the_rules_of_the_platform) {
    const char narrow[] = "nar\xe9", narrow_open[] = {'a', 'b', 'c'};
    const char16_t wide[] = u"wid\u20ac", wide_open[] = {u'a', u'b', u'c'};
    const auto* no_wide = static_cast<const char16_t*>(nullptr);
    const auto* no_narrow = static_cast<const char*>(nullptr);
    auto* address = reinterpret_cast<void*>(uintptr_t{0xABC});
    const std::u16string zeros(2 * sizeof(void*) - 3, u'0');
    int stored = 7;
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
        {formatted(u"100%%|%5%|%-%"), u"100%|%|%"},
        {formatted(u"abc%"), u"abc"},
        {formatted(u"abc%-08.3l"), u"abc"},
        {formatted(u"%d%*", 1, 2), u"1"},
        {formatted(u"%n%d", &stored, 42), u"42"},
    };
    for (const auto& [actual, expected] : rows)
        EXPECT_EQ(actual, expected);
    EXPECT_EQ(stored, 7) << "%n takes its argument and stores nothing";
}

} // namespace
