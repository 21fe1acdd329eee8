// What the reads of the registry make of a value: its kind, its size and its end, and a change of it. What a file of the
// registry means, results/ compares.
#include "support/portable.h"

namespace {

// A text of a key, or its code as "<2>".
std::u16string text(const std::u16string& key, const ZU_wchar* name = nullptr) {
    ZU_wchar* got = ZU_registry_get_str(HKEY_CURRENT_USER, (u"Software\\ZU_test" + key).c_str(), name);
    return got ? taken(got) : u"<" + wide(std::to_string(GetLastError())) + u">";
}

// "number, code".
std::string number(const std::u16string& key, const ZU_wchar* name = nullptr, HKEY root = HKEY_CURRENT_USER) {
    uint32_t value = 7;
    const uint32_t code =
        code_of(ZU_registry_get_uint32(root, (u"Software\\ZU_test" + key).c_str(), name, &value));
    return std::to_string(value) + ", " + std::to_string(code);
}

struct registry : scratch_test {
    void add(const std::string& lines) const {
        place.add_to_registry("[HKEY_CURRENT_USER\\Software\\zu_test" + lines + "\r\n");
    }
};

TEST_F(registry, texts_and_numbers) {
    const std::string long_text(1 << 20, 'z');
    add("\\\xC3\x84rger]\r\n@=\"C:\\\\new \xC3\xA4\"\r\n\"eleven\"=\"xxxxxxxxxxx\"\r\n"
        "\"twelve\"=\"yyyyyyyyyyyy\"\r\n\"unended\"=hex(1):61,00\r\n\"nothing\"=hex(1):\r\n"
        "\"expand\"=hex(2):25,00,00,00\r\n\"multi\"=hex(7):61,00,00,00,00,00\r\n\"number\"=dword:fffffffe\r\n"
        "\"four\"=hex:01,02,03,04\r\n\"quad\"=hex(b):01,02,03,04,05,06,07,08\r\n\"short\"=hex(4):fe\r\n"
        "\"none\"=hex(4):\r\n\"five\"=hex(4):01,02,03,04,05\r\n\"big\"=hex(5):00,00,00,01\r\n\"long\"=\""
        + long_text + "\"");
    const std::tuple<const ZU_wchar*, std::u16string, std::string> rows[] = {
        // clang-format off
        {nullptr, u"C:\\new \u00e4", "0, 2"}, {u"", u"C:\\new \u00e4", "0, 2"}, {u"eleven", u"xxxxxxxxxxx", "0, 2"},
        {u"TWELVE", u"yyyyyyyyyyyy", "0, 2"},  {u"unended", u"a", "0, 2"},        {u"nothing", u"", "0, 2"},
        {u"expand", u"%", "0, 2"},             {u"multi", u"<2>", "0, 234"},      {u"four", u"<2>", "0, 2"},
        {u"number", u"<2>", "4294967294, 0"},  {u"quad", u"<2>", "0, 234"},       {u"short", u"<2>", "254, 0"},
        {u"none", u"<2>", "0, 0"},             {u"five", u"<2>", "0, 234"},       {u"big", u"<2>", "0, 2"},
        {u"missing", u"<2>", "0, 2"},          {u"long", wide(long_text), "0, 2"}};
    // clang-format on
    for (const auto& [name, expected, expected_number] : rows) {
        EXPECT_TRUE(text(u"\\\u00e4RGER", name) == expected) << narrow(name ? name : u"default");
        EXPECT_EQ(number(u"\\\u00e4RGER", name), expected_number) << narrow(name ? name : u"default");
    }
    EXPECT_EQ(number(u"\\\u00e4rger", u"number", HKEY_LOCAL_MACHINE), "0, 2") << "another root";
    for (const ZU_wchar* key : {u"\\no", u"\\no\\\u00e4rger", u"/\u00e4rger"})
        EXPECT_EQ(text(key, u"number") + wide(number(key, u"number")), u"<2>0, 2") << narrow(key);
}

TEST_F(registry, a_change_is_seen_by_the_next_read) {
    EXPECT_EQ(text(u""), u"<2>") << "no key yet";
    for (const std::string n : {"1", "2", "3"}) {
        add("]\r\n\"text\"=\"" + n + "\"\r\n\"number\"=dword:" + n + "\r\n");
        add("\\deep\\key]\r\n@=dword:" + n);
        EXPECT_EQ(text(u"", u"text"), wide(n));
        EXPECT_EQ(number(u"", u"number") + number(u"\\deep\\key"), n + ", 0" + n + ", 0");
        add("]\r\n\"text\"=dword:9\r\n\"number\"=-\r\n[-HKEY_CURRENT_USER\\Software\\zu_test\\deep]");
        EXPECT_EQ(text(u"", u"text") + wide(number(u"", u"text")), u"<2>9, 0") << "of another kind";
        EXPECT_EQ(number(u"", u"number") + number(u"\\deep\\key"), "0, 20, 2");
    }
}

TEST_F(registry, a_text_is_read_whole_while_it_changes) {
    const std::u16string texts[] = {u"aaaaaaaaa", std::u16string(3000, u'b'), std::u16string(300, u'c')};
    const auto change = [&](int round) { add("]\r\n@=\"" + narrow(texts[round % 3]) + "\""); };
    change(0);
    std::atomic<bool> stop{false};
    std::atomic<int> seen[4]{}; // and what is none of them
    crew readers;
    for (int i = 0; i < 3; ++i)
        readers.add([&] {
            while (!stop)
                ++seen[std::find(texts, std::end(texts), text(u"")) - texts];
        });
    for (int round = 1; seen[3] == 0 && (round < 24 || !(seen[0] && seen[1] && seen[2])); ++round)
        change(round);
    stop = true;
    readers.join();
    EXPECT_EQ(seen[3], 0);
}

} // namespace
