// Paths on shares and links of the host, its current directory however long, and its names and times.
#include "support/test.h"

namespace {

using text = std::u16string;
using paths = file_test;

constexpr char16_t none[] = u"<null>"; // what `taken` makes of null

TEST_F(paths, on_a_share) {
    place.make_directory("Data");
    place.make_directory("Data/LOGS");
    place.write("Data/LOGS/b\xff:", ""); // neither UTF-8 nor a name of the platform
    place.make_link("Data/LOGS/link", "/");
    place.map_share("srv", "share", place.host_path("Data"));
    for (const auto& [path, actual] : {std::pair{u"\\\\srv\\share\\..", u"\\\\srv"},
                                       {u"\\\\srv\\\\share\\", u"\\\\srv\\share"},
                                       {u"\\\\srv\\share\\logs\\LINK", u"\\\\srv\\share\\LOGS\\link"},
                                       {u"\\\\srv\\share\\..\\..", none},
                                       {u"\\\\srv", none},
                                       {u"\\\\srv\\", none},
                                       {u"\\\\\\srv\\share", none}}) {
        SetLastError(12345);
        EXPECT_EQ(taken(ZU_get_actual_full_path(path)), actual) << narrow(path);
        EXPECT_EQ(GetLastError(), text(actual) == none ? codes::file_not_found : 12345u) << narrow(path);
    }
    ZU_stat status;
    for (const auto& [path, code] : {std::pair{u"\\\\srv\\share", codes::none},
                                     {u"\\\\?\\unc\\SRV\\Share\\", codes::none},
                                     {u"\\\\srv\\share\\missing", codes::file_not_found},
                                     {u"\\\\srv\\nosuch", codes::path_not_found},
                                     {u"\\\\nosuch\\share\\", codes::path_not_found}}) {
        EXPECT_EQ(code_of(ZU_stat64(path, &status) == 0), code) << narrow(path);
        EXPECT_EQ(status.st_mode, code == 0 ? 0x41FF : 0) << narrow(path);
        EXPECT_EQ(status.st_dev, 0u) << narrow(path);
    }
    for (const text directory : {u"T:\\Data\\LOGS\\", u"\\\\srv\\share\\LOGS\\"}) {
        std::map<text, uint32_t> found;
        ZU_enum_dir* const dir = ZU_enum_dir_begin(directory.c_str(), ZU_ENUM_DIR_SKIP_DOTS);
        for (bool more = dir != nullptr; more; more = ZU_enum_dir_next(dir))
            found[ZU_enum_dir_get(dir)->path] = ZU_enum_dir_get(dir)->attributes;
        EXPECT_EQ(GetLastError(), codes::no_more_files);
        ZU_enum_dir_end(dir);
        EXPECT_EQ(found, (std::map<text, uint32_t>{{directory + u"b\xdcff\xf03a", ZU_PATH_FILE},
                                                   {directory + u"link", ZU_PATH_FILE}}));
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

ZU_stat status_of(const char16_t* path) {
    ZU_stat status;
    EXPECT_EQ(ZU_stat64(path, &status), 0) << GetLastError() << ' ' << narrow(path);
    return status;
}

// The offset in force now is taken for every date: a file of the other season is an hour off.
TEST_F(paths, times_are_converted_with_the_offset_in_force_now) {
    place.make_directory("d");
    place.write("f", "");
    for (const auto& [path, mode] : {std::pair{u"T:\\f", 0x8124}, {u"T:\\d", 0x416D}}) {
        ASSERT_TRUE(ZU_set_file_platform_attributes(path, FILE_ATTRIBUTE_READONLY));
        EXPECT_EQ(status_of(path).st_mode, mode) << narrow(path);
    }
    constexpr int32_t summer = 1152626400, winter = 1137000000; // July and January 2006
    constexpr char north[] = "CET-1CEST,M3.5.0,M10.5.0/3", south[] = "AEST-10AEDT,M10.1.0,M4.1.0/3";
    const auto set_modification = [&](time_t seconds) {
        const timespec times[] = {{seconds, 0}, {seconds, 0}};
        ASSERT_EQ(utimensat(AT_FDCWD, place.host_path("f").c_str(), times, 0), 0);
    };
    // With the offset of that day.
    const std::tuple<const char*, int32_t, long> rows[] = {
        {north, summer, 7200}, {north, winter, 3600}, {south, summer, 36000}, {south, winter, 39600}};
    for (const auto& [zone, day, offset] : rows) {
        set_zone(zone);
        const time_t present = std::time(nullptr);
        struct tm now;
        localtime_r(&present, &now);
        set_modification(day);
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
    set_modification(5'000'000'000);
    EXPECT_EQ(status_of(u"T:\\f").st_mtime, -1) << "a time past 2038 is none";
}

} // namespace
