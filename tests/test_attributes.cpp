// Attributes, creation times and links, for root and for an ordinary user.
#include <sys/xattr.h>

#include "support/test.h"

namespace {

using namespace platform;

std::string stored_text(const std::string& path, const char* name) {
    char text[64];
    const ssize_t size = getxattr(path.c_str(), name, text, sizeof text);
    return size < 0 ? "none" : std::string(text, static_cast<size_t>(size));
}

mode_t mode_of(const std::string& path) {
    struct stat status;
    return lstat(path.c_str(), &status) == 0 ? status.st_mode & 07777 : 0;
}

TEST(attributes, each_bit_reads_back_as_it_should) {
    // clang-format off
    const struct {
        DWORD set, file, directory;
    } rows[] = {
        {0, 0x80, 0x10}, {0x80, 0x80, 0x10}, {0x81, 0x01, 0x11}, {0x10, 0x80, 0x10}, {0x20, 0x20, 0x30},
        {0x01, 0x01, 0x11}, {0x02, 0x02, 0x12}, {0x04, 0x04, 0x14}, {0x07, 0x07, 0x17}, {0x27, 0x27, 0x37},
        {0x100, 0x100, 0x10}, {0x2000, 0x2000, 0x2010}, {0x800, 0x80, 0x10}, {0xFFFFFFFF, 0x2127, 0x2037},
    };
    // clang-format on
    as_both_users([&](const file_place& place) {
        place.write("file", "data");
        place.make_directory("directory");
        const std::u16string file = place.long_path(u"file"), directory = place.long_path(u"directory");
        for (const auto& row : rows) {
            for (const auto& [path, wanted] : {std::pair{file, row.file}, {directory, row.directory}}) {
                EXPECT_TRUE(SetFileAttributesW(path.c_str(), row.set))
                    << GetLastError() << std::hex << ' ' << row.set;
                EXPECT_EQ(GetFileAttributesW(path.c_str()), wanted) << std::hex << row.set;
                WIN32_FIND_DATAW found;
                EXPECT_TRUE(FindClose(FindFirstFileW(path.c_str(), &found)));
                EXPECT_EQ(found.dwFileAttributes, wanted) << std::hex << row.set;
            }
            // A directory's read-only says nothing about what is in it, and leaves the mode alone.
            EXPECT_EQ(mode_of(place.host_path("directory")), 0777u);
        }
        SetFileAttributesW(file.c_str(), 0);
        EXPECT_EQ(stored_text(place.host_path("file"), "user.DOSATTRIB"), "none");
    });
}

TEST(attributes, read_only_is_the_mode_and_the_rest_is_text_that_others_share) {
    const file_place place;
    place.write("file", "data");
    const std::string host = place.host_path("file");
    const std::u16string path = place.long_path(u"file");
    chmod(host.c_str(), 0664);
    EXPECT_EQ(GetFileAttributesW(path.c_str()), 0x80u);
    EXPECT_TRUE(SetFileAttributesW(path.c_str(), FILE_ATTRIBUTE_READONLY));
    EXPECT_EQ(mode_of(host), 0444u);
    EXPECT_EQ(stored_text(host, "user.DOSATTRIB"), "none");
    EXPECT_TRUE(SetFileAttributesW(path.c_str(), FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN));
    EXPECT_EQ(mode_of(host), 0444u);
    EXPECT_EQ(stored_text(host, "user.DOSATTRIB"), "0x3");
    chmod(host.c_str(), 0644);
    EXPECT_EQ(setxattr(host.c_str(), "user.DOSATTRIB", "0x27\0", 5, 0), 0);
    EXPECT_EQ(GetFileAttributesW(path.c_str()), 0x26u);
    EXPECT_EQ(setxattr(host.c_str(), "user.DOSATTRIB", "hidden", 6, 0), 0);
    EXPECT_EQ(GetFileAttributesW(path.c_str()), 0x80u);

    const struct {
        mode_t umask, before, after;
    } rows[] = {{022, 0444, 0644}, {002, 0444, 0664}, {0, 0444, 0666},    {022, 0440, 0640},
                {022, 0400, 0600}, {022, 0000, 0200}, {0222, 0444, 0644}, {022, 0555, 0755}};
    for (const auto& row : rows) {
        chmod(host.c_str(), row.before);
        const mode_t before = umask(row.umask);
        EXPECT_TRUE(SetFileAttributesW(path.c_str(), FILE_ATTRIBUTE_NORMAL));
        EXPECT_EQ(umask(before), row.umask);
        EXPECT_EQ(mode_of(host), row.after) << std::oct << row.umask << ' ' << row.before;
    }
}

TEST(attributes, opening_keeps_to_them_and_gives_them) {
    const file_place place;
    const std::u16string path = place.long_path(u"file");
    const auto code_of = [&](DWORD disposition, DWORD attributes) -> DWORD {
        const HANDLE file =
            CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, disposition, attributes, nullptr);
        if (file == INVALID_HANDLE_VALUE)
            return GetLastError();
        DWORD done; // also with the read-only that it has got itself
        EXPECT_TRUE(WriteFile(file, "x", 1, &done, nullptr) && CloseHandle(file));
        return 0;
    };
    EXPECT_EQ(code_of(CREATE_NEW, FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_SYSTEM), 0u);
    EXPECT_EQ(GetFileAttributesW(path.c_str()), 0x05u);
    EXPECT_EQ(code_of(OPEN_EXISTING, 0x80), 5u);
    EXPECT_TRUE(SetFileAttributesW(path.c_str(), FILE_ATTRIBUTE_SYSTEM));
    EXPECT_EQ(code_of(CREATE_ALWAYS, FILE_ATTRIBUTE_HIDDEN), 5u);
    EXPECT_EQ(place.read("file"), "x");
    EXPECT_EQ(code_of(CREATE_ALWAYS, FILE_ATTRIBUTE_SYSTEM | FILE_ATTRIBUTE_ARCHIVE), 0u);
    EXPECT_EQ(GetFileAttributesW(path.c_str()), 0x24u);
    EXPECT_TRUE(SetFileAttributesW(path.c_str(), FILE_ATTRIBUTE_ARCHIVE));
    EXPECT_EQ(code_of(CREATE_ALWAYS, 0x80), 0u);
    EXPECT_EQ(GetFileAttributesW(path.c_str()), 0x80u);
}

