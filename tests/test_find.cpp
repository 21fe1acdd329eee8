// Searches: patterns, dots, order of events, links, directories that change, fail or are large.
#include "platform/wildcard.h"
#include "support/test.h"

namespace {

using namespace platform;
using find = file_test;

TEST_F(find, patterns_match_as_on_the_platform) {
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

TEST_F(find, each_pattern_has_its_code) {
    place.write("file.txt", "");
    place.make_directory("empty");
    place.make_link("dangling", "nowhere");
    place.make_link("link", "empty");
    // With 18, so many were found.
    // clang-format off
    const std::tuple<const char16_t*, DWORD, size_t> rows[] = {
        {u"FILE.TXT", 18, 1}, {u"empty", 18, 1}, {u"dangling", 18, 1}, {u"empty\\..", 18, 1}, {u"empty\\*", 18, 2},
        {u"*", 18, 4}, {u"link\\*", 18, 2}, {u"empty\\*.x", 2, 0}, {u"*.none", 2, 0}, {u"none", 2, 0}, {u"..", 2, 0}, {u"", 2, 0},
        {u"empty\\", 2, 0}, {u"none\\*", 3, 0}, {u"none\\x", 3, 0}, {u"none\\", 3, 0}, {u"file.txt\\x\\y", 3, 0},
        {u"file.txt\\x\\*", 3, 0}, {u"file.txt\\*", 267, 0}, {u"file.txt\\x", 267, 0}, {u"file.txt\\", 267, 0},
        {u"*\\x", 123, 0}, {u".\\x", 123, 0}, {u"a/b", 123, 0}, {u"*|", 123, 0}};
    // clang-format on
    for (const auto& [pattern, code, count] : rows) {
        const listing found = list(place.long_path(pattern));
        EXPECT_EQ(found.code, code) << narrow(pattern);
        EXPECT_EQ(found.names.size(), count) << narrow(pattern);
    }
    EXPECT_EQ(list(u"T:\\*").entries.at(u"link").dwFileAttributes, 0x80u) << "the link itself";
    EXPECT_EQ(list(u"T:\\link").entries.at(u"link").dwFileAttributes, 0x10u) << "what it leads to";
    EXPECT_EQ(list(u"\\\\?\\T:").code, 123u);
    EXPECT_EQ(list(u"").code, 3u);
    EXPECT_EQ(list(u"T:\\empty\\*").names, (std::vector<std::u16string>{u".", u".."}));
    WIN32_FIND_DATAW found;
    for (const HANDLE bad : {HANDLE{}, INVALID_HANDLE_VALUE, CreateEventW(nullptr, 0, 0, nullptr)}) {
        EXPECT_EQ(code_after(FindNextFileW(bad, &found)), 6u);
        EXPECT_EQ(code_after(FindClose(bad)), 6u);
    }
}

TEST_F(find, large_and_changing_directories_are_walked_whole) {
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

TEST_F(find, a_deep_walk_keeps_no_directories_open) {
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

} // namespace
