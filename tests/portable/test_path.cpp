// Paths: their forms and limits, and the actual form of what exists. File status and directory enumeration.
#include "support/portable.h"

namespace {

using text = std::u16string;
using paths = scratch_test;
using stat = scratch_test;
using enum_dir = scratch_test;

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
        {u"file.txt", none, u"file.txt"}, {u"/a/b", none, u"/a/b"}, {u"1:", u"1:", u"1:"},
        {u"C:x", none, u"C:x"}, {u"", none, u""}};
    // clang-format on
    for (const auto& [path, directory, name] : rows) {
        EXPECT_EQ(taken(ZU_get_path(path)), directory) << narrow(path);
        EXPECT_EQ(taken(ZU_get_filename(path)), name) << narrow(path);
    }
    EXPECT_EQ(taken(ZU_get_path(nullptr)), none);
}

TEST_F(paths, actual_path) {
    place.make_directory("Data");
    std::filesystem::current_path(place.at("Data"));
    EXPECT_EQ(taken(ZU_get_current_dir()), u"T:\\Data");
    for (const auto& [path, actual] :
         {std::pair{u"..\\data", u"T:\\Data"}, {u"..", u"T:"}, {u"..\\..", u""}}) {
        ZU_s out = nullptr;
        ZU_s_append_n(&out, u"before", 6);
        EXPECT_EQ(ZU_get_actual_full_path_ex(path, &out), *actual != 0) << narrow(path);
        EXPECT_EQ(text(ZU_s_text(out)), actual) << narrow(path);
        ZU_s_destroy(&out);
    }
    std::filesystem::current_path(place.at(""));
    EXPECT_EQ(taken(ZU_get_current_dir()), u"T:");
    EXPECT_EQ(taken(ZU_get_actual_full_path(u"data")), u"T:\\Data");
}

TEST_F(paths, program_path) {
    const text program = taken(ZU_get_exe_path()), folder = taken(ZU_get_path(program.c_str()));
    EXPECT_TRUE(program.starts_with(folder + u"\\test_path")) << narrow(program);
    EXPECT_EQ(taken(ZU_generate_local_path(u"x\\run.ini")), folder + u"\\x\\run.ini");
    EXPECT_FALSE(ZU_is_floppy_drive(u"C:"));
}

ZU_stat status_of(const char16_t* path) {
    ZU_stat status;
    SetLastError(1234);
    EXPECT_EQ(ZU_stat64(path, &status), 0) << narrow(path);
    EXPECT_EQ(GetLastError(), 1234u) << narrow(path);
    return status;
}

