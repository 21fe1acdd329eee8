// File status and directory enumeration.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support/files.h"
#include "zu/zu.h"

namespace {

using zu_test::file_place;
using text = std::u16string;

constexpr ZU_time_t first_of_1980 = 315532800; // in UTC

void set_zone(const char* zone) {
    setenv("TZ", zone, 1);
    tzset();
}

void set_modification(const std::string& host_path, time_t seconds) {
    const timespec times[] = {{seconds, 0}, {seconds, 0}};
    ASSERT_EQ(utimensat(AT_FDCWD, host_path.c_str(), times, 0), 0);
}

TEST(stat, mode_size_and_drive) {
    const file_place place;
    const struct {
        const char* name;
        uint32_t attributes;
        uint16_t mode;
    } rows[] = {{"run.EXE", 0, 0x81FF},
                {"ro.cmd", FILE_ATTRIBUTE_READONLY, 0x816D},
                {"notes.txt", FILE_ATTRIBUTE_READONLY, 0x8124},
                {"a.exe.txt", 0, 0x81B6},
                {"exe", FILE_ATTRIBUTE_HIDDEN, 0x81B6},
                {".bat", 0, 0x81FF},
                {"a.com", FILE_ATTRIBUTE_SYSTEM, 0x81FF},
                {"x.exed", 0, 0x81B6}};
    ZU_stat status;
    for (const auto& row : rows) {
        place.write(row.name, "12345");
        const text path = place.drive_path(zu_test::wide(row.name));
        ASSERT_TRUE(ZU_set_file_platform_attributes(path.c_str(), row.attributes));
        ASSERT_EQ(ZU_stat64(path.c_str(), &status), 0) << row.name;
        EXPECT_EQ(status.st_mode, row.mode) << row.name;
        EXPECT_EQ(status.st_size, 5);
        EXPECT_EQ(status.st_nlink, 1);
        EXPECT_EQ(status.st_dev, 19u) << "T:";
        EXPECT_EQ(status.st_rdev, 19u);
    }
    place.make_directory("x.exe");
    ASSERT_EQ(truncate(place.host_path("notes.txt").c_str(), 5'000'000'000), 0);
    ASSERT_EQ(chdir(place.host_path("x.exe").c_str()), 0);
    EXPECT_EQ(ZU_stat64(u"t:\\x.exe\\\\", &status), 0);
    EXPECT_EQ(status.st_mode, 0x41FF);
    EXPECT_EQ(ZU_set_file_platform_attributes(u"T:\\x.exe", FILE_ATTRIBUTE_READONLY), 1);
    EXPECT_EQ(ZU_stat64(u".", &status), 0);
    EXPECT_EQ(status.st_mode, 0x416D);
    EXPECT_EQ(ZU_stat64(u"\\\\?\\T:\\NOTES.txt", &status), 0);
    EXPECT_EQ(status.st_size, 5'000'000'000);
    ASSERT_EQ(chdir("/"), 0);
    ASSERT_EQ(ZU_stat64(u"tmp\\", &status), 0) << "relative, at the root of C:";
    EXPECT_EQ(status.st_dev, 2u);
}

TEST(stat, roots_have_no_entry_and_a_fixed_time) {
    const file_place place;
    place.make_directory("Data");
    place.map_share("srv", "share", place.host_path("Data"));
    set_zone("EST5EDT,M3.2.0,M11.1.0");
    ZU_stat status;
    for (const char16_t* root :
         {u"C:\\", u"C:", u"\\\\?\\c:\\", u"\\\\srv\\share", u"\\\\?\\unc\\SRV\\Share\\"}) {
        SetLastError(12345);
        ASSERT_EQ(ZU_stat64(root, &status), 0) << zu_test::narrow(root);
        EXPECT_EQ(status.st_mode, 0x41FF);
        EXPECT_EQ(status.st_size, 0);
        EXPECT_EQ(status.st_dev, root[1] == u':' || root[4] == u'c' ? 2u : 0u);
        for (ZU_time_t time : {status.st_atime, status.st_mtime, status.st_ctime})
            EXPECT_EQ(time, first_of_1980 + 5 * 3600);
    }
}

TEST(stat, failures_leave_a_record_of_zeros_and_two_codes) {
    const file_place place;
    place.write("f", "");
    place.map_share("srv", "share", place.host_path());
    const struct {
        const char16_t* path;
        uint32_t code;
    } rows[] = {{u"", 2},
                {u"/x", 2},
                {u"\\x", 2},
                {u"\\", 2},
                {u"T:\\*.txt", 2},
                {u"f?", 2},
                {u"\\\\?\\", 2},
                {u"T:\\missing", 2},
                {u"T:\\missing\\x", 3},
                {u"T:\\f\\x", 267},
                {u"Q:\\", 3},
                {u"Q:\\x", 3},
                {u"\\\\srv\\share\\missing", 2},
                {u"\\\\srv\\nosuch", 3},
                {u"\\\\nosuch\\share\\", 3}};
    const ZU_stat zeros = {};
    for (const auto& row : rows) {
        ZU_stat status;
        std::memset(&status, 0x55, sizeof status);
        errno = 0;
        SetLastError(12345);
        EXPECT_EQ(ZU_stat64(row.path, &status), -1) << zu_test::narrow(row.path);
        EXPECT_EQ(errno, ENOENT);
        EXPECT_EQ(GetLastError(), row.code) << zu_test::narrow(row.path);
        EXPECT_EQ(std::memcmp(&status, &zeros, sizeof zeros), 0);
    }
}

// The offset in force now is taken for every date: a file of the other season is an hour off, in both directions.
TEST(stat, times_are_converted_with_the_offset_in_force_now) {
    const file_place place;
    place.write("f", "");
    constexpr time_t summer = 1152626400, winter = 1137000000; // July and January 2006
    const struct {
        const char* zone;
        long summer_offset, winter_offset;
    } zones[] = {{"CET-1CEST,M3.5.0,M10.5.0/3", 7200, 3600}, {"AEST-10AEDT,M10.1.0,M4.1.0/3", 36000, 39600}};
    for (const auto& zone : zones) {
        set_zone(zone.zone);
        const time_t present = std::time(nullptr);
        struct tm now;
        localtime_r(&present, &now);
        for (const auto& [time, offset] :
             {std::pair(summer, zone.summer_offset), std::pair(winter, zone.winter_offset)}) {
            set_modification(place.host_path("f"), time);
            ZU_stat status;
            ASSERT_EQ(ZU_stat64(u"T:\\f", &status), 0);
            EXPECT_EQ(status.st_mtime, time + now.tm_gmtoff - offset) << zone.zone;
            EXPECT_EQ(status.st_atime, status.st_mtime);

            const auto t = static_cast<ZU_time_t>(time);
            ASSERT_TRUE(ZU_set_file_time(u"T:\\f", t - 86400, t, t + 1));
            ASSERT_EQ(ZU_stat64(u"T:\\f", &status), 0);
            EXPECT_EQ(status.st_ctime, t - 86400) << "what was set comes back to the second";
            EXPECT_EQ(status.st_mtime, t);
            EXPECT_EQ(status.st_atime, t + 1);
        }
    }
    set_zone("UTC0");
    set_modification(place.host_path("f"), 5'000'000'000);
    ZU_stat status;
    ASSERT_EQ(ZU_stat64(u"T:\\f", &status), 0);
    EXPECT_EQ(status.st_mtime, -1) << "a time past 2038 is none";
}

struct seen {
    text name, path;
    uint32_t attributes;
    uint64_t size;
    ZU_time_t modification;
};

// All entries by name; the walk's last code stays.
std::vector<seen> walk(const text& directory, uint32_t flags) {
    std::vector<seen> result;
    if (ZU_enum_dir* dir = ZU_enum_dir_begin(directory.c_str(), flags)) {
        do {
            const ZU_enum_dir_entry* e = ZU_enum_dir_get(dir);
            EXPECT_EQ(e->record_size, sizeof *e);
            EXPECT_EQ(text(e->find_data->cFileName), e->name);
            EXPECT_EQ(e->creation_time == -1, !(flags & ZU_ENUM_DIR_TIMES));
            EXPECT_EQ(e->access_time == -1, !(flags & ZU_ENUM_DIR_TIMES));
            result.push_back({e->name, e->path, e->attributes, e->size, e->modification_time});
        } while (ZU_enum_dir_next(dir));
        ZU_enum_dir_end(dir);
    }
    std::sort(result.begin(), result.end(), [](const seen& a, const seen& b) { return a.name < b.name; });
    return result;
}

TEST(enum_dir, entries_have_the_callers_path_their_code_and_what_was_asked_for) {
    set_zone("UTC0");
    const file_place place;
    place.make_directory("dir");
    place.make_directory("dir/sub");
    place.write("dir/a.txt", "12345");
    place.write("dir/b\xff\x80:*", ""); // neither UTF-8 nor a name of the platform
    ASSERT_EQ(symlink("/", place.host_path("dir/link").c_str()), 0);
    set_modification(place.host_path("dir/a.txt"), 1137000000);
    place.map_share("srv", "share", place.host_path("dir"));
    ASSERT_EQ(chdir(place.host_path().c_str()), 0);
    const struct {
        text given, prefix;
    } forms[] = {{u"T:\\dir", u"T:\\dir\\"},
                 {u"t:\\Dir\\\\", u"t:\\Dir\\"},
                 {u"\\\\?\\T:\\dir", u"T:\\dir\\"},
                 {u"\\\\srv\\share", u"\\\\srv\\share\\"},
                 {u"dir", u"dir\\"}};
    for (const auto& form : forms) {
        const std::vector<seen> all =
            walk(form.given, ZU_ENUM_DIR_SIZE | ZU_ENUM_DIR_TIMES | ZU_ENUM_DIR_SKIP_DOTS);
        EXPECT_EQ(GetLastError(), 18u);
        ASSERT_EQ(all.size(), 4u) << zu_test::narrow(form.given);
        const text names[] = {u"a.txt", u"b\xdcff\xdc80\xf03a\xf02a", u"link", u"sub"};
        for (size_t i = 0; i < all.size(); ++i) {
            EXPECT_EQ(all[i].name, names[i]);
            EXPECT_EQ(all[i].path, form.prefix + names[i]);
            EXPECT_EQ(all[i].attributes, i == 3 ? ZU_PATH_DIR : ZU_PATH_FILE)
                << "a link is never a directory";
        }
        EXPECT_EQ(all[0].size, 5u);
        EXPECT_EQ(all[0].modification, 1137000000);
    }
    ASSERT_EQ(chdir("/"), 0);
    const std::vector<seen> plain = walk(u"T:\\dir", 0);
    ASSERT_EQ(plain.size(), 6u) << "with . and ..";
    EXPECT_EQ(plain[1].name, u"..");
    EXPECT_EQ(plain[2].size, 0u) << "not asked for";
    EXPECT_EQ(plain[2].modification, -1);
    EXPECT_EQ(walk(u"T:\\", 0).size(), 1u) << "a drive's root has no . and ..";
}

TEST(enum_dir, failures_keep_their_code) {
    const file_place place;
    place.make_directory("empty");
    place.write("f", "");
    const struct {
        const char16_t* directory;
        uint32_t code;
    } rows[] = {{u"", 3},        {u"T:\\empty", 18}, {u"T:\\missing", 3},
                {u"T:\\f", 267}, {u"T:\\emp*", 123}, {u"Q:\\", 3}};
    for (const auto& row : rows) {
        SetLastError(12345);
        EXPECT_EQ(ZU_enum_dir_begin(row.directory, ZU_ENUM_DIR_SKIP_DOTS), nullptr)
            << zu_test::narrow(row.directory);
        EXPECT_EQ(GetLastError(), row.code) << zu_test::narrow(row.directory);
    }
    ZU_enum_dir_end(nullptr);
}

} // namespace
