// Paths on shares and links of the host, its current directory however long, and its names and times.
#include "support/test.h"

namespace {

using text = std::u16string;
using paths = file_test;
using stat = file_test;
using enum_dir = file_test;

constexpr char16_t none[] = u"<null>"; // what `taken` makes of null

TEST_F(paths, actual_path_on_a_share) {
    place.make_directory("Data");
    place.make_directory("Data/LOGS");
    place.write("Data/LOGS/A.txt", "");
    place.map_share("srv", "share", place.host_path("Data"));
    const std::tuple<const char16_t*, uint32_t, std::vector<const char16_t*>> rows[] = {
        {u"\\\\srv", codes::none, {u"\\\\srv\\share\\.."}},
        {u"\\\\srv\\share", codes::none, {u"\\\\srv\\\\share\\"}},
        {u"\\\\srv\\share\\LOGS\\A.txt", codes::none, {u"\\\\srv\\share\\logs\\a.txt"}},
        {u"",
         codes::file_not_found,
         {u"\\\\srv\\share\\..\\..", u"\\\\srv", u"\\\\srv\\", u"\\\\\\srv\\share"}}};
    for (const auto& [actual, code, all_typed] : rows)
        for (const char16_t* path : all_typed) {
            ZU_s out = nullptr;
            ZU_s_append_n(&out, u"before", 6);
            SetLastError(12345);
            EXPECT_EQ(ZU_get_actual_full_path_ex(path, &out), code == 0) << narrow(path);
            EXPECT_EQ(text(ZU_s_text(out)), actual) << narrow(path);
            EXPECT_EQ(GetLastError(), code == 0 ? 12345u : code) << narrow(path);
            ZU_s_destroy(&out);
        }
}

TEST_F(paths, long_and_lost_current_directory) {
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
    EXPECT_EQ(GetLastError(), codes::sharing_violation);
    std::filesystem::remove_all(place.host_path(std::string(250, 'd')));
    EXPECT_EQ(taken(ZU_get_current_dir()), none);
    EXPECT_EQ(GetLastError(), codes::file_not_found);
}

void set_modification(const file_place& place, const char* name, time_t seconds) {
    const timespec times[] = {{seconds, 0}, {seconds, 0}};
    ASSERT_EQ(utimensat(AT_FDCWD, place.host_path(name).c_str(), times, 0), 0);
}

ZU_stat status_of(const char16_t* path) {
    ZU_stat status;
    EXPECT_EQ(ZU_stat64(path, &status), 0) << GetLastError() << ' ' << narrow(path);
    return status;
}

TEST_F(stat, roots_of_shares) {
    place.map_share("srv", "share", place.host_path());
    for (const char16_t* root : {u"\\\\srv\\share", u"\\\\?\\unc\\SRV\\Share\\"}) {
        const ZU_stat status = status_of(root);
        EXPECT_EQ(status.st_mode, 0x41FF);
        EXPECT_EQ(status.st_dev, 0u);
    }
}

TEST_F(stat, failures_on_shares) {
    place.map_share("srv", "share", place.host_path());
    for (const auto& [path, code] : {std::pair{u"\\\\srv\\share\\missing", codes::file_not_found},
                                     {u"\\\\srv\\nosuch", codes::path_not_found},
                                     {u"\\\\nosuch\\share\\", codes::path_not_found}}) {
        ZU_stat status;
        EXPECT_EQ(code_of(ZU_stat64(path, &status) == 0), code) << narrow(path);
    }
}

// The offset in force now is taken for every date: a file of the other season is an hour off.
TEST_F(stat, times_are_converted_with_the_offset_in_force_now) {
    place.make_directory("d");
    place.write("f", "");
    ASSERT_TRUE(ZU_set_file_platform_attributes(u"T:\\f", FILE_ATTRIBUTE_READONLY));
    constexpr int32_t summer = 1152626400, winter = 1137000000; // July and January 2006
    constexpr char north[] = "CET-1CEST,M3.5.0,M10.5.0/3", south[] = "AEST-10AEDT,M10.1.0,M4.1.0/3";
    // With the offset of that day.
    const std::tuple<const char*, int32_t, long> rows[] = {
        {north, summer, 7200}, {north, winter, 3600}, {south, summer, 36000}, {south, winter, 39600}};
    for (const auto& [zone, day, offset] : rows) {
        setenv("TZ", zone, 1);
        tzset();
        const time_t present = std::time(nullptr);
        struct tm now;
        localtime_r(&present, &now);
        set_modification(place, "f", day);
        EXPECT_EQ(status_of(u"T:\\f").st_mtime, day + now.tm_gmtoff - offset) << zone;
        for (const char16_t* path : {u"T:\\f", u"T:\\d\\"}) {
            EXPECT_TRUE(ZU_set_file_time(path, day - 86400, day, day + 1));
            EXPECT_TRUE(ZU_set_file_time(path, -1, day + 7, -1)) << "one alone";
            const ZU_stat status = status_of(path);
            EXPECT_EQ(status.st_ctime, day - 86400) << "what was set comes back to the second";
            EXPECT_EQ(status.st_mtime, day + 7);
            EXPECT_EQ(status.st_atime, day + 1);
        }
    }
    EXPECT_TRUE(ZU_set_file_time(u"T:\\", 1, 1, 1)) << "a drive's root: nothing to do";
    EXPECT_EQ(code_of(ZU_set_file_time(u"T:\\missing", 1, 1, 1)), codes::file_not_found);
    set_modification(place, "f", 5'000'000'000);
    EXPECT_EQ(status_of(u"T:\\f").st_mtime, -1) << "a time past 2038 is none";
}

// Copies of all entries, by path; the walk's last code stays.
auto walk(const char16_t* directory, uint32_t flags) {
    std::vector<std::pair<text, ZU_enum_dir_entry>> result;
    ZU_enum_dir* dir = ZU_enum_dir_begin(directory, flags);
    for (bool more = dir != nullptr; more; more = ZU_enum_dir_next(dir)) {
        const ZU_enum_dir_entry* entry = ZU_enum_dir_get(dir);
        EXPECT_EQ(entry->record_size, sizeof *entry);
        EXPECT_TRUE(text(entry->path).ends_with(u"\\" + text(entry->name)));
        EXPECT_EQ(text(entry->find_data->cFileName), entry->name);
        result.emplace_back(entry->path, *entry);
    }
    ZU_enum_dir_end(dir);
    std::sort(result.begin(), result.end(), [](const auto& a, const auto& b) { return a.first < b.first; });
    return result;
}

TEST_F(enum_dir, links_odd_names_and_shares) {
    setenv("TZ", "UTC0", 1);
    place.make_directory("dir");
    place.make_directory("dir/sub");
    place.write("dir/a.txt", "12345");
    place.write("dir/b\xff:", ""); // neither UTF-8 nor a name of the platform
    place.make_link("dir/link", "/");
    set_modification(place, "dir/a.txt", 1137000000);
    place.map_share("srv", "share", place.host_path("dir"));
    const char16_t* forms[][2] = {{u"T:\\dir", u"T:\\dir\\"}, {u"\\\\srv\\share", u"\\\\srv\\share\\"}};
    const char16_t* names[] = {u"a.txt", u"b\xdcff\xf03a", u"link", u"sub"};
    for (const auto& [given, prefix] : forms) {
        const auto all = walk(given, ZU_ENUM_DIR_SIZE | ZU_ENUM_DIR_TIMES | ZU_ENUM_DIR_SKIP_DOTS);
        EXPECT_EQ(GetLastError(), codes::no_more_files);
        ASSERT_EQ(all.size(), 4u) << narrow(given);
        for (size_t i = 0; i < all.size(); ++i) {
            EXPECT_EQ(all[i].first, text(prefix) + names[i]);
            EXPECT_EQ(all[i].second.attributes, i == 3 ? ZU_PATH_DIR : ZU_PATH_FILE) << "a link: FILE";
            EXPECT_NE(all[i].second.creation_time, -1);
        }
        EXPECT_EQ(all[0].second.size, 5u);
        EXPECT_EQ(all[0].second.modification_time, 1137000000);
        EXPECT_EQ(all[0].second.access_time, 1137000000);
    }
}

} // namespace
