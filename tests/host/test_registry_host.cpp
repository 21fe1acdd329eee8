// The registry's files: their lines, their owners, what happens when they change, and the calls over them. About Linux:
// the registry is files of the host.
#include "platform/system/registry.h"
#include "support/test.h"

namespace {

using namespace std::string_literals;

class registry : public testing::Test {
protected:
    void write(const std::string& bytes) const { place.write("../host/registry.reg", bytes); }

    // A text as the library reads it, or its code as "<2>".
    static std::u16string text(const ZU_wchar* key, const ZU_wchar* name = nullptr,
                               HKEY root = HKEY_LOCAL_MACHINE) {
        ZU_wchar* got = ZU_registry_get_str(root, key, name);
        return got ? taken(got) : u"<" + wide(std::to_string(GetLastError())) + u">";
    }

    file_place place;
};

TEST_F(registry, a_users_own_file_comes_over_the_machines) {
    const auto read = [](HKEY root) {
        return text(u"k", u"a", root) + text(u"k", u"b", root) + text(u"k", u"c", root);
    };
    write("[HKEY_LOCAL_MACHINE\\k]\n\"a\"=\"1\"\n\"b\"=\"1\"\n\"c\"=\"1\"\n"
          "[HKEY_CURRENT_USER\\k]\n\"a\"=\"1\"\n\"b\"=\"1\"\n");
    setenv("HOME", place.host_path().c_str(), 1);
    EXPECT_EQ(read(HKEY_CURRENT_USER), u"11<2>");
    std::filesystem::create_directories(place.at(".config/zu"));
    const std::string own = ".config/zu/registry.reg";
    place.write(own, "[HKEY_CURRENT_USER\\k]\n\"b\"=\"2\"\n\"a\"=-\n\"c\"=\"2\"\n"
                     "[HKEY_LOCAL_MACHINE\\k]\n\"a\"=\"2\"\n");
    EXPECT_EQ(read(HKEY_CURRENT_USER), u"<2>22");
    EXPECT_EQ(read(HKEY_LOCAL_MACHINE), u"111") << "which is not the user's to change";
    if (chown(place.host_path(own).c_str(), 4000000, 4000000) != 0)
        GTEST_SKIP() << "only root can give a file away";
    EXPECT_EQ(read(HKEY_CURRENT_USER), u"<5><5><5>") << "another user's";
    EXPECT_EQ(read(HKEY_LOCAL_MACHINE), u"111");
}

// "first, count" of the lines that mean nothing.
std::string skipped(const std::string& bytes) {
    platform::registry_text text;
    platform::registry_node roots;
    EXPECT_EQ(text.decode(bytes), 0u);
    const platform::skipped_lines lines = platform::read_registry_text(text, roots);
    return std::to_string(lines.first) + ", " + std::to_string(lines.count);
}

// The command reads and writes all encodings, see test_tools.cpp.
TEST_F(registry, lines_of_the_older_format_and_without_a_meaning) {
    setenv("LC_ALL", "POSIX", 1);
    write("REGEDIT4\r\n\r\n[HKEY_LOCAL_MACHINE\\k]\r\n@=\"d\xE4\"\r\n\"e\"=hex(2):61,e4,00 ; a comment");
    const std::u16string letter = taken(ZU_char_2_wchar(ZU_ENCODING_ANSI, "\xE4", -1, nullptr));
    EXPECT_EQ(text(u"k") + text(u"k", u"e"), u"d" + letter + u"a" + letter);

    for (const char* line :
         {"\"a\"=\"unclosed", "\"a", "@", "\xFF\xC0", "=-", "[]", "[HKEY_LOCAL_MACHINE\\no"}) {
        EXPECT_EQ(skipped("; \n"s + line + "\n\n[HKEY_LOCAL_MACHINE\\k]\n@=\"after\""), "2, 1") << line;
    }
    const std::string bytes =
        "@=\"a\"\n[HKEY_LOCAL_MACHINE\\k]\n@=hex(1):61,00,62\n[HKEY_LOCAL_MACHINE\\unclosed\n@=\"c\"\n[]\n"
        "@=\"d\"\n[HKEY_LOCAL_MACHINE\\"
        + std::string(256, 'x') + "]\n@=\"e\"\n";
    write(bytes);
    EXPECT_EQ(skipped(bytes), "1, 7") << "values after a line that names no key belong to none";
    EXPECT_EQ(text(u"k"), u"ab");
}

// The reads of the library open no key without the right to read it, and keep none open.
TEST_F(registry, calls_give_the_platforms_codes) {
    write("[HKEY_LOCAL_MACHINE\\k]\n\"n\"=dword:7\n");
    SetLastError(77);
    HKEY parent, blind, key;
    ASSERT_EQ(platform::RegOpenKeyExW(HKEY_LOCAL_MACHINE, nullptr, 0, 1, &parent), 0);
    ASSERT_EQ(platform::RegOpenKeyExW(parent, u"K\\\\", 0, 0, &blind), 0);
    ASSERT_EQ(platform::RegOpenKeyExW(parent, u"k", 0, 1, &key), 0);
    const auto query = [](HKEY asked, platform::DWORD size) { // "code, size, number"
        uint32_t number = 99;
        const int32_t code = platform::RegQueryValueExW(asked, u"n", nullptr, nullptr,
                                                        reinterpret_cast<uint8_t*>(&number), &size);
        return std::to_string(code) + ", " + std::to_string(size) + ", " + std::to_string(number);
    };
    EXPECT_EQ(query(key, 3), "234, 4, 99");
    EXPECT_EQ(query(key, 4), "0, 4, 7");
    EXPECT_EQ(query(blind, 4), "5, 4, 99");
    write("");
    EXPECT_EQ(query(key, 4), "1018, 4, 99") << "the key is gone";
    EXPECT_EQ(query(parent, 4), "2, 4, 99") << "a root never is";
    for (const uint32_t code : {codes::none, codes::invalid_handle})
        for (const HKEY open : {parent, blind, key})
            EXPECT_EQ(platform::RegCloseKey(open), code) << "closed already";
    EXPECT_EQ(GetLastError(), 77u);
}

TEST_F(registry, a_changed_file_is_seen_at_once) {
    const std::string file = place.host_path("../host/registry.reg");
    EXPECT_EQ(text(u"k"), u"<2>") << "no file is an empty registry";
    const timespec past[] = {{1000, 0}, {1000, 0}};
    const auto write_number = [&](int number) {
        write("[HKEY_LOCAL_MACHINE\\k]\n@=\"" + std::to_string(number) + "\"");
        utimensat(AT_FDCWD, file.c_str(), past, 0); // the same size and times of writing
        EXPECT_EQ(text(u"k"), wide(std::to_string(number)));
    };
    for (int number = 100; number < 300; ++number)
        write_number(number);
    // Not settled yet, and taken apart only once for all.
    platform::state_pointer states[8];
    crew readers;
    for (platform::state_pointer& state : states)
        readers.add([&state] { EXPECT_EQ(platform::current_registry(false, state), 0u); });
    readers.join();
    EXPECT_EQ(std::set(states, std::end(states)).size(), 1u);
    chmod(file.c_str(), is_root() ? 0600 : 0644);
    sleep(4); // until it has settled and is kept
    for (int i = 0; i < 2; ++i)
        EXPECT_EQ(text(u"k"), u"299");
    const std::u16string for_others = is_root() ? u"<5>" : u"299";
    EXPECT_EQ(run_as_ordinary_user([&] { _exit(text(u"k") == for_others ? 0 : 1); }).exit_code, 0);
    setenv("HOME", place.host_path().c_str(), 1);
    const std::string own = place.host_path(".config/zu/registry.reg");
    std::filesystem::create_directories(own);
    EXPECT_EQ(text(u"k", u"a", HKEY_CURRENT_USER), u"<5>");
    std::filesystem::remove(own);
    EXPECT_EQ(text(u"k", u"a", HKEY_CURRENT_USER), u"<2>");
    write_number(300);
    unlink(file.c_str());
    EXPECT_EQ(text(u"k"), u"<2>");
    mkdir(file.c_str(), 0755);
    EXPECT_EQ(text(u"k"), u"<5>");
    std::filesystem::remove(file);
}

} // namespace
