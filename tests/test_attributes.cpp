// Attributes, creation times and links, for root and for an ordinary user.
#include <sys/xattr.h>

#include "support/test.h"

namespace {

using namespace platform;

std::string stored_text(const std::string& path) {
    char text[64];
    const ssize_t size = getxattr(path.c_str(), "user.DOSATTRIB", text, sizeof text);
    return size < 0 ? "none" : std::string(text, static_cast<size_t>(size));
}

mode_t mode_of(const std::string& path) {
    struct stat status;
    return lstat(path.c_str(), &status) == 0 ? status.st_mode & 07777 : 0;
}

TEST(attributes, each_bit_reads_back_as_it_should) {
    // What is set, and what a file and a directory have then.
    const std::array<DWORD, 3> rows[] = {
        {0, 0x80, 0x10},      {0x81, 0x01, 0x11},       {0x10, 0x80, 0x10},           {0x20, 0x20, 0x30},
        {0x01, 0x01, 0x11},   {0x02, 0x02, 0x12},       {0x04, 0x04, 0x14},           {0x27, 0x27, 0x37},
        {0x100, 0x100, 0x10}, {0x2000, 0x2000, 0x2010}, {0xFFFFFFFF, 0x2127, 0x2037}, {0x800, 0x80, 0x10}};
    as_both_users([&](const file_place& place) {
        place.write("file", "data");
        place.make_directory("directory");
        for (const auto& [set, of_file, of_directory] : rows) {
            SCOPED_TRACE(set);
            for (const auto& [path, wanted] :
                 {std::pair{u"T:\\file", of_file}, {u"T:\\directory", of_directory}}) {
                EXPECT_TRUE(SetFileAttributesW(path, set)) << GetLastError();
                EXPECT_EQ(GetFileAttributesW(path), wanted);
                const listing found = list(path);
                ASSERT_EQ(found.names.size(), 1u);
                EXPECT_EQ(found.entries.begin()->second.dwFileAttributes, wanted);
            }
            // A directory's read-only says nothing about what is in it, and leaves the mode alone.
            EXPECT_EQ(mode_of(place.host_path("directory")), 0777u);
        }
        EXPECT_EQ(stored_text(place.host_path("file")), "none");
    });
}

TEST(attributes, read_only_is_the_mode_and_the_rest_is_text_that_others_share) {
    const file_place place;
    place.write("file", "data");
    const std::string host = place.host_path("file");
    const char16_t* path = u"T:\\file";
    chmod(host.c_str(), 0664);
    for (const auto& [set, text] : {std::pair{0x01u, "none"}, {0x03u, "0x3"}}) {
        EXPECT_TRUE(SetFileAttributesW(path, set));
        EXPECT_EQ(mode_of(host), 0444u);
        EXPECT_EQ(stored_text(host), text);
    }
    chmod(host.c_str(), 0644);
    for (const auto& [text, wanted] : {std::pair{std::string("0x27\0", 5), 0x26u}, {"hidden", 0x80u}}) {
        EXPECT_EQ(setxattr(host.c_str(), "user.DOSATTRIB", text.data(), text.size(), 0), 0);
        EXPECT_EQ(GetFileAttributesW(path), wanted);
    }
    const std::array<mode_t, 3> rows[] = {{022, 0444, 0644}, {002, 0444, 0664}, {022, 0440, 0640},
                                          {022, 0000, 0200}, {022, 0555, 0755}, {0222, 0444, 0644}};
    for (const auto& [mask, before, after] : rows) {
        chmod(host.c_str(), before);
        const mode_t outside = umask(mask);
        EXPECT_TRUE(SetFileAttributesW(path, FILE_ATTRIBUTE_NORMAL));
        EXPECT_EQ(umask(outside), mask);
        EXPECT_EQ(mode_of(host), after) << std::oct << mask << ' ' << before;
    }
}

TEST(attributes, opening_keeps_to_them_and_gives_them) {
    const file_place place;
    const std::array<DWORD, 5> rows[] = {{0, CREATE_NEW, 0x05, 0, 0x05},
                                         {0, OPEN_EXISTING, 0x80, 5, 0x05},
                                         {0x04, CREATE_ALWAYS, 0x02, 5, 0x04},
                                         {0, CREATE_ALWAYS, 0x24, 183, 0x24},
                                         {0x20, CREATE_ALWAYS, 0x80, 183, 0x80}};
    for (const auto& [before, disposition, given, code, after] :
         rows) { // before: 0 for what the row above left
        EXPECT_TRUE(before == 0 || SetFileAttributesW(u"T:\\file", before));
        const layer_file file(u"T:\\file", GENERIC_WRITE, disposition, 0, given);
        EXPECT_EQ(file.code, code);
        DWORD done; // also with the read-only that it has got itself
        EXPECT_EQ(WriteFile(file, "x", 1, &done, nullptr), code != 5);
        EXPECT_EQ(GetFileAttributesW(u"T:\\file"), after);
        EXPECT_EQ(place.read("file"), "x");
    }
}

TEST(attributes, fail_with_50_where_they_cannot_be_kept) {
    const file_place place;
    if (mount("zu-test", place.host_path().c_str(), "ramfs", 0, "mode=0777") != 0)
        GTEST_SKIP() << "mounting a file system without extended attributes takes root";
    place.write("file", "data");
    for (const DWORD kept : {0x01u, 0x80u}) {
        EXPECT_TRUE(SetFileAttributesW(u"T:\\file", kept));
        for (const DWORD bits : {0x02u, 0x03u})
            EXPECT_EQ(code_after(SetFileAttributesW(u"T:\\file", bits)), 50u);
        EXPECT_EQ(GetFileAttributesW(u"T:\\file"), kept);
    }
    layer_file file(u"T:\\file", FILE_WRITE_ATTRIBUTES, OPEN_EXISTING);
    FILETIME before, after, time{0x12345678, 0x1C00000};
    EXPECT_TRUE(GetFileTime(file, nullptr, nullptr, &before));
    EXPECT_EQ(code_after(SetFileTime(file, &time, nullptr, &time)), 50u);
    EXPECT_TRUE(GetFileTime(file, nullptr, nullptr, &after));
    EXPECT_EQ(before.dwLowDateTime, after.dwLowDateTime);
    file.close();
    EXPECT_EQ(layer_file(u"T:\\new", GENERIC_WRITE, CREATE_NEW, 0, FILE_ATTRIBUTE_HIDDEN).code, 50u);
    EXPECT_FALSE(place.exists("new"));
    umount2(place.host_path().c_str(), MNT_DETACH);
}

TEST(attributes, times_come_back_exactly_and_one_by_one) {
    as_both_users([](const file_place& place) {
        place.write("file", "data");
        chmod(place.host_path("file").c_str(), 0444);
        place.make_directory("directory");
        const uint64_t base = 0x01C8000012345678, early = 116444736000000000 - 12'345'678; // before 1970
        const FILETIME created = std::bit_cast<FILETIME>(base), accessed = std::bit_cast<FILETIME>(early),
                       written = std::bit_cast<FILETIME>(base + 2),
                       none = std::bit_cast<FILETIME>(uint64_t{0}),
                       keep = std::bit_cast<FILETIME>(UINT64_MAX),
                       bad = std::bit_cast<FILETIME>(uint64_t{1} << 63);
        for (const char16_t* path : {u"T:\\file", u"T:\\directory"}) {
            const layer_file file(path, FILE_WRITE_ATTRIBUTES, OPEN_EXISTING, 0, FILE_FLAG_BACKUP_SEMANTICS);
            EXPECT_TRUE(SetFileTime(file, &created, &accessed, &written)) << GetLastError();
            EXPECT_TRUE(SetFileTime(file, nullptr, &none, &keep)) << "nothing changes";
            EXPECT_EQ(code_after(SetFileTime(file, &written, &bad, nullptr)), 87u);
            FILETIME times[3];
            EXPECT_TRUE(GetFileTime(file, &times[0], &times[1], &times[2]));
            EXPECT_EQ(std::bit_cast<uint64_t>(times[0]), base);
            EXPECT_EQ(std::bit_cast<uint64_t>(times[1]), early);
            EXPECT_EQ(std::bit_cast<uint64_t>(times[2]), base + 2);
        }
        EXPECT_EQ(mode_of(place.host_path("file")), 0444u);
        const layer_file reader(u"T:\\file", GENERIC_READ, OPEN_EXISTING);
        EXPECT_EQ(code_after(SetFileTime(reader, nullptr, nullptr, &created)), 5u);
    });
}

TEST(attributes, links_pass_questions_on) {
    const file_place place;
    place.write("target", "data");
    place.make_link("link", "target");
    place.make_link("dangling", "nowhere");
    EXPECT_TRUE(SetFileAttributesW(u"T:\\link", 0x03));
    EXPECT_EQ(GetFileAttributesW(u"T:\\target"), 0x03u);
    EXPECT_EQ(GetFileAttributesW(u"T:\\dangling"), 0x80u);
    EXPECT_EQ(code_after(SetFileAttributesW(u"T:\\dangling", FILE_ATTRIBUTE_HIDDEN)), 50u);
    EXPECT_EQ(layer_file(u"T:\\dangling", GENERIC_WRITE, OPEN_ALWAYS).code, 0u);
    EXPECT_TRUE(place.exists("nowhere"));
}

} // namespace
