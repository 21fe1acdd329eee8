// How names are found: whatever their letter case and their length, by patterns, from the current directory, and in a
// directory that is large and changes, also by many threads.
#include "support/portable.h"

namespace {

using lookup = scratch_test;

std::u16string found(const std::u16string& path) {
    return taken(ZU_get_actual_file_name(path.c_str()));
}

uint32_t creation_code(const std::u16string& path) {
    ZU_file* const file = ZU_open_file(path.c_str(), ZU_FILE_WRITE | ZU_FILE_CREATE_NEW, nullptr);
    ZU_close_file(file);
    return code_of(file != nullptr);
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
    EXPECT_EQ(creation_code(u"T:\\DATA\\größe\\σίσυφοσ.txt"), codes::file_exists);
    EXPECT_EQ(creation_code(u"T:\\DATA\\New"), codes::none);
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

uint32_t attribute_code(const std::u16string& path) {
    return code_of(ZU_path_attributes(path.c_str()) != 0);
}

// Goes down to a path of that many units, where all calls still work, and removes what it has made.
void go_down(size_t units) {
    const std::u16string step = u"\\" + std::u16string(249, u'd'), start = u"\\\\?\\T:";
    std::u16string parent, directory = start;
    bool made = true;
    while (made && directory.size() + step.size() < units) {
        parent = directory;
        directory += step;
        made = ZU_create_dir(directory.c_str(), nullptr);
    }
    EXPECT_TRUE(made) << GetLastError() << ' ' << directory.size();
    const std::u16string name(units - 1 - directory.size(), u'f'), path = directory + u"\\" + name;
    EXPECT_EQ(creation_code(path), 0u);
    std::u16string other_case = path;
    for (char16_t& unit : other_case)
        unit = unit == u'd' || unit == u'f' ? static_cast<char16_t>(unit & ~0x20) : unit;
    EXPECT_EQ(taken(ZU_get_actual_full_path(other_case.c_str())), path.substr(4));
    EXPECT_EQ(creation_code(other_case.substr(4)), codes::file_exists);
    EXPECT_EQ(attribute_code(directory + u"\\x"), codes::file_not_found);
    EXPECT_EQ(attribute_code(directory + u"x\\y"), codes::path_not_found);
    EXPECT_TRUE(ZU_set_file_platform_attributes(other_case.c_str(), FILE_ATTRIBUTE_HIDDEN));
    ZU_enum_dir* const walk = ZU_enum_dir_begin(parent.c_str(), ZU_ENUM_DIR_SKIP_DOTS);
    EXPECT_TRUE(walk && ZU_enum_dir_get(walk)->path == directory.substr(4));
    ZU_enum_dir_end(walk);
    EXPECT_TRUE(ZU_move_file(path.c_str(), (parent + u"\\up").c_str()));
    EXPECT_TRUE(ZU_delete_dir_recursive((start + step).c_str()));
}

// Beyond the 260 units that a path not in long form may have.
TEST_F(lookup, lengths) {
    go_down(3000);
}

// Well beyond the 4,096 bytes that Linux takes in one call. Natively the name of the drive's device counts, too.
TEST_F(lookup, down_to_the_last_unit) {
    go_down(std::filesystem::path::preferred_separator == '/' ? 32'767 : 32'700);
}

// The current directory, paths that count from it, and the code.
TEST_F(lookup, from_the_current_directory) {
    place.make_directory("work");
    place.make_directory("work/deep");
    for (const char* name : {"a", "work/b", "work/deep/c"})
        place.write(name, "");
    const std::tuple<const char*, uint32_t, std::vector<const char16_t*>> rows[] = {
        {"work",
         codes::none,
         {u"b", u".\\B", u"..\\a", u"deep\\c", u"./DEEP/../b", u"..\\..\\..\\a", u"\\a"}},
        {"work", codes::file_not_found, {u"a", u"c", u"..\\b", u"\\b", u"deep\\b"}},
        {"", codes::none, {u".", u"a", u"work\\b", u"..\\a", u"Work/.\\deep\\c"}},
        {"", codes::file_not_found, {u"b", u"work\\a"}},
        {"work/deep", codes::none, {u"c", u"..\\b", u"..\\../a", u"\\work/b", u"..\\..\\..\\a"}},
        {"work/deep", codes::path_not_found, {u"deep\\c", u"..\\work\\b"}}};
    for (const auto& [directory, code, all_paths] : rows) {
        std::filesystem::current_path(place.at(directory));
        for (const char16_t* path : all_paths)
            EXPECT_EQ(attribute_code(path), code) << directory << ": " << narrow(path);
    }
    EXPECT_TRUE(ZU_move_file(u"c", u"..\\moved") && place.exists("work/moved"));
    for (const char16_t* path : {u".", u"..\\deep", u"T:\\work\\deep"})
        EXPECT_EQ(code_of(ZU_delete_dir(path)), codes::sharing_violation) << narrow(path);
}

void fill_large(const scratch& place) {
    place.make_directory("large");
    for (int i = 0; i < 1500; ++i) // more than is read at once
        place.write("large/some file with a rather long name " + std::to_string(i), "");
}

// Of many names some change, and each is found right then, whoever has changed it.
TEST_F(lookup, large_directories) {
    fill_large(place);
    const std::string names[] = {"large/same",  "large/SAME",  "large/Same",
                                 "large/other", "large/OTHER", "large/Other"};
    std::minstd_rand random(7);
    for (int step = 0; step < 300; ++step) {
        const auto changed = place.at(names[random() % 6]), second = place.at(names[random() % 6]);
        std::error_code ignored; // there may be none
        switch (random() % 3) {
        case 0: std::ofstream(changed).close(); break;
        case 1: std::filesystem::remove(changed, ignored); break;
        default: std::filesystem::rename(second, changed, ignored); // over what is there, too
        }
        for (const auto* all : {names, names + 3}) { // the spellings of one
            const bool is_there = place.exists(all[0]) || place.exists(all[1]) || place.exists(all[2]);
            const std::u16string asked = all == names ? u"T:\\large\\sAME" : u"T:\\large\\oTHER";
            ASSERT_EQ(found(asked) != u"<null>", is_there) << step;
        }
    }
    EXPECT_EQ(attribute_code(u"T:\\large\\SOME FILE WITH A RATHER LONG NAME 7"), codes::none);
    std::filesystem::remove_all(place.at("large"));
    place.make_directory("large");
    EXPECT_EQ(attribute_code(u"T:\\large\\SOME FILE WITH A RATHER LONG NAME 7"), codes::file_not_found);
}

// Each thread finds its own files, by another spelling, and no others.
TEST_F(lookup, threads_in_one_directory) {
    fill_large(place);
    std::atomic<int> done{0};
    crew threads;
    for (char letter = 'a'; letter < 'g'; ++letter)
        threads.add([&done, letter] {
            const std::u16string name(50, letter), other_case(50, letter & ~0x20), at = u"T:\\large\\";
            for (int round = 0; round < 50; ++round)
                done += creation_code(at + name) == codes::none && found(at + other_case) == name
                        && ZU_move_file((at + other_case).c_str(), (at + name + u"2").c_str())
                        && attribute_code(at + other_case) == codes::file_not_found
                        && ZU_delete_file((at + other_case + u"2").c_str());
        });
    threads.join();
    EXPECT_EQ(done, 6 * 50);
}

TEST_F(lookup, a_directory_that_is_emptied_by_its_walk) {
    fill_large(place);
    ZU_enum_dir* const walk = ZU_enum_dir_begin(u"T:\\large", ZU_ENUM_DIR_SKIP_DOTS);
    size_t deleted = 0;
    for (bool more = walk != nullptr; more; more = ZU_enum_dir_next(walk))
        deleted += ZU_delete_file(ZU_enum_dir_get(walk)->path) != 0;
    EXPECT_EQ(deleted, 1500u);
    EXPECT_EQ(code_of(ZU_enum_dir_next(walk)), codes::no_more_files) << "again";
    ZU_enum_dir_end(walk);
}

} // namespace
