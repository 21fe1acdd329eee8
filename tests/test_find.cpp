// Searches: patterns, dots, order of events, links, directories that change, fail or are large.
#include "platform/wildcard.h"
#include "support/test.h"

namespace {

using namespace platform;

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
    place.make_link("dangling", "nowhere");
    // With 18, so many were found.
    // clang-format off
    const std::tuple<const char16_t*, DWORD, size_t> rows[] = {
        {u"FILE.TXT", 18, 1}, {u"empty", 18, 1}, {u"dangling", 18, 1}, {u"empty\\..", 18, 1}, {u"empty\\*", 18, 2},
        {u"*", 18, 3}, {u"empty\\*.x", 2, 0}, {u"*.none", 2, 0}, {u"none", 2, 0}, {u"..", 2, 0}, {u"", 2, 0},
        {u"empty\\", 2, 0}, {u"none\\*", 3, 0}, {u"none\\x", 3, 0}, {u"none\\", 3, 0}, {u"file.txt\\x\\y", 3, 0},
        {u"file.txt\\x\\*", 3, 0}, {u"file.txt\\*", 267, 0}, {u"file.txt\\x", 267, 0}, {u"file.txt\\", 267, 0},
        {u"*\\x", 123, 0}, {u".\\x", 123, 0}, {u"a/b", 123, 0}, {u"*|", 123, 0}};
    // clang-format on
    for (const auto& [pattern, code, count] : rows) {
        const listing found = list(place.long_path(pattern));
        EXPECT_EQ(found.code, code) << narrow(pattern);
        EXPECT_EQ(found.names.size(), count) << narrow(pattern);
    }
    EXPECT_EQ(list(u"\\\\?\\T:").code, 123u);
    EXPECT_EQ(list(u"").code, 3u);
    EXPECT_EQ(list(u"T:\\empty\\*").names, (std::vector<std::u16string>{u".", u".."}));
    WIN32_FIND_DATAW found;
    for (const HANDLE bad : {HANDLE{}, INVALID_HANDLE_VALUE, CreateEventW(nullptr, 0, 0, nullptr)}) {
        EXPECT_EQ(code_after(FindNextFileW(bad, &found)), 6u);
        EXPECT_EQ(code_after(FindClose(bad)), 6u);
    }
}

TEST(find, reports_entries_as_questions_by_path_do_but_links_themselves) {
    const file_place place;
    place.make_directory("sub");
    place.write("file", "12345");
    place.make_link("link", "sub");
    ASSERT_EQ(truncate(place.host_path("file").c_str(), 5'000'000'000), 0);
    ASSERT_TRUE(SetFileAttributesW(u"T:\\file", 0x03));
    ASSERT_TRUE(SetFileAttributesW(u"T:\\sub", FILE_ATTRIBUTE_SYSTEM));
    const FILETIME time{7, 0x01C80000};
    ASSERT_TRUE(
        SetFileTime(layer_file(u"T:\\file", FILE_WRITE_ATTRIBUTES, OPEN_EXISTING), &time, &time, &time));

    const listing found = list(u"T:\\*");
    EXPECT_EQ(found.names.size(), 3u) << "a root has no dots";
    const WIN32_FIND_DATAW& entry = found.entries.at(u"file");
    EXPECT_EQ(entry.dwFileAttributes, 0x03u);
    EXPECT_EQ(entry.nFileSizeLow | uint64_t{entry.nFileSizeHigh} << 32, 5'000'000'000u);
    for (const FILETIME& reported : {entry.ftCreationTime, entry.ftLastWriteTime})
        EXPECT_TRUE(reported.dwLowDateTime == 7 && reported.dwHighDateTime == 0x01C80000);
    EXPECT_EQ(found.entries.at(u"sub").dwFileAttributes, 0x14u);
    EXPECT_EQ(found.entries.at(u"link").dwFileAttributes, 0x80u);
    EXPECT_EQ(list(u"T:\\link").entries.at(u"link").dwFileAttributes, 0x14u);
    EXPECT_EQ(list(u"T:\\link\\*").names.size(), 2u);
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
    EXPECT_EQ(list(u"T:\\large\\*99").names.size(), count / 100);
    WIN32_FIND_DATAW found;
    const HANDLE search = FindFirstFileW(u"T:\\large\\*", &found);
    size_t seen = 0;
    for (bool more = true; more; more = FindNextFileW(search, &found))
        seen += DeleteFileW((u"T:\\large\\" + std::u16string(found.cFileName)).c_str()) != 0;
    EXPECT_EQ(seen, count);
    EXPECT_FALSE(FindNextFileW(search, &found));
    EXPECT_EQ(GetLastError(), 18u) << "again";
    EXPECT_TRUE(FindClose(search));

    fill();
    const HANDLE cut_short = FindFirstFileW(u"T:\\large\\*", &found);
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
        std::u16string path = u"T:\\";
        WIN32_FIND_DATAW found;
        for (int depth = 0; depth < 100; ++depth) {
            path += u"d\\";
            CreateDirectoryW(path.c_str(), nullptr);
            if (FindFirstFileW((path + u"*").c_str(), &found) == INVALID_HANDLE_VALUE) // and never closed
                std::printf("depth %d: %u", depth, GetLastError());
        }
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
        const listing found = list(u"T:\\dir\\*");
        std::printf("%zu %x %x", found.names.size(), found.entries.at(u"sub").dwFileAttributes,
                    found.entries.at(u"file").dwFileAttributes);
    });
    EXPECT_EQ(child.output, "4 10 80");
}

} // namespace
