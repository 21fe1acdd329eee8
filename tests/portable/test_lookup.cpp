// How names are found: whatever their letter case, by patterns, and in a directory that changes while it is walked.
#include "support/portable.h"

namespace {

using lookup = scratch_test;

std::u16string found(const std::u16string& path) {
    return taken(ZU_get_actual_file_name(path.c_str()));
}

// Also that of a success, which tells whether the file was there.
uint32_t creation_code(const char16_t* path, uint32_t way) {
    ZU_file* const file = ZU_open_file(path, ZU_FILE_WRITE | way, nullptr);
    const uint32_t code = GetLastError();
    ZU_close_file(file);
    return code;
}

// Nothing is made beside another spelling of its name.
TEST_F(lookup, letter_case) {
    place.make_directory("Data");
    place.make_directory("Data/Größe");
    place.write("Data/Größe/ΣΊΣΥΦΟΣ.txt", "data");
    for (const auto& [path, name] : {std::pair{u"T:\\dATA\\GRÖSSE", u"<null>"}, // one letter stays one
                                     {u"T:\\dATA\\GRÖßE\\σίσυφοσ.TXT", u"ΣΊΣΥΦΟΣ.txt"},
                                     {u"\\\\?\\t:\\DATA\\größe", u"Größe"}})
        EXPECT_EQ(found(path), name) << narrow(path);
    for (const auto& [way, code] : {std::pair{ZU_FILE_CREATE_NEW, codes::file_exists},
                                    {ZU_FILE_CREATE_ALWAYS, codes::already_exists},
                                    {ZU_FILE_OPEN_ALWAYS, codes::already_exists}})
        EXPECT_EQ(creation_code(u"T:\\DATA\\größe\\σίσυφοσ.txt", way), code);
    EXPECT_EQ(code_of(ZU_create_dir(u"T:\\data", nullptr)), codes::already_exists);
    EXPECT_EQ(creation_code(u"T:\\DATA\\New", ZU_FILE_CREATE_NEW), codes::none);
    EXPECT_TRUE(place.exists("Data/New"));
    EXPECT_TRUE(place.exists("Data/Größe/ΣΊΣΥΦΟΣ.txt"));
}

// The names that a pattern finds, each of which is alone in a directory.
TEST_F(lookup, patterns) {
    // clang-format off
    const std::pair<const char*, const char*> rows[] = {
        {"*", "a a.txt ab.txt b.TXT c .d e.f.g "}, {"*.*", "a a.txt ab.txt b.TXT c .d e.f.g "},
        {"*.*.*", "a a.txt ab.txt b.TXT c .d e.f.g "}, {"*.txt", "a.txt ab.txt b.TXT "}, {"A.*", "a a.txt "},
        {"*.", "a c "}, {"a?.txt", "a.txt ab.txt "}, {"??.txt", "a.txt ab.txt b.TXT "}, {"a?", "a "}, {"?", "a c "},
        {".*", ".d "}, {"e*g", "e.f.g "}, {"*f*", "e.f.g "}, {"e.*.g", "e.f.g "}, {"*a*b*t*x*", "ab.txt "}, {"x*", ""},
    };
    // clang-format on
    std::map<std::string, std::string> matched;
    for (const char* name : {"a", "a.txt", "ab.txt", "b.TXT", "c", ".d", "e.f.g"}) {
        place.write(name, "");
        for (const auto& [pattern, wanted] : rows)
            matched[pattern] += found(u"T:\\" + wide(pattern)) == wide(name) ? name + std::string(" ") : "";
        ZU_delete_file((u"T:\\" + wide(name)).c_str());
    }
    for (const auto& [pattern, wanted] : rows)
        EXPECT_EQ(matched[pattern], wanted) << pattern;
    // No pattern takes longer than its length times that of the name.
    std::u16string stars = u"T:\\";
    for (int i = 0; i < 120; ++i)
        stars += u"*a";
    place.write(std::string(255, 'a'), "");
    EXPECT_EQ(found(stars + u"b"), u"<null>");
    EXPECT_EQ(found(stars), std::u16string(255, u'a'));
}

TEST_F(lookup, a_directory_that_is_emptied_by_its_walk) {
    place.make_directory("large");
    constexpr size_t count = 1500; // more than is read at once
    for (size_t i = 0; i < count; ++i)
        place.write("large/some file with a rather long name " + std::to_string(i), "");
    ZU_enum_dir* const walk = ZU_enum_dir_begin(u"T:\\large", ZU_ENUM_DIR_SKIP_DOTS);
    size_t deleted = 0;
    for (bool more = walk != nullptr; more; more = ZU_enum_dir_next(walk))
        deleted += ZU_delete_file(ZU_enum_dir_get(walk)->path) != 0;
    EXPECT_EQ(deleted, count);
    EXPECT_EQ(code_of(ZU_enum_dir_next(walk)), codes::no_more_files) << "again";
    ZU_enum_dir_end(walk);
}

} // namespace
