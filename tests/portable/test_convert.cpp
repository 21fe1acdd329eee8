// Conversions between wide and narrow text.
#include "support/portable.h"

namespace {

TEST(utf8, marks_for_malformed_text) {
    // The expected text with a dot for each mark.
    const std::pair<std::string, std::u16string> rows[] = {
        // clang-format off
        {"\xC0\x80", u".."},         {"\xC1\xBF" "A", u"..A"},   {"\xE0\x80\x80", u"..."},
        {"\xE0\x9F\xBF" "A", u"...A"}, {"\xF0\x80\x80\x80", u"...."}, {"\xED\xA0\xBD\xED\xB8\x80", u"......"},
        {"\xF4\x90\x80\x80", u"...."}, {"\xF5\x80\xFE\xFF", u"...."}, {"\x80\xBF" "A", u"..A"},
        {"\xDF\xC1", u".."},         {"\xC3\xC0" "A", u"..A"},
        {"\xC3", u"."},              {"\xC3\xC3\xA9", u".\u00e9"}, {"\xE2\x82", u"."},
        {"\xE2" "A", u".A"},         {"\xE2\x82" "A", u".A"},    {"\xF0\x9F\x98", u"."},
        {"\xF0\x9F" "A", u".A"},     {"\xF1\x80\x80\xE1\x80\xC2" "b", u"...b"},
        {"\xEF\xBF\xBF\xEF\xBB\xBF\xF4\x8F\xBF\xBF", u"\uffff\ufeff\U0010FFFF"},
        // clang-format on
    };
    for (auto [bytes, expected] : rows) {
        std::replace(expected.begin(), expected.end(), u'.', u'\ufffd');
        for (size_t before : {0, 1, 31, 32, 33, 64}) { // blocks of ASCII end before, at and after the place
            const std::u16string wide = std::u16string(before, u'x') + expected;
            EXPECT_EQ(wide_of(std::string(before, 'x') + bytes), wide);
            EXPECT_EQ(wide_of(std::string(before, 'x') + bytes + std::string(70, 'y')),
                      wide + std::u16string(70, u'y'));
        }
    }
    const char16_t high = 0xD83D, low = 0xDE00;
    EXPECT_EQ(narrow_of({low, u'x', high}), "\xEF\xBF\xBDx\xEF\xBF\xBD");
    EXPECT_EQ(narrow_of({low, high, high, low}), "\xEF\xBF\xBD\xEF\xBF\xBD\xF0\x9F\x98\x80");
}

TEST(utf8, every_character_as_the_plain_algorithm_converts_it) {
    std::mt19937 random(815);
    std::u16string all;
    for (uint32_t c = 1; c <= 0x10FFFF; c += c < 0x3000 ? 1 : 61) {
        if (c >= 0x10000)
            all += {static_cast<char16_t>(0xD7C0 + (c >> 10)), static_cast<char16_t>(0xDC00 | (c & 0x3FF))};
        else if (c < 0xD800 || c >= 0xE000)
            all += static_cast<char16_t>(c);
        all.append(random() % 8 == 0 ? random() % 70 : 0, u'x'); // runs of ASCII at every alignment
    }
    EXPECT_TRUE(narrow_of(all) == narrow(all));
    EXPECT_TRUE(wide_of(narrow(all)) == all);
}

TEST(conversion, lengths_encodings_and_the_code) {
    const std::tuple<uint32_t, int, std::string> rows[] = {
        // clang-format off
        {ZU_ENCODING_UTF8, -1, "ab"}, {ZU_ENCODING_UTF8, 0, ""},   {ZU_ENCODING_UTF8, 1, "a"}, {3, 2, ""}, {0, -1, ""},
        {ZU_ENCODING_UTF8, 4, "ab"},  {ZU_ENCODING_ANSI, 4, "ab"}, {ZU_ENCODING_UTF8, 5, std::string("ab\0\0c", 5)},
        // clang-format on
    };
    SetLastError(4711);
    for (const auto& [encoding, length, expected] : rows) {
        const auto size = static_cast<size_t>(length);
        EXPECT_EQ(converted<std::string>(ZU_wchar_2_char, encoding, u"ab\0\0c", size), expected);
        EXPECT_EQ(converted<std::u16string>(ZU_char_2_wchar, encoding, "ab\0\0c", size), wide(expected));
    }
    ZU_free(ZU_wchar_2_char(ZU_ENCODING_UTF8, u"\0\0", 2, nullptr));
    EXPECT_EQ(GetLastError(), 4711u);
}

const part prints("prints", [](const words&) { return ZU_printf_ex(u"%s %5lu\u20ac\n", u"wide", 42u); });

TEST(console, text_and_count_as_another_process_sees_them) {
    const std::string text = narrow_of(u"wide    42\u20ac\n", ZU_ENCODING_ANSI);
    const outcome end = child(prints).end();
    EXPECT_EQ(end.output, text);
    EXPECT_EQ(end.exit_code, static_cast<int>(text.size()));
    EXPECT_EQ(end.error_output, "");
}

} // namespace