TEST_F(stat, mode_size_and_drive) {
    constexpr uint32_t read_only = FILE_ATTRIBUTE_READONLY, hidden = FILE_ATTRIBUTE_HIDDEN;
    for (const char* name : {"r.un.EXE", "ro.cmd", "notes.txt", "a.exe.txt", "exe", ".bat", "x.exed"})
        place.write(name, "12345");
    place.make_directory("x.exe");
    std::filesystem::resize_file(place.at("a.exe.txt"), 5'000'000'000);
    // clang-format off
    const std::tuple<const char16_t*, uint32_t, uint16_t, int64_t> rows[] = {
        {u"T:\\r.un.EXE", 0, 0x81FF, 5}, {u"T:\\RO.cmd", read_only, 0x816D, 5}, {u"T:\\.bat", 0, 0x81FF, 5},
        {u"notes.txt", read_only, 0x8124, 5},
        {u"\\\\?\\T:\\a.exe.txt", 0, 0x81B6, 5'000'000'000},
        {u"exe", hidden, 0x81B6, 5},
        {u"t:\\x.exed", 0, 0x81B6, 5},
        {u"t:\\x.exe\\\\", 0, 0x41FF, 0}};
    // clang-format on
    std::filesystem::current_path(place.at(""));
    for (const auto& [path, attributes, mode, size] : rows) {
        ASSERT_TRUE(ZU_set_file_platform_attributes(path, attributes));
        const ZU_stat status = status_of(path);
        EXPECT_EQ(status.st_mode, mode) << narrow(path);
        EXPECT_EQ(status.st_size, size) << narrow(path);
        EXPECT_EQ(status.st_nlink, 1);
        EXPECT_EQ(status.st_dev, 19u) << "T:";
        EXPECT_EQ(status.st_rdev, 19u);
    }
    set_zone("EST5");
    for (const char16_t* root : {u"C:\\", u"C:", u"\\\\?\\c:\\"}) { // they have no entry and a fixed time
        const ZU_stat status = status_of(root);
        for (ZU_time_t time : {status.st_atime, status.st_mtime, status.st_ctime})
            EXPECT_EQ(time, 315532800 + 5 * 3600);
    }
}

// A time is set alone, to the second, and is the same in either season.
TEST_F(stat, times_that_are_set_come_back_one_by_one) {
    place.write("f", "");
    ASSERT_TRUE(ZU_create_dir(u"T:\\d\\\\", nullptr));
    for (const char* zone : {"UTC0", "CET-1CEST", "PST8PDT"})
        for (const int32_t day : {1137000000, 1152626400}) // January and July 2006
            for (const char16_t* path : {u"T:\\f", u"T:\\d\\"}) {
                set_zone(zone);
                EXPECT_TRUE(ZU_set_file_time(path, -1, day, day + 1));
                EXPECT_TRUE(ZU_set_file_time(path, -1, day + 7, -1));
                EXPECT_EQ(status_of(path).st_mtime, day + 7) << zone;
                EXPECT_EQ(status_of(path).st_atime, day + 1) << zone;
            }
    const auto root_time = std::filesystem::last_write_time(place.at(""));
    EXPECT_TRUE(ZU_set_file_time(u"T:\\", 1, 1, 1)) << "a drive's root: nothing to do";
    EXPECT_EQ(std::filesystem::last_write_time(place.at("")), root_time);
}

TEST_F(stat, failures_leave_a_record_of_zeros) {
    const ZU_stat zeros = {};
    for (const char16_t* path : {u"", u"/x", u"T:\\*.txt", u"T:\\missing\\x"}) {
        ZU_stat status;
        std::memset(&status, 0x55, sizeof status);
        errno = 0;
        EXPECT_EQ(ZU_stat64(path, &status), -1) << narrow(path);
        EXPECT_EQ(errno, ENOENT) << narrow(path);
        EXPECT_EQ(std::memcmp(&status, &zeros, sizeof zeros), 0) << narrow(path);
    }
}

// Copies of all entries, by path; the walk's last code stays.
auto walk(const char16_t* directory, uint32_t flags) {
    std::vector<std::pair<text, ZU_enum_dir_entry>> result;
    ZU_enum_dir* dir = ZU_enum_dir_begin(directory, flags);
    for (bool more = dir != nullptr; more; more = ZU_enum_dir_next(dir)) {
        const ZU_enum_dir_entry* entry = ZU_enum_dir_get(dir);
        EXPECT_EQ(entry->record_size, sizeof *entry);
        EXPECT_TRUE(text(entry->path).ends_with(u"\\" + text(entry->name)));
        EXPECT_EQ(text(reinterpret_cast<const char16_t*>(entry->find_data->cFileName)), entry->name);
        result.emplace_back(entry->path, *entry);
    }
    ZU_enum_dir_end(dir);
    std::sort(result.begin(), result.end(), [](const auto& a, const auto& b) { return a.first < b.first; });
    return result;
}

TEST_F(enum_dir, entries_and_codes) {
    set_zone("UTC0");
    place.make_directory("dir");
    place.make_directory("dir/sub");
    place.write("dir/a.txt", "12345");
    place.write("dir/b.txt", "");
    ASSERT_TRUE(ZU_set_file_time(u"T:\\dir\\a.txt", 1136000000, 1137000000, 1137000001));
    std::filesystem::current_path(place.at(""));
    const char16_t* forms[][2] = {{u"T:\\dir", u"T:\\dir\\"},
                                  {u"t:\\Dir\\\\", u"t:\\Dir\\"},
                                  {u"dir", u"dir\\"},
                                  {u"\\\\?\\T:\\dir", u"T:\\dir\\"}};
    const char16_t* names[] = {u"a.txt", u"b.txt", u"sub"};
    for (const auto& [given, prefix] : forms) {
        const auto all = walk(given, ZU_ENUM_DIR_SIZE | ZU_ENUM_DIR_TIMES | ZU_ENUM_DIR_SKIP_DOTS);
        EXPECT_EQ(GetLastError(), codes::no_more_files);
        ASSERT_EQ(all.size(), 3u) << narrow(given);
        for (size_t i = 0; i < all.size(); ++i) {
            EXPECT_EQ(all[i].first, text(prefix) + names[i]);
            EXPECT_EQ(all[i].second.attributes & (ZU_PATH_DIR | ZU_PATH_FILE),
                      i == 2 ? ZU_PATH_DIR : ZU_PATH_FILE);
            EXPECT_NE(all[i].second.creation_time, -1);
        }
        EXPECT_EQ(all[0].second.size, 5u);
        EXPECT_EQ(all[0].second.modification_time, 1137000000);
        EXPECT_EQ(all[0].second.access_time, 1137000001);
    }
    const auto plain = walk(u"T:\\dir", 0);
    ASSERT_EQ(plain.size(), 5u) << "with . and ..";
    EXPECT_EQ(plain[1].first, u"T:\\dir\\..");
    EXPECT_EQ(plain[2].second.size, 0u) << "not asked for";
    EXPECT_EQ(plain[2].second.modification_time, -1);
    place.make_directory("empty");
    EXPECT_EQ(code_of(ZU_enum_dir_begin(u"T:\\empty", ZU_ENUM_DIR_SKIP_DOTS)), codes::no_more_files);
    ZU_enum_dir_end(nullptr);
}

// A walk in each directory of a deep tree, in a process that may have few files open.
TEST_F(enum_dir, walks_within_walks) {
    std::vector<text> tree = {u"T:\\d"};
    while (ZU_create_dir(tree.back().c_str(), nullptr) && tree.size() < 100)
        tree.push_back(tree.back() + u"\\d");
    allow_descriptors(40);
    std::vector<ZU_enum_dir*> walks;
    for (const text& directory : tree)
        walks.push_back(ZU_enum_dir_begin(directory.c_str(), 0));
    for (size_t i = 0; i < 100; ++i) { // each goes on where it was
        std::set<text> names;
        for (bool more = walks.at(i) != nullptr; more; more = ZU_enum_dir_next(walks[i]))
            names.insert(ZU_enum_dir_get(walks[i])->name);
        EXPECT_EQ(names.size(), names.count(u".") + names.count(u"..") + (i < 99)) << i;
        EXPECT_EQ(names.count(u"d"), i < 99) << i;
        ZU_enum_dir_end(walks[i]);
    }
    EXPECT_TRUE(ZU_delete_dir_recursive(u"T:\\d"));
}

} // namespace
