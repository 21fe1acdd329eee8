// What the reads of the registry make of a value: its kind, its size and its end, and a change of it. What a file of the
// registry means, results/ compares.
#include "support/portable.h"

namespace {

// "text number": what both functions give for a value of our key or one below it; a code as "<2>".
std::u16string read(const std::u16string& below, const ZU_wchar* name = nullptr,
                    HKEY root = HKEY_CURRENT_USER) {
    const std::u16string key = u"Software\\ZU_test" + below;
    const auto code = [] { return u'<' + wide(std::to_string(GetLastError())) + u'>'; };
    ZU_wchar* const text = ZU_registry_get_str(root, key.c_str(), name);
    const std::u16string first = text ? taken(text) : code();
    uint32_t number = 7;
    const bool done = ZU_registry_get_uint32(root, key.c_str(), name, &number);
    const std::u16string second = done ? wide(std::to_string(number)) : code();
    EXPECT_TRUE(done || number == 0);
    return first + u' ' + second;
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
    const std::pair<const ZU_wchar*, std::u16string> rows[] = {// clang-format off
        {nullptr, u"C:\\new \u00e4 <2>"}, {u"", u"C:\\new \u00e4 <2>"}, {u"eleven", u"xxxxxxxxxxx <2>"},
        {u"TWELVE", u"yyyyyyyyyyyy <2>"}, {u"unended", u"a <2>"},      {u"nothing", u" <2>"},     {u"expand", u"% <2>"},
        {u"multi", u"<2> <234>"}, {u"number", u"<2> 4294967294"},      {u"four", u"<2> <2>"},     {u"quad", u"<2> <234>"},
        {u"short", u"<2> 254"},   {u"none", u"<2> 0"},                 {u"five", u"<2> <234>"},   {u"big", u"<2> <2>"},
        {u"missing", u"<2> <2>"}, {u"long", wide(long_text + " <2>")}};
    // clang-format on
    for (const auto& [name, expected] : rows)
        EXPECT_TRUE(read(u"\\\u00e4RGER", name) == expected) << narrow(expected).substr(0, 99);
    EXPECT_EQ(read(u"\\\u00e4rger", u"number", HKEY_LOCAL_MACHINE), u"<2> <2>") << "another root";
    for (const ZU_wchar* key : {u"\\no", u"\\no\\\u00e4rger", u"/\u00e4rger"})
        EXPECT_EQ(read(key, u"number"), u"<2> <2>") << narrow(key);
}

TEST_F(registry, a_change_is_seen_by_the_next_read) {
    EXPECT_EQ(read(u""), u"<2> <2>") << "no key yet";
    for (const std::string n : {"1", "2", "3"}) {
        add("]\r\n\"text\"=\"" + n + "\"\r\n\"number\"=dword:" + n + "\r\n");
        add("\\deep\\key]\r\n@=dword:" + n);
        EXPECT_EQ(read(u"", u"text"), wide(n + " <2>"));
        EXPECT_EQ(read(u"", u"number") + read(u"\\deep\\key"), wide("<2> " + n + "<2> " + n));
        add("]\r\n\"text\"=dword:9\r\n\"number\"=-\r\n[-HKEY_CURRENT_USER\\Software\\zu_test\\deep]");
        EXPECT_EQ(read(u"", u"text"), u"<2> 9") << "of another kind";
        EXPECT_EQ(read(u"", u"number") + read(u"\\deep\\key"), u"<2> <2><2> <2>");
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
            for (std::u16string now; !stop; ++seen[std::find(texts, std::end(texts), now) - texts])
                now = taken(ZU_registry_get_str(HKEY_CURRENT_USER, u"Software\\zu_test", nullptr));
        });
    for (int round = 1; seen[3] == 0 && (round < 24 || !(seen[0] && seen[1] && seen[2])); ++round)
        change(round);
    stop = true;
    readers.join();
    EXPECT_EQ(seen[3], 0);
}

} // namespace