TEST(attributes, fail_with_50_where_they_cannot_be_kept) {
    const file_place place;
    if (mount("zu-test", place.host_path().c_str(), "ramfs", 0, "mode=0777") != 0)
        GTEST_SKIP() << "mounting a file system without extended attributes takes root";
    place.write("file", "data");
    const std::u16string path = place.long_path(u"file");
    for (const DWORD kept : {0x80u, 0x01u}) {
        EXPECT_TRUE(SetFileAttributesW(path.c_str(), kept));
        for (const DWORD bits : {0x02u, 0x03u})
            EXPECT_EQ(code_after(SetFileAttributesW(path.c_str(), bits)), 50u);
        EXPECT_EQ(GetFileAttributesW(path.c_str()), kept);
    }
    EXPECT_TRUE(SetFileAttributesW(path.c_str(), FILE_ATTRIBUTE_NORMAL));
    const HANDLE file =
        CreateFileW(path.c_str(), FILE_WRITE_ATTRIBUTES, 0, nullptr, OPEN_EXISTING, 0x80, nullptr);
    FILETIME before, after, time{0x12345678, 0x1C00000};
    EXPECT_TRUE(GetFileTime(file, nullptr, nullptr, &before));
    EXPECT_EQ(code_after(SetFileTime(file, &time, nullptr, &time)), 50u);
    EXPECT_TRUE(GetFileTime(file, nullptr, nullptr, &after));
    EXPECT_EQ(before.dwLowDateTime, after.dwLowDateTime);
    EXPECT_TRUE(CloseHandle(file));
    EXPECT_EQ(CreateFileW(place.long_path(u"new").c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW,
                          FILE_ATTRIBUTE_HIDDEN, nullptr),
              INVALID_HANDLE_VALUE);
    EXPECT_EQ(GetLastError(), 50u);
    EXPECT_FALSE(place.exists("new"));
    umount2(place.host_path().c_str(), MNT_DETACH);
}

