// Searches: patterns, dots, order of events, links, directories that change, fail or are large.
#include <dirent.h>

#include "platform/wildcard.h"
#include "support/test.h"

namespace {

using namespace platform;

struct listing {
    DWORD code = 0; // of the first call, or of the last one
    std::vector<std::string> names;
    std::map<std::string, WIN32_FIND_DATAW> entries;
};

listing list(const std::u16string& pattern) {
    listing out;
    WIN32_FIND_DATAW found;
    const HANDLE search = FindFirstFileW(pattern.c_str(), &found);
    for (bool more = search != INVALID_HANDLE_VALUE; more; more = FindNextFileW(search, &found)) {
        out.names.push_back(narrow(found.cFileName));
        out.entries[out.names.back()] = found;
    }
    out.code = GetLastError();
    if (search != INVALID_HANDLE_VALUE) {
        EXPECT_FALSE(FindNextFileW(search, &found));
        EXPECT_EQ(GetLastError(), 18u);
        EXPECT_TRUE(FindClose(search));
    }
    return out;
}

TEST(find, patterns_match_as_on_the_platform) {
    // clang-format off
    const std::pair<const char16_t*, const char*> rows[] = {
        {u"*", "a a.txt ab.txt b.TXT c .d e.f.g "}, {u"*.*", "a a.txt ab.txt b.TXT c .d e.f.g "},
        {u"*.*.*", "a a.txt ab.txt b.TXT c .d e.f.g "}, {u"*.txt", "a.txt ab.txt b.TXT "}, {u"A.*", "a a.txt "},
        {u"*.", "a c "}, {u"a?.txt", "a.txt ab.txt "}, {u"??.txt", "a.txt ab.txt b.TXT "}, {u"a?", "a "}, {u"?", "a c "},
        {u".*", ".d "}, {u"e*g", "e.f.g "}, {u"*f*", "e.f.g "}, {u"e.*.g", "e.f.g "}, {u"*a*b*t*x*", "ab.txt "}, {u"x*", ""},
    };
    // clang-format on
    for (const auto& [pattern, wanted] : rows) {
        std::string matched;
        for (const char16_t* name : {u"a", u"a.txt", u"ab.txt", u"b.TXT", u"c", u".d", u"e.f.g"})
            matched += matches(pattern, name) ? narrow(name) + ' ' : "";
        EXPECT_EQ(matched, wanted) << narrow(pattern);
    }
    // No pattern takes longer than its length times that of the name.
    std::u16string stars;
    for (int i = 0; i < 120; ++i)
        stars += u"*a";
    EXPECT_FALSE(matches(stars + u"b", std::u16string(255, u'a')));
}

TEST(find, each_pattern_has_its_code) {
    const file_place place;
    place.write("file.txt", "");
    place.make_directory("empty");
    ASSERT_EQ(symlink("nowhere", place.host_path("dangling").c_str()), 0);
    // clang-format off
    const struct {
        const char16_t* pattern;
        DWORD code; // 18: something was found
        size_t count;
    } rows[] = {
        {u"file.txt", 18, 1}, {u"FILE.TXT", 18, 1}, {u"empty", 18, 1}, {u"dangling", 18, 1}, {u"empty\\..", 18, 1},
        {u"empty\\*", 18, 2}, {u"*", 18, 3}, {u"empty\\*.x", 2, 0}, {u"*.none", 2, 0}, {u"none", 2, 0}, {u"..", 2, 0},
        {u"", 2, 0}, {u"empty\\", 2, 0}, {u"none\\*", 3, 0}, {u"none\\x", 3, 0}, {u"none\\", 3, 0},
        {u"file.txt\\x\\y", 3, 0}, {u"file.txt\\x\\*", 3, 0}, {u"file.txt\\*", 267, 0}, {u"file.txt\\x", 267, 0},
        {u"file.txt\\", 267, 0}, {u"*\\x", 123, 0}, {u".\\x", 123, 0}, {u"a/b", 123, 0}, {u"*|", 123, 0},
    };
    // clang-format on
    for (const auto& row : rows) {
        const listing found = list(place.long_path(row.pattern));
        EXPECT_EQ(found.code, row.code) << narrow(row.pattern);
        EXPECT_EQ(found.names.size(), row.count) << narrow(row.pattern);
    }
    EXPECT_EQ(list(u"\\\\?\\T:").code, 123u);
    EXPECT_EQ(list(u"").code, 3u);
    EXPECT_EQ(list(place.drive_path(u"empty\\*")).names, (std::vector<std::string>{".", ".."}));
    WIN32_FIND_DATAW found;
    for (const HANDLE bad : {HANDLE{}, INVALID_HANDLE_VALUE, CreateEventW(nullptr, 0, 0, nullptr)}) {
        EXPECT_FALSE(FindNextFileW(bad, &found));
        EXPECT_EQ(GetLastError(), 6u);
        EXPECT_FALSE(FindClose(bad));
        EXPECT_EQ(GetLastError(), 6u);
    }
}

TEST(find, reports_entries_as_questions_by_path_do_but_links_themselves) {
    const file_place place;
    place.make_directory("dir");
    place.make_directory("dir/sub");
    place.write("dir/file", "12345");
    ASSERT_EQ(truncate(place.host_path("dir/file").c_str(), 5'000'000'000), 0);
    ASSERT_EQ(symlink("sub", place.host_path("dir/link").c_str()), 0);
    const std::u16string directory = place.long_path(u"dir\\");
    ASSERT_TRUE(SetFileAttributesW((directory + u"file").c_str(), 0x03));
    ASSERT_TRUE(SetFileAttributesW((directory + u"sub").c_str(), FILE_ATTRIBUTE_SYSTEM));
    const HANDLE file = CreateFileW((directory + u"file").c_str(), FILE_WRITE_ATTRIBUTES, 0, nullptr,
                                    OPEN_EXISTING, 0x80, nullptr);
    const FILETIME time{7, 0x01C80000};
    ASSERT_TRUE(SetFileTime(file, &time, &time, &time) && CloseHandle(file));

    const listing found = list(directory + u"*");
    ASSERT_EQ(found.names.size(), 5u);
    EXPECT_EQ(found.names[0], ".");
    EXPECT_EQ(found.names[1], "..");
    const WIN32_FIND_DATAW& entry = found.entries.at("file");
    EXPECT_EQ(entry.dwFileAttributes, 0x03u);
    EXPECT_EQ(entry.nFileSizeLow | uint64_t{entry.nFileSizeHigh} << 32, 5'000'000'000u);
    for (const FILETIME& reported : {entry.ftCreationTime, entry.ftLastWriteTime})
        EXPECT_TRUE(reported.dwLowDateTime == 7 && reported.dwHighDateTime == 0x01C80000);
    EXPECT_EQ(found.entries.at("sub").dwFileAttributes, 0x14u);
    EXPECT_EQ(found.entries.at("link").dwFileAttributes, 0x80u);
    EXPECT_EQ(list(directory + u"link").entries.at("link").dwFileAttributes, 0x14u);
    EXPECT_EQ(list(directory + u"link\\*").names.size(), 2u);
}

TEST(find, large_and_changing_directories_are_walked_whole) {
    const file_place place;
    place.make_directory("large");
    constexpr size_t count = 1500; // more than is read at once
    const auto fill = [&] {
        for (size_t i = 0; i < count; ++i)
            place.write("large/some file with a rather long name " + std::to_string(i), "");
    };
    fill();
    const std::u16string pattern = place.long_path(u"large\\*");
    EXPECT_EQ(list(pattern).names.size(), count + 2);
    EXPECT_EQ(list(place.long_path(u"large\\*99")).names.size(), count / 100);

    WIN32_FIND_DATAW found;
    const HANDLE search = FindFirstFileW(pattern.c_str(), &found);
    size_t seen = 0;
    for (bool more = true; more; more = FindNextFileW(search, &found)) {
        const std::u16string path = place.long_path(u"large\\" + std::u16string(found.cFileName));
        seen += !(found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) && DeleteFileW(path.c_str());
    }
    EXPECT_EQ(seen, count);
    EXPECT_TRUE(FindClose(search));

    fill();
    const HANDLE cut_short = FindFirstFileW(pattern.c_str(), &found);
    std::filesystem::remove_all(place.host_path("large"));
    while (FindNextFileW(cut_short, &found)) {}
    EXPECT_EQ(GetLastError(), 18u) << "the directory is gone, and so are its entries";
    EXPECT_TRUE(FindClose(cut_short));
}

TEST(find, a_deep_walk_keeps_no_directories_open) {
    const file_place place;
    const outcome child = run_child([&] {
        const rlimit few{40, 40};
        setrlimit(RLIMIT_NOFILE, &few);
        std::vector<HANDLE> open;
        std::u16string path = place.long_path(u"");
        WIN32_FIND_DATAW found;
        for (int depth = 0; depth < 100; ++depth) {
            path += u"d\\";
            CreateDirectoryW(path.c_str(), nullptr);
            open.push_back(FindFirstFileW((path + u"*").c_str(), &found));
            if (open.back() == INVALID_HANDLE_VALUE)
                std::printf("depth %d: %u", depth, GetLastError());
        }
        for (const HANDLE search : open)
            FindClose(search);
    });
    EXPECT_EQ(child.output, "");
}

TEST(find, what_may_be_listed_but_not_looked_at_is_listed) {
    const file_place place;
    place.make_directory("dir");
    place.make_directory("dir/sub");
    place.write("dir/file", "data");
    chmod(place.host_path("dir").c_str(), 0444);
    const outcome child = run_as_ordinary_user([&] {
        const listing found = list(place.long_path(u"dir\\*"));
        std::printf("%zu %x %x", found.names.size(), found.entries.at("sub").dwFileAttributes,
                    found.entries.at("file").dwFileAttributes);
    });
    EXPECT_EQ(child.output, "4 10 80");
}

} // namespace
