// Reads of the registry: names, long texts, and values that change. What a file of the registry means, and what becomes
// of each kind of value, results/ compares.
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

TEST_F(registry, names_of_any_letters_and_texts_of_any_length) {
    const std::string long_text(1 << 20, 'z');
    add("\\\xC3\x84rger]\r\n@=\"C:\\\\new \xC3\xA4\"\r\n\"n\xC3\xB6\"=dword:fffffffe\r\n"
        "\"big\"=hex(5):00,00,00,01\r\n\"long\"=\""
        + long_text + "\"");
    const std::pair<const ZU_wchar*, std::u16string> rows[] = {
        {nullptr, u"C:\\new \u00e4 <2>"}, {u"", u"C:\\new \u00e4 <2>"},
        {u"N\u00d6", u"<2> 4294967294"},  {u"big", u"<2> <2>"},
        {u"missing", u"<2> <2>"},         {u"LONG", wide(long_text + " <2>")}};
    for (const auto& [name, expected] : rows)
        EXPECT_TRUE(read(u"\\\u00e4RGER", name) == expected) << narrow(expected).substr(0, 99);
    EXPECT_EQ(read(u"\\\u00e4rger", u"n\u00f6", HKEY_LOCAL_MACHINE), u"<2> <2>") << "another root";
    for (const ZU_wchar* key : {u"\\no", u"\\no\\\u00e4rger", u"/\u00e4rger"})
        EXPECT_EQ(read(key, u"n\u00f6"), u"<2> <2>") << narrow(key);
}

TEST_F(registry, a_text_is_read_whole_while_it_changes) {
    const std::u16string texts[] = {u"aaaaaaaaa", std::u16string(3000, u'b'), std::u16string(300, u'c')};
    const auto now = [] {
        return taken(ZU_registry_get_str(HKEY_CURRENT_USER, u"Software\\zu_test", nullptr));
    };
    const auto change = [&](int round) {
        add("]\r\n@=\"" + narrow(texts[round % 3]) + "\"");
        EXPECT_TRUE(now() == texts[round % 3]) << "the next read";
    };
    change(0);
    std::atomic<bool> stop{false};
    std::atomic<int> seen[4]{}; // and what is none of them
    crew readers;
    for (int i = 0; i < 3; ++i)
        readers.add([&] {
            while (!stop)
                ++seen[std::find(texts, std::end(texts), now()) - texts];
        });
    for (int round = 1; !HasFailure() && seen[3] == 0 && (round < 24 || !(seen[0] && seen[1] && seen[2]));
         ++round)
        change(round);
    stop = true;
    readers.join();
    EXPECT_EQ(seen[3], 0);
}

} // namespace
