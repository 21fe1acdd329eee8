// Helpers on plain texts: tokens, splitting, trimming, numbers, short names, hashing, wildcards.
#include "support/portable.h"

namespace {

using texts = std::vector<std::u16string>;

TEST(text, tokens) {
    const std::tuple<std::u16string, const ZU_wchar*, texts> rows[] = {
        {u";;a;b;", u";", {u"a", u"b"}},       {u";;;", u";", {}}, {u"", u";", {}}, {u"abc", u"", {u"abc"}},
        {u"a b-c", u" -", {u"a", u"b", u"c"}},
    };
    ZU_wchar* context = nullptr;
    for (auto [text, separators, expected] : rows) {
        texts tokens;
        for (ZU_wchar* at = ZU_strtok(text.data(), separators, &context); at;
             at = ZU_strtok(nullptr, separators, &context))
            tokens.push_back(at);
        EXPECT_EQ(tokens, expected);
    }
    ZU_wchar text[] = u"name=a;b";
    EXPECT_EQ(std::u16string(ZU_strtok(text, u"=", &context)), u"name");
    EXPECT_EQ(std::u16string(ZU_strtok(nullptr, u";", &context)), u"a") << "other separators, the same place";
}

TEST(text, splitting) {
    const std::tuple<const ZU_wchar*, int, texts> rows[] = {
        // with two buffers and a null pointer
        {u"a--b", 0, {u"a", u"b"}}, {u"ab", -1, {u"~", u"~"}},    {u"a--b--c", -1, {u"a", u"b"}},
        {u"--", 0, {u"", u""}},     {u"a---b", 0, {u"a", u"-b"}},
    };
    for (const auto& [text, result, pieces] : rows) {
        ZU_wchar first[16] = u"~", second[16] = u"~";
        EXPECT_EQ(ZU_split(text, u"--", first, second, static_cast<ZU_wchar*>(nullptr)), result);
        EXPECT_EQ((texts{first, second}), pieces);
    }
}

TEST(text, trimming_numbers_and_hashes) {
    const std::pair<std::u16string, std::u16string> paths[] = {
        {u"C:\\dir\\ \\", u"C:\\dir"}, {u"\\", u"\\"}, {u" \\ ", u" "}, {u"", u""}};
    for (auto [path, trimmed] : paths) {
        ZU_trim_end_path_symbol(path.data());
        EXPECT_EQ(std::u16string(path.c_str()), trimmed);
    }
    ZU_wchar all[] = u"xxx";
    ZU_trim_end_char(all, u'x');
    EXPECT_EQ(std::u16string(all), u"");
    EXPECT_EQ(taken(ZU_str_make_short_name(u"abcdefgh", 5)), u"abcde...");
    EXPECT_EQ(taken(ZU_str_make_short_name(u"abcdefgh", 8)), u"abcdefgh");
    EXPECT_EQ(taken(ZU_str_make_short_name(u"abc", 0)), u"...");

    const std::tuple<const ZU_wchar*, bool, bool> numbers[] = {
        // with a sign, and without
        {u"-12", true, false}, {u"+", true, false},   {u"1.5", false, false}, {u"", false, false},
        {u"007", true, true},  {u"1-", false, false}, {u" 1", false, false},  {u"\uff11", false, false},
    };
    for (const auto& [text, with_sign, without] : numbers) {
        EXPECT_EQ(ZU_is_numeric(text, 0xFE), with_sign) << "only bit 0 counts";
        EXPECT_EQ(ZU_is_numeric(text, 0xFF), without);
    }
    EXPECT_EQ(ZU_hash_string_nocase(u"aBc"), 590u);
    EXPECT_EQ(ZU_hash_string_nocase(std::u16string(1 << 17, u'\uffff').c_str()), 0xFFFF0000u) << "sums wrap";
}

// Nothing is read behind a terminator, or behind the count, that lies at the end of a page.
TEST(text, at_the_end_of_a_page) {
    char16_t* const end = end_of_page();
    std::fill(end - 300, end, u'x');
    for (uint32_t length = 1; length < 300; ++length) {
        char16_t* const text = end - length;
        std::u16string expected(4 * length, u'x');
        ZU_s s = nullptr;
        ZU_s_insert_n(ZU_s_append_n(ZU_s_append_n(&s, text, length), text, length), 0, end - 300, length);
        ZU_s_append_sprintf(&s, u"%.*s", static_cast<int>(length), text);
        ASSERT_EQ(std::u16string(s), expected);
        end[-1] = 0;
        ZU_s_insert_n(ZU_s_append_n(ZU_s_sprintf(&s, u"%s", text), text, 5000), 0, text, 5000);
        ZU_s_append_n(&s, text, 5000); // for which there is room
        ASSERT_EQ(std::u16string(s), expected.substr(4));
        ZU_s_destroy(&s);
        expected.resize(length - 1);
        ASSERT_TRUE(ZU_wildcard_match((u"*" + expected).c_str(), text));
        end[-1] = u'x';
    }
}

// The meaning of a pattern, told by recursion.
bool matches(const ZU_wchar* pattern, const ZU_wchar* text) {
    if (*pattern == u'*')
        return matches(pattern + 1, text) || (*text && matches(pattern, text + 1));
    if (!*text)
        return !*pattern;
    return (*pattern == u'?' || *pattern == *text) && matches(pattern + 1, text + 1);
}

TEST(text, wildcards_mean_what_recursion_says) {
    const auto all_of = [](const std::u16string& letters) {
        texts all{u""};
        for (size_t i = 0; all[i].size() < 5; ++i) {
            for (char16_t c : letters)
                all.push_back(all[i] + c);
        }
        return all;
    };
    const texts names = all_of(u"ab");
    for (const std::u16string& pattern : all_of(u"ab*?")) {
        for (const std::u16string& name : names)
            ASSERT_EQ(ZU_wildcard_match(pattern.c_str(), name.c_str()) != 0,
                      matches(pattern.c_str(), name.c_str()));
    }
    const std::tuple<const ZU_wchar*, const ZU_wchar*, bool> files[] = {
        {u"*.*", u"README", true},  {u"a*.*", u"ABC", true},      {u"*.TXT", u"a.txt", true},
        {u"*.*.*", u"a.b", true},   {u"*.*.*", u"ab", false},     {u".*", u"ab", false},
        {u"*.t?t", u"x.tat", true}, {u"\u00c4", u"\u00e4", false}};
    for (const auto& [pattern, name, fits] : files)
        EXPECT_EQ(ZU_wildcard_match_win32_file(pattern, name), fits) << narrow(pattern);
}

} // namespace
