// The registry's files: their encodings, their owners, what happens when they change, and the calls over them. What a
// file of the platform's own means, results/ compares. About Linux: the registry is files of the host.
#include <mutex>

#include "platform/system/registry.h"
#include "support/test.h"

namespace {

using namespace std::string_literals;

class registry : public testing::Test {
protected:
    void write(const std::string& bytes) const { place.write("../host/registry.reg", bytes); }

    // A text as the library reads it, or its code as "<2>".
    static std::u16string text(const std::u16string& path, const ZU_wchar* name = nullptr) {
        ZU_wchar* got = ZU_registry_get_str(HKEY_LOCAL_MACHINE, path.c_str(), name);
        return got ? taken(got) : u"<" + wide(std::to_string(GetLastError())) + u">";
    }

    file_place place;
};

// The command reads and writes all encodings, see test_tools.cpp. The values are those of results/, with some that
// another platform's reader takes for something else.
TEST_F(registry, texts_and_numbers) {
    setenv("LC_ALL", "POSIX", 1);
    const std::string long_text(1 << 20, 'z');
    write(
        "[HKEY_LOCAL_MACHINE\\Software\\\xC3\x84rger]\r\n@=\"C:\\new \xC3\xA4\"\r\n\"eleven\"=\"xxxxxxxxxxx\"\r\n"
        "\"twelve\"=\"yyyyyyyyyyyy\"\r\n\"lines\"=\"one\r\ntwo\" ; a comment\r\n\"odd\"=hex(1):61,00,62\r\n"
        "\"nothing\"=hex(1):\r\n\"expand\"=hex(2):25,00,00,00\r\n\"number\"=dword:fffffffe\r\n\"four\"=hex:1,2,3,4\r\n"
        "\"quad\"=hex(b):1,2,3,4,5,6,7,8\r\n\"short\"=hex(4):fe\r\n\"none\"=hex(4):\r\n\"long\"=\""
        + long_text + "\"");
    const std::u16string key = u"SOFTWARE\\\u00e4RGER";
    const std::tuple<const ZU_wchar*, std::u16string, uint32_t, uint32_t> rows[] = {
        // the number, and its code
        // clang-format off
        {nullptr, u"C:\\new \u00e4", 0, 2}, {u"eleven", u"xxxxxxxxxxx", 0, 2}, {u"TWELVE", u"yyyyyyyyyyyy", 0, 2},
        {u"lines", u"one\r\ntwo", 0, 2},    {u"odd", u"ab", 0, 2},             {u"nothing", u"", 0, 2},
        {u"expand", u"%", 0, 2},            {u"four", u"<2>", 0, 2},           {u"number", u"<2>", 0xFFFFFFFE, 0},
        {u"quad", u"<2>", 0, 234},          {u"short", u"<2>", 0xFE, 0},       {u"none", u"<2>", 0, 0},
        {u"missing", u"<2>", 0, 2},         {u"long", wide(long_text), 0, 2}};
    // clang-format on
    uint32_t number;
    for (const auto& [name, expected, expected_number, code] : rows) {
        number = 7;
        EXPECT_TRUE(text(key, name) == expected) << narrow(name ? name : u"default");
        EXPECT_EQ(code_of(ZU_registry_get_uint32(HKEY_LOCAL_MACHINE, key.c_str(), name, &number)), code)
            << narrow(expected);
        EXPECT_EQ(number, expected_number) << narrow(name ? name : u"default");
    }
    EXPECT_EQ(code_of(ZU_registry_get_uint32(HKEY_LOCAL_MACHINE, u"no", u"n", &(number = 7))),
              codes::file_not_found);
    EXPECT_EQ(number, 0u);

    // The older format is in the host's character set.
    write("REGEDIT4\r\n\r\n[HKEY_LOCAL_MACHINE\\k]\r\n@=\"d\xE4\"\r\n\"e\"=hex(2):61,e4,00\n\"n\"=hex(4):e4");
    const std::u16string letter = taken(ZU_char_2_wchar(ZU_ENCODING_ANSI, "\xE4", -1, nullptr));
    EXPECT_EQ(text(u"k"), u"d" + letter);
    EXPECT_EQ(text(u"k", u"e"), u"a" + letter);
    EXPECT_TRUE(ZU_registry_get_uint32(HKEY_LOCAL_MACHINE, u"k", u"n", &number));
    EXPECT_EQ(number, 0xE4u);
}

TEST_F(registry, a_users_own_file_comes_over_the_machines) {
    const auto read = [](HKEY root) {
        std::string numbers;
        for (const ZU_wchar* name : {u"a", u"b", u"c"}) {
            uint32_t number;
            const uint32_t code = code_of(ZU_registry_get_uint32(root, u"k", name, &number));
            numbers += code ? "code " + std::to_string(code) + " " : std::to_string(number) + " ";
        }
        return numbers;
    };
    write("[HKEY_LOCAL_MACHINE\\k]\n\"a\"=dword:1\n\"b\"=dword:1\n\"c\"=dword:1\n"
          "[HKEY_CURRENT_USER\\k]\n\"a\"=dword:1\n\"b\"=dword:1\n");
    setenv("HOME", place.host_path().c_str(), 1);
    EXPECT_EQ(read(HKEY_CURRENT_USER), "1 1 code 2 ");
    for (const char* directory : {".config", ".config/zu"})
        place.make_directory(directory);
    const std::string own = ".config/zu/registry.reg";
    place.write(own, "[HKEY_CURRENT_USER\\k]\n\"b\"=dword:2\n\"a\"=-\n\"c\"=dword:2\n"
                     "[HKEY_LOCAL_MACHINE\\k]\n\"a\"=dword:2\n");
    EXPECT_EQ(read(HKEY_CURRENT_USER), "code 2 2 2 ");
    EXPECT_EQ(read(HKEY_LOCAL_MACHINE), "1 1 1 ") << "which is not the user's to change";
    if (chown(place.host_path(own).c_str(), 4000000, 4000000) != 0)
        GTEST_SKIP() << "only root can give a file away";
    EXPECT_EQ(read(HKEY_CURRENT_USER), "code 5 code 5 code 5 ") << "another user's";
    EXPECT_EQ(read(HKEY_LOCAL_MACHINE), "1 1 1 ");
}

// "first, count" of the lines that mean nothing.
std::string skipped(const std::string& bytes) {
    platform::registry_text text;
    platform::registry_node roots;
    EXPECT_EQ(text.decode(bytes), 0u);
    const platform::skipped_lines lines = platform::read_registry_text(text, roots);
    return std::to_string(lines.first) + ", " + std::to_string(lines.count);
}

TEST_F(registry, a_line_that_means_nothing_is_skipped) {
    for (const char* line :
         {"\"a\"=\"unclosed", "\"a", "@", "\xFF\xC0", "=-", "[]", "[HKEY_LOCAL_MACHINE\\no"}) {
        const std::string bytes = "; \n"s + line + "\n\n[HKEY_LOCAL_MACHINE\\k]\n@=\"after\"";
        write(bytes);
        EXPECT_EQ(skipped(bytes), "2, 1") << line;
        EXPECT_EQ(text(u"k"), u"after") << line;
    }
    std::string deep;
    for (int i = 0; i < 100000; ++i)
        deep += "\\a";
    const std::string bytes =
        "@=\"a\"\n[HKEY_LOCAL_MACHINE\\k]\n@=\"b\"\n[HKEY_LOCAL_MACHINE\\unclosed\n@=\"c\"\n[]\n"
        "@=\"d\"\n[HKEY_LOCAL_MACHINE\\"
        + std::string(256, 'x') + "]\n@=\"e\"\n[HKEY_LOCAL_MACHINE" + deep + "]\n";
    write(bytes);
    EXPECT_EQ(skipped(bytes), "1, 8") << "values after a line that names no key belong to none";
    for (const std::u16string& path : {std::u16string(256, u'x'), wide(deep).substr(1)})
        EXPECT_EQ(text(path), u"<2>");
    EXPECT_EQ(text(u"k"), u"b");
}

// That the library does not ask itself.
TEST_F(registry, calls_give_the_platforms_codes) {
    write("[HKEY_LOCAL_MACHINE\\k]\n\"n\"=dword:7\n\"short\"=hex(4):01,02\n\"unended\"=hex(1):61,00\n");
    SetLastError(77);
    HKEY parent, blind, key;
    ASSERT_EQ(platform::RegOpenKeyExW(HKEY_LOCAL_MACHINE, nullptr, 0, 1, &parent), 0);
    ASSERT_EQ(platform::RegOpenKeyExW(parent, u"K\\\\", 0, 0, &blind), 0);
    ASSERT_EQ(platform::RegOpenKeyExW(parent, u"k", 0, 1, &key), 0);
    // The code, the type, the size, and the bytes with some more.
    const auto query = [](HKEY asked, const ZU_wchar* name, uint32_t room) {
        uint32_t type = 99, size = room;
        std::string data(12, '~');
        const int32_t code = platform::RegQueryValueExW(asked, name, nullptr, &type,
                                                        reinterpret_cast<uint8_t*>(data.data()), &size);
        return std::tuple(static_cast<uint32_t>(code), type, size, data.substr(0, 5));
    };
    EXPECT_EQ(query(blind, u"n", 3), std::tuple(codes::access_denied, 99u, 3u, "~~~~~"));
    EXPECT_EQ(query(key, u"nosuch", 3), std::tuple(codes::file_not_found, 99u, 3u, "~~~~~"));
    EXPECT_EQ(query(key, u"n", 3), std::tuple(codes::more_data, 4u, 4u, "~~~~~"));
    EXPECT_EQ(query(key, u"short", 4), std::tuple(codes::none, 4u, 2u, "\1\2~~~"));
    EXPECT_EQ(query(key, u"unended", 12), std::tuple(codes::none, 1u, 2u, "a\0\0\0~"s))
        << "where there is room";
    uint32_t size = 0;
    for (uint32_t* asked : {static_cast<uint32_t*>(nullptr), &size})
        EXPECT_EQ(platform::RegQueryValueExW(key, u"n", nullptr, nullptr, nullptr, asked), 0);
    EXPECT_EQ(size, 4u);
    EXPECT_EQ(
        platform::RegQueryValueExW(key, u"n", nullptr, nullptr, reinterpret_cast<uint8_t*>(&size), nullptr),
        codes::invalid_parameter);
    write("");
    EXPECT_EQ(std::get<0>(query(key, u"n", 12)), codes::key_deleted) << "the key is gone";
    EXPECT_EQ(std::get<0>(query(parent, u"n", 12)), codes::file_not_found) << "a root never is";
    for (const uint32_t code : {codes::none, codes::invalid_handle})
        for (const HKEY open : {parent, blind, key})
            EXPECT_EQ(platform::RegCloseKey(open), code) << "closed already";
    EXPECT_EQ(platform::RegCloseKey(HKEY_LOCAL_MACHINE), 0);
    EXPECT_EQ(GetLastError(), 77u);
}

TEST_F(registry, a_changed_file_is_seen_at_once_and_as_a_whole) {
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
    std::set<platform::state_pointer> states;
    std::mutex lock;
    {
        crew readers;
        for (int i = 0; i < 8; ++i) {
            readers.add([&] {
                platform::state_pointer state;
                EXPECT_EQ(platform::current_registry(false, state), 0u);
                const std::lock_guard hold(lock);
                states.insert(state);
            });
        }
    }
    EXPECT_EQ(states.size(), 1u);
    chmod(file.c_str(), is_root() ? 0600 : 0644);
    sleep(4); // until it has settled and is kept
    EXPECT_EQ(text(u"k"), u"299");
    EXPECT_EQ(text(u"k"), u"299");
    const std::u16string for_others = is_root() ? u"<5>" : u"299";
    EXPECT_EQ(run_as_ordinary_user([&] { _exit(text(u"k") == for_others ? 0 : 1); }).exit_code, 0);
    setenv("HOME", place.host_path().c_str(), 1);
    const std::string own = place.host_path(".config/zu/registry.reg");
    for (const uint32_t code : {codes::access_denied, codes::file_not_found}) {
        code == codes::access_denied ? std::filesystem::create_directories(own)
                                     : std::filesystem::remove(own);
        uint32_t number;
        EXPECT_EQ(code_of(ZU_registry_get_uint32(HKEY_CURRENT_USER, u"k", u"a", &number)), code);
    }
    write_number(300);
    unlink(file.c_str());
    EXPECT_EQ(text(u"k"), u"<2>");
    mkdir(file.c_str(), 0755);
    EXPECT_EQ(text(u"k"), u"<5>");
    std::filesystem::remove(file);

    // Threads read whole states while it is replaced.
    std::atomic<bool> stop{false};
    const auto replace = [&](int number) {
        const std::string n = std::to_string(number);
        place.write("../host/new", "[HKEY_LOCAL_MACHINE\\k]\n\"a\"=\"" + n + "\"\n" + std::string(20000, '\n')
                                       + "\"b\"=\"" + n + "\"");
        std::filesystem::rename(place.host_path("../host/new"), place.host_path("../host/registry.reg"));
    };
    replace(0);
    crew crowd;
    for (int i = 0; i < 3; ++i) {
        crowd.add([&] {
            while (!stop) {
                const std::u16string a = text(u"k", u"a"), b = text(u"k", u"b");
                ASSERT_LE(std::stoi(narrow(a)), std::stoi(narrow(b)));
            }
        });
    }
    for (int number = 1; number < 100; ++number)
        replace(number);
    stop = true;
}

} // namespace