uint64_t units(const FILETIME& time) {
    return uint64_t{time.dwHighDateTime} << 32 | time.dwLowDateTime;
}

FILETIME time_of(uint64_t units) {
    return {static_cast<uint32_t>(units), static_cast<uint32_t>(units >> 32)};
}

TEST(attributes, times_come_back_exactly_and_one_by_one) {
    as_both_users([](const file_place& place) {
        place.write("file", "data");
        chmod(place.host_path("file").c_str(), 0444);
        place.make_directory("directory");
        const uint64_t base = 0x01C8000012345678, early = 116444736000000000 - 12'345'678; // before 1970
        const FILETIME created = time_of(base), accessed = time_of(early), written = time_of(base + 2),
                       none = time_of(0), keep = time_of(UINT64_MAX), bad = time_of(uint64_t{1} << 63);
        for (const char16_t* name : {u"file", u"directory"}) {
            const std::u16string path = place.long_path(name);
            const HANDLE file = CreateFileW(path.c_str(), FILE_WRITE_ATTRIBUTES, 0, nullptr, OPEN_EXISTING,
                                            FILE_FLAG_BACKUP_SEMANTICS, nullptr);
            EXPECT_TRUE(SetFileTime(file, &created, &accessed, &written)) << GetLastError();
            EXPECT_TRUE(SetFileTime(file, nullptr, &none, &keep)) << "nothing changes";
            EXPECT_EQ(code_after(SetFileTime(file, &written, &bad, nullptr)), 87u);
            WIN32_FIND_DATAW found;
            EXPECT_TRUE(FindClose(FindFirstFileW(path.c_str(), &found)));
            EXPECT_EQ(units(found.ftCreationTime), base);
            EXPECT_EQ(units(found.ftLastWriteTime), base + 2);
            FILETIME times[3];
            EXPECT_TRUE(GetFileTime(file, &times[0], &times[1], &times[2]));
            EXPECT_EQ(units(times[0]), base);
            EXPECT_EQ(units(times[1]), early);
            EXPECT_EQ(units(times[2]), base + 2);
            EXPECT_TRUE(CloseHandle(file));
        }
        EXPECT_EQ(mode_of(place.host_path("file")), 0444u);
        const HANDLE reader = CreateFileW(place.long_path(u"file").c_str(), GENERIC_READ, 0, nullptr,
                                          OPEN_EXISTING, 0x80, nullptr);
        EXPECT_EQ(code_after(SetFileTime(reader, nullptr, nullptr, &created)), 5u);
        EXPECT_TRUE(CloseHandle(reader));
    });
}

TEST(attributes, links_pass_questions_on_and_keep_deletions_to_themselves) {
    const file_place place;
    place.write("target", "data");
    ASSERT_EQ(symlink("target", place.host_path("link").c_str()), 0);
    ASSERT_EQ(symlink("nowhere", place.host_path("dangling").c_str()), 0);
    const std::u16string link = place.long_path(u"link"), dangling = place.long_path(u"dangling");
    EXPECT_TRUE(SetFileAttributesW(link.c_str(), FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN));
    EXPECT_EQ(GetFileAttributesW(place.long_path(u"target").c_str()), 0x03u);
    EXPECT_EQ(GetFileAttributesW(dangling.c_str()), 0x80u);
    EXPECT_EQ(code_after(SetFileAttributesW(dangling.c_str(), FILE_ATTRIBUTE_HIDDEN)), 50u);
    const HANDLE made = CreateFileW(dangling.c_str(), GENERIC_WRITE, 0, nullptr, OPEN_ALWAYS, 0x80, nullptr);
    EXPECT_NE(made, INVALID_HANDLE_VALUE);
    EXPECT_TRUE(CloseHandle(made));
    EXPECT_TRUE(place.exists("nowhere"));
    EXPECT_TRUE(MoveFileExW(link.c_str(), place.long_path(u"moved").c_str(), 0));
    EXPECT_TRUE(DeleteFileW(place.long_path(u"moved").c_str())); // the read-only is the target's
    EXPECT_EQ(place.read("target"), "data");
    EXPECT_EQ(GetFileAttributesW(place.long_path(u"target").c_str()), 0x03u);
}

} // namespace
