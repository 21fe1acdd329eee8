// Paths: their forms and limits, and the actual form of what exists.
#include "support/test.h"

namespace {

using text = std::u16string;
using paths = file_test;

constexpr char16_t none[] = u"<null>"; // what `taken` makes of null

TEST_F(paths, long_form_fullness_and_limits) {
    // clang-format off
    const std::tuple<const char16_t*, const char16_t*, bool> rows[] = {
        {u"C:\\a", u"\\\\?\\C:\\a", true}, {u"c:", u"\\\\?\\c:", true}, {u"z:a/.\\..\\", u"\\\\?\\z:a/.\\..\\", true},
        {u"\\\\srv\\share\\a", u"\\\\?\\UNC\\srv\\share\\a", true}, {u"\\\\", u"\\\\?\\UNC\\", true},
        {u"\\\\?\\x", u"\\\\?\\x", true}, {u"\\\\?", u"\\\\?\\UNC\\?", true}, {u"a\\b", u"a\\b", false},
        {u"\\a", u"\\a", false}, {u"1:\\a", u"1:\\a", false}, {u"\u00e4:\\a", u"\u00e4:\\a", false}, {u"", u"", false}};
    // clang-format on
    ZU_s out = nullptr;
    for (const auto& [path, long_form, full] : rows) {
        ZU_long_path(path, &out);
        EXPECT_EQ(text(ZU_s_text(out)), long_form);
        EXPECT_EQ(ZU_is_full_path(path), full) << narrow(path);
    }
    ZU_s_destroy(&out);

    // The limits count the long form, and single components.
    const std::pair<text, size_t> forms[] = {
        {u"C:\\", 32763}, {u"\\\\srv\\", 32761}, {u"\\\\?\\", 32767}, {u"", 32767}, {u"\\a", 32767}};
    for (const auto& [start, limit] : forms) {
        text path = start;
        while (path.size() < limit)
            path += path.size() % 200 == 0 ? u'\\' : u'x';
        EXPECT_EQ(ZU_path_too_long(path.c_str()), 0) << limit;
        EXPECT_EQ(ZU_path_too_long((path + u"x").c_str()), 1) << limit;
    }
    EXPECT_EQ(ZU_path_too_long((u"C:\\" + text(255, u'x') + u"\\\\").c_str()), 0);
    EXPECT_EQ(ZU_path_too_long((u"C:\\" + text(256, u'x')).c_str()), 1);
    EXPECT_EQ(ZU_path_too_long((text(256, u'/') + u"\\a").c_str()), 1) << "a slash separates nothing";
}

TEST_F(paths, directory_part_and_last_component) {
    // clang-format off
    const char16_t* rows[][3] = {
        {u"C:\\dir\\file.txt", u"C:\\dir", u"file.txt"}, {u"C:\\file.txt", u"C:", u"file.txt"},
        {u"C:\\dir\\ ", u"C:\\dir", u"dir"}, {u"\\file", u"\\", u"file"}, {u"\\", u"\\", u""},
        {u"file.txt", none, u"file.txt"}, {u"/a/b", none, u"/a/b"}, {u"1:", u"1:", u"1:"}, {u"C:x", none, u"C:x"},
        {u"", none, u""}};
    // clang-format on
    for (const auto& [path, directory, name] : rows) {
        EXPECT_EQ(taken(ZU_get_path(path)), directory) << narrow(path);
        EXPECT_EQ(taken(ZU_get_filename(path)), name) << narrow(path);
    }
    EXPECT_EQ(taken(ZU_get_path(nullptr)), none);
}

TEST_F(paths, the_actual_path_is_absolute_and_spelled_as_stored) {
    place.make_directory("Data");
    place.make_directory("Data/LOGS");
    place.write("Data/LOGS/A.txt", "");
    place.map_share("srv", "share", place.host_path("Data"));
    ASSERT_EQ(chdir(place.host_path("Data").c_str()), 0);
    // clang-format off
    const std::tuple<const char16_t*, const char16_t*, uint32_t> rows[] = {
                {u"t:\\\\data\\.\\logs\\..", u"T:\\Data", 0}, {u"\\\\?\\t:\\DATA\\Logs\\a.TXT", u"T:\\Data\\LOGS\\A.txt", 0},
                {u"t:/data/logs/", u"T:\\Data\\LOGS", 0}, {u"t:data", u"T:\\Data", 0}, {u"T:\\", u"T:", 0},
                {u"./logs/../LOGS", u"T:\\Data\\LOGS", 0}, {u"..\\data", u"T:\\Data", 0},
                {u"\\\\srv\\share\\logs\\a.txt", u"\\\\srv\\share\\LOGS\\A.txt", 0},
                {u"\\\\srv\\\\share\\", u"\\\\srv\\share", 0}, {u"\\\\srv\\share\\..", u"\\\\srv", 0},
                {u"T:\\..", none, 2}, {u"..\\..", none, 2}, {u"T:\\data\\..\\..\\data", none, 2},
                {u"\\\\srv\\share\\..\\..", none, 2}, {u"\\\\srv", none, 2}, {u"\\\\srv\\", none, 2},
                {u"\\\\\\srv\\share", none, 2}, {u"T:\\d?ta", none, 2}, {u"\\\\?\\x\\data", none, 2}, {u"", none, 2},
                {u"\\data", none, 2}, {u"/data", none, 2}, {u"T:\\data\\missing", none, 2},
                {u"T:\\missing\\a.txt", none, 2}, {u"T:\\data\\logs\\a.txt\\b", none, 267}, {u"Q:\\data", none, 3}};
    // clang-format on
    for (const auto& [path, actual, code] : rows) {
        ZU_s out = nullptr;
        ZU_s_append_n(&out, u"before", 6);
        SetLastError(12345);
        EXPECT_EQ(ZU_get_actual_full_path_ex(path, &out), code == 0) << narrow(path);
        EXPECT_EQ(text(ZU_s_text(out)), code == 0 ? actual : u"") << narrow(path);
        EXPECT_EQ(GetLastError(), code == 0 ? 12345u : code) << narrow(path);
        ZU_s_destroy(&out);
    }
    EXPECT_EQ(taken(ZU_get_current_dir()), u"T:\\Data");
    ASSERT_EQ(chdir(place.host_path().c_str()), 0);
    EXPECT_EQ(taken(ZU_get_current_dir()), u"T:");
    EXPECT_EQ(taken(ZU_get_actual_full_path(u"data\\logs")), u"T:\\Data\\LOGS");
}

TEST_F(paths, a_current_directory_beyond_every_buffer_and_one_that_is_gone) {
    ASSERT_EQ(chdir(place.host_path().c_str()), 0);
    text expected = u"T:";
    for (int depth = 0; depth < 25; ++depth) {
        ASSERT_EQ(mkdir(std::string(250, 'd').c_str(), 0777), 0);
        ASSERT_EQ(chdir(std::string(250, 'd').c_str()), 0);
        expected += u"\\" + text(250, u'd');
    }
    EXPECT_EQ(taken(ZU_get_current_dir()), expected);
    EXPECT_EQ(taken(ZU_get_actual_full_path(u".")), expected);
    EXPECT_FALSE(ZU_delete_dir(u".")) << "a process keeps its own current directory";
    EXPECT_EQ(GetLastError(), 32u);
    std::filesystem::remove_all(place.host_path(std::string(250, 'd')));
    EXPECT_EQ(taken(ZU_get_current_dir()), none);
    EXPECT_EQ(GetLastError(), 2u);
}

TEST_F(paths, the_stored_name_replaces_the_last_component_in_place) {
    place.make_directory("Data");
    place.write("Data/\u00c4b.TXT", "");
    const std::pair<const char16_t*, const char16_t*> rows[] = {
        {u"t:\\DATA\\", u"t:\\Data"},
        {u"t:\\DATA\\\u00e4B.txt", u"t:\\DATA\\\u00c4b.TXT"},
        {u"t:\\", u"T:"},
        {u"\\\\?\\t:", u"\\\\?\\T:"},
        {u"t:\\dat?\\x", none},
        {u"t:\\missing", none}};
    for (const auto& [path, corrected] : rows) {
        ZU_wchar buffer[64] = {};
        text(path).copy(buffer, 63);
        EXPECT_EQ(ZU_make_actual_file_name(buffer), corrected != none) << narrow(path);
        EXPECT_EQ(text(buffer), corrected == none ? path : corrected);
    }
    EXPECT_EQ(taken(ZU_get_actual_file_name(u"T:\\d*a")), u"Data") << "the first match";
    EXPECT_EQ(GetLastError(), 2u);
}

TEST_F(paths, the_program_and_what_lies_beside_it) {
    const text program = taken(ZU_get_exe_path()), folder = taken(ZU_get_path(program.c_str()));
    EXPECT_EQ(program, folder + u"\\test_path");
    EXPECT_EQ(taken(ZU_generate_local_path(u"x\\run.ini")), folder + u"\\x\\run.ini");
    for (const char16_t* path : {u"", u"1:\\", u"C:", u"Q:\\a", u"\\\\srv\\share"})
        EXPECT_FALSE(ZU_is_floppy_drive(path));
}

} // namespace
