// Attributes, creation times and links, for root and for an ordinary user.
#include <fcntl.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cstdio>
#include <string>

#include <gtest/gtest.h>

#include "platform/platform.h"
#include "support/files.h"

namespace {

using namespace platform;
using zu_test::file_place;

DWORD code_after(BOOL result) {
    return result ? ERROR_SUCCESS : GetLastError();
}

std::string stored_text(const std::string& path, const char* name) {
    char text[64];
    const ssize_t size = getxattr(path.c_str(), name, text, sizeof text);
    return size < 0 ? "none" : std::string(text, static_cast<size_t>(size));
}

mode_t mode_of(const std::string& path) {
    struct stat status;
    return lstat(path.c_str(), &status) == 0 ? status.st_mode & 07777 : 0;
}

// Runs as an ordinary user in a child and, where that is somebody else, here; gives both outputs, which must agree.
std::string as_both_users(const std::function<std::string()>& body) {
    const zu_test::outcome child = zu_test::run_as_ordinary_user([&] { std::printf("%s", body().c_str()); });
    return child.output == body() ? child.output : "differs: " + child.output;
}

TEST(attributes, each_bit_reads_back_as_it_should) {
    const file_place place;
    const struct {
        DWORD set, file, directory;
    } rows[] = {
        {0, 0x80, 0x10},          {0x80, 0x80, 0x10},  {0x81, 0x01, 0x11},           {0x10, 0x80, 0x10},
        {0x20, 0x20, 0x30},       {0x01, 0x01, 0x11},  {0x02, 0x02, 0x12},           {0x04, 0x04, 0x14},
        {0x06, 0x06, 0x16},       {0x07, 0x07, 0x17},  {0x27, 0x27, 0x37},           {0x100, 0x100, 0x10},
        {0x2000, 0x2000, 0x2010}, {0x800, 0x80, 0x10}, {0xFFFFFFFF, 0x2127, 0x2037},
    };
    const std::string wrong = as_both_users([&] {
        std::string text;
        place.write("file", "data");
        place.make_directory("directory");
        const std::u16string file = place.long_path(u"file"), directory = place.long_path(u"directory");
        for (const auto& row : rows) {
            for (const auto& [path, wanted] :
                 {std::pair{file, row.file}, std::pair{directory, row.directory}}) {
                const DWORD code = code_after(SetFileAttributesW(path.c_str(), row.set));
                WIN32_FIND_DATAW found;
                const HANDLE search = FindFirstFileW(path.c_str(), &found);
                FindClose(search);
                if (code != 0 || GetFileAttributesW(path.c_str()) != wanted
                    || found.dwFileAttributes != wanted)
                    text += std::to_string(row.set) + ' ' + std::to_string(code) + ' '
                            + std::to_string(GetFileAttributesW(path.c_str())) + "; ";
            }
            // A directory's read-only says nothing about what is in it, and leaves the mode alone.
            if (mode_of(place.host_path("directory")) != 0777)
                text += "mode; ";
        }
        SetFileAttributesW(file.c_str(), 0);
        SetFileAttributesW(directory.c_str(), 0);
        text += stored_text(place.host_path("file"), "user.DOSATTRIB") == "none" ? "" : "stored; ";
        DeleteFileW(file.c_str());
        RemoveDirectoryW(directory.c_str());
        return text;
    });
    EXPECT_EQ(wrong, "");
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
    const auto code_of = [&](DWORD disposition, DWORD attributes) {
        const HANDLE file =
            CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, disposition, attributes, nullptr);
        const DWORD code = file == INVALID_HANDLE_VALUE ? GetLastError() : 0;
        char byte = 'x';
        DWORD done;
        if (code == 0) {
            EXPECT_TRUE(
                WriteFile(file, &byte, 1, &done, nullptr)); // also with the read-only that it has got itself
            EXPECT_TRUE(CloseHandle(file));
        }
        return code;
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
    EXPECT_EQ(code_after(SetFileAttributesW(path.c_str(), FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_READONLY)),
              50u);
    EXPECT_EQ(GetFileAttributesW(path.c_str()), 0x80u);
    EXPECT_TRUE(SetFileAttributesW(path.c_str(), FILE_ATTRIBUTE_READONLY));
    EXPECT_EQ(code_after(SetFileAttributesW(path.c_str(), FILE_ATTRIBUTE_HIDDEN)), 50u);
    EXPECT_EQ(GetFileAttributesW(path.c_str()), 0x01u);
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

TEST(attributes, times_come_back_exactly_and_one_by_one) {
    const file_place place;
    const std::string wrong = as_both_users([&]() -> std::string {
        std::string text;
        const auto expect = [&](const char* what, uint64_t is, uint64_t wanted) {
            if (is != wanted)
                text += what + (' ' + std::to_string(is)) + " instead of " + std::to_string(wanted) + "; ";
        };
        place.write("file", "data");
        chmod(place.host_path("file").c_str(), 0444);
        place.make_directory("directory");
        const uint64_t base = 0x01C8000012345678, early = 116444736000000000 - 12'345'678; // before 1970
        for (const char16_t* name : {u"file", u"directory"}) {
            const std::u16string path = place.long_path(name);
            const HANDLE file = CreateFileW(path.c_str(), FILE_WRITE_ATTRIBUTES, 0, nullptr, OPEN_EXISTING,
                                            FILE_FLAG_BACKUP_SEMANTICS, nullptr);
            const auto time = [](uint64_t value) {
                return FILETIME{static_cast<uint32_t>(value), static_cast<uint32_t>(value >> 32)};
            };
            const FILETIME created = time(base), accessed = time(early), written = time(base + 2),
                           none = time(0), keep = time(UINT64_MAX), bad = time(uint64_t{1} << 63);
            expect("set", code_after(SetFileTime(file, &created, &accessed, &written)), 0);
            expect("nothing", code_after(SetFileTime(file, nullptr, &none, &keep)), 0);
            expect("bad", code_after(SetFileTime(file, &written, &bad, nullptr)), 87);
            WIN32_FIND_DATAW found;
            FindClose(FindFirstFileW(path.c_str(), &found));
            expect("found creation", units(found.ftCreationTime), base);
            expect("found write", units(found.ftLastWriteTime), base + 2);
            FILETIME times[3];
            expect("get", code_after(GetFileTime(file, &times[0], &times[1], &times[2])), 0);
            expect("creation", units(times[0]), base);
            expect("access", units(times[1]), early);
            expect("write", units(times[2]), base + 2);
            CloseHandle(file);
        }
        expect("mode", mode_of(place.host_path("file")), 0444);
        const HANDLE reader = CreateFileW(place.long_path(u"file").c_str(), GENERIC_READ, 0, nullptr,
                                          OPEN_EXISTING, 0x80, nullptr);
        const FILETIME any{1, 1};
        expect("reader", code_after(SetFileTime(reader, nullptr, nullptr, &any)), 5);
        CloseHandle(reader);
        SetFileAttributesW(place.long_path(u"file").c_str(), 0x80);
        DeleteFileW(place.long_path(u"file").c_str());
        RemoveDirectoryW(place.long_path(u"directory").c_str());
        return text;
    });
    EXPECT_EQ(wrong, "");
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
