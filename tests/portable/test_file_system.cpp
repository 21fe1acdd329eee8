// The recursive delete. File handles: reading ahead, positions, gathered writes, two names of one file, and what a started
// program has of them. Ways to open, moves and deletes of single items, with their attributes, are in results/files.cpp.
#include "support/portable.h"

namespace {

constexpr uint32_t hidden = FILE_ATTRIBUTE_HIDDEN, system_ = FILE_ATTRIBUTE_SYSTEM;
constexpr uint32_t read_only = FILE_ATTRIBUTE_READONLY;
constexpr uint32_t ok = codes::none, wrong = codes::invalid_parameter;
constexpr uint32_t shared =
    ZU_FILE_SHARE_READ | ZU_FILE_SHARE_WRITE; // with the test, which looks at the file

// What was set, of what both platforms keep: a new file may count as one to archive.
uint32_t bits_of(const char16_t* path) {
    return ZU_get_file_platform_attributes(path) & (read_only | hidden | system_);
}

TEST(file_system, recursive_delete) {
    const scratch place;
    for (const char* directory : {"tree", "tree/d1", "tree/d2", "tree/d2/deep"})
        place.make_directory(directory);
    for (int f = 0; f < 500; ++f)
        place.write("tree/d1/f" + std::to_string(f), "");
    place.write("tree/\xc3\xa4", "");
    place.write("tree/d2/f", "");
    for (const char16_t* path : {u"T:\\tree\\\u00e4", u"T:\\tree\\d2"})
        ASSERT_TRUE(ZU_set_file_platform_attributes(path, read_only | system_));
    ZU_file* open = ZU_open_file(u"T:\\tree\\d1\\f3", ZU_FILE_READ | ZU_FILE_OPEN_EXISTING, nullptr);
    EXPECT_EQ(code_of(ZU_delete_dir_recursive(u"T:\\tree")), codes::directory_not_empty)
        << "what is in use stays";
    EXPECT_TRUE(place.exists("tree/d1/f3"));
    EXPECT_FALSE(place.exists("tree/d1/f4") || place.exists("tree/d2"));
    ZU_close_file(open);
    EXPECT_EQ(code_of(ZU_delete_dir_recursive(u"T:\\tree\\")), 0u);
    EXPECT_EQ(code_of(ZU_delete_dir_recursive(u"T:\\tree")), codes::file_not_found);
}

// On a small stack, with few files open, and with more entries at the top than one reading of it gives.
TEST(file_system, a_deep_tree_costs_neither_stack_nor_descriptors) {
    const scratch place;
    place.make_directory("tree");
    for (int f = 0; f < 1000; ++f)
        place.write("tree/" + std::string(60, 'f') + std::to_string(f), "");
    std::u16string path = u"T:\\tree";
    for (int depth = 0; depth < 250; ++depth) {
        path += u"\\d";
        const std::u16string file = path + u"\\f";
        ASSERT_TRUE(ZU_create_dir(path.c_str(), nullptr)) << depth;
        if (depth < 100)
            continue;
        ZU_close_file(ZU_open_file(file.c_str(), ZU_FILE_WRITE | ZU_FILE_CREATE_NEW, nullptr));
        ASSERT_TRUE(ZU_set_file_platform_attributes(file.c_str(), read_only)) << depth;
    }
    allow_descriptors(10);
    uint32_t code = no_code;
    const auto remove = [](void*) { return code_of(ZU_delete_dir_recursive(u"T:\\tree")); };
    ZU_thread_wait_for_termination(ZU_thread_create_ex(remove, nullptr, 128 * 1024), &code);
    EXPECT_EQ(code, ok);
    EXPECT_FALSE(place.exists("tree"));
}

bool written(ZU_file* file, const std::string& bytes) {
    uint32_t done = 77;
    return ZU_write_file(file, bytes.data(), static_cast<uint32_t>(bytes.size()), &done)
           && done == bytes.size();
}

std::string read(ZU_file* file, uint32_t count) {
    std::string bytes(count, '\0');
    uint32_t done = 77;
    return ZU_read_file(file, bytes.data(), count, &done) ? bytes.substr(0, done) : "failed";
}

// A reader that keeps writers away reads ahead. Bytes that another program appends are still seen, where the platform
// lets it, and so are its own.
TEST(file, reading_ahead_hides_nothing) {
    const scratch place;
    std::string data, seen;
    for (int i = 0; data.size() < 200'000; ++i)
        data += "line " + std::to_string(i) + ' ';
    place.write("f", data);
    ZU_file* file =
        ZU_open_file(u"T:\\f", ZU_FILE_READ | ZU_FILE_OPEN_EXISTING | ZU_FILE_SHARE_READ, nullptr);
    for (uint32_t step = 1; seen.size() < data.size(); step = step * 7 % 5003) {
        const std::string part = read(file, step);
        seen += part;
        const size_t back = part.size() / 3; // as a line reader gives back what it has read too far
        ASSERT_TRUE(ZU_seek_file(file, -static_cast<int64_t>(back), nullptr, ZU_SEEK_CURRENT));
        seen.resize(seen.size() - back);
        ASSERT_TRUE(data.starts_with(seen));
    }
    EXPECT_EQ(read(file, 10), "");
    std::ofstream(place.at("f"), std::ios::app) << "appended";
    EXPECT_EQ(read(file, 100), place.read("f").substr(data.size()));
    ZU_close_file(file);

    file = ZU_open_file(u"T:\\f", ZU_FILE_READ | ZU_FILE_WRITE | ZU_FILE_OPEN_EXISTING, nullptr);
    EXPECT_EQ(read(file, 4), "line");
    EXPECT_TRUE(written(file, "-"));
    EXPECT_TRUE(ZU_seek_file(file, 0, nullptr, ZU_SEEK_BEGIN));
    EXPECT_EQ(read(file, 6), "line-0");
    EXPECT_TRUE(ZU_seek_file(file, 5, nullptr, ZU_SEEK_BEGIN));
    EXPECT_TRUE(ZU_set_end_of_file(file));
    EXPECT_EQ(read(file, 6), "");
    ZU_close_file(file);
}

TEST(file, gather_lists) {
    const scratch place;
    ZU_file* file = ZU_open_file(u"T:\\f", ZU_FILE_WRITE | ZU_FILE_CREATE_NEW | shared, nullptr);
    const auto* bytes = reinterpret_cast<const uint8_t*>("abcd");
    std::vector<ZU_file_vec> list(1025, ZU_file_vec{bytes, 1});
    list[1] = {nullptr, 0};
    const ZU_file_vec two[] = {{bytes, 2}, {bytes + 2, 2}}, huge[] = {{bytes, 0xFFFFFFFF}, {bytes, 4}};
    const std::tuple<const ZU_file_vec*, int32_t, uint32_t, uint32_t> rows[] = {
        {list.data(), 1025, wrong, 0}, {list.data(), 1024, ok, 1023}, {two, 2, ok, 4},
        {list.data(), 0, ok, 0},       {list.data(), -1, ok, 0},      {huge, 2, wrong, 0},
    };
    for (const auto& [pieces, count, code, wanted] : rows) {
        uint32_t done = 7;
        EXPECT_EQ(code_of(ZU_write_file_v(file, pieces, count, &done)), code) << count;
        EXPECT_EQ(done, wanted) << count;
    }
    EXPECT_EQ(place.read("f"), std::string(1023, 'a') + "abcd");
    ZU_close_file(file);
}

TEST(file, rights_positions_and_bounds) {
    const scratch place;
    place.write("f", "0123456789");
    ZU_file *reader = ZU_open_file(u"T:\\f", ZU_FILE_READ | ZU_FILE_OPEN_EXISTING | shared, nullptr),
            *writer = ZU_open_file(u"T:\\f", ZU_FILE_WRITE | ZU_FILE_OPEN_EXISTING | shared, nullptr);
    for (const char* piece : {"012345", "6789", ""})
        EXPECT_EQ(read(reader, 6), piece);
    EXPECT_TRUE(read(writer, 1) == "failed" && !written(reader, "x"));
    uint64_t position = 7;
    EXPECT_TRUE(ZU_seek_file(writer, 5, &position, ZU_SEEK_END) && position == 15);
    EXPECT_EQ(code_of(ZU_seek_file(writer, -16, &position, ZU_SEEK_CURRENT)), codes::negative_seek);
    EXPECT_EQ(code_of(ZU_seek_file(writer, 0, nullptr, 3)), wrong);
    EXPECT_EQ(position, 0u);
    EXPECT_TRUE(ZU_tell_file(writer, &position));
    EXPECT_EQ(position, 15u) << "no failed seek has moved it";
    EXPECT_TRUE(written(writer, ""));
    EXPECT_EQ(place.read("f").size(), 10u) << "writing nothing does not extend";
    EXPECT_TRUE(written(writer, "z"));
    EXPECT_EQ(read(reader, 9), std::string("\0\0\0\0\0z", 6)) << "what another wrote meanwhile";
    for (const uint32_t end : {20u, 4u}) {
        EXPECT_TRUE(ZU_seek_file(writer, end, nullptr, ZU_SEEK_BEGIN));
        EXPECT_TRUE(ZU_set_end_of_file(writer));
        EXPECT_TRUE(ZU_flush_file(writer));
        EXPECT_EQ(place.read("f").size(), end);
    }
    EXPECT_TRUE(written(writer, "x")) << "the position stays";
    EXPECT_EQ(place.read("f"), "0123x");
    ZU_close_file(reader);
    ZU_close_file(writer);
    ZU_close_file(nullptr);
}

TEST(file, two_names_of_one) {
    const scratch place;
    place.write("one", "data");
    ASSERT_TRUE(ZU_set_file_platform_attributes(u"T:\\one", read_only | hidden | system_));
    std::filesystem::create_hard_link(place.at("one"), place.at("two"));
    EXPECT_EQ(ZU_path_attributes(u"T:\\TWO"),
              ZU_PATH_FILE | ZU_PATH_READONLY | ZU_PATH_HIDDEN | ZU_PATH_SYSTEM);
    const uint32_t for_itself = ZU_FILE_READ | ZU_FILE_OPEN_EXISTING;
    ZU_file* const file = ZU_open_file(u"T:\\one", for_itself, nullptr);
    EXPECT_EQ(code_of(ZU_open_file(u"T:\\two", for_itself, nullptr)), codes::sharing_violation);
    EXPECT_EQ(code_of(ZU_delete_file(u"T:\\two")), codes::sharing_violation);
    EXPECT_EQ(code_of(ZU_move_file(u"T:\\two", u"T:\\three")), codes::sharing_violation);
    ZU_close_file(file);
    EXPECT_EQ(bits_of(u"T:\\two"), read_only | hidden | system_);
    EXPECT_TRUE(ZU_delete_file(u"T:\\one"));
    EXPECT_EQ(bits_of(u"T:\\two"), hidden | system_) << "the second attempt made it writable";
    EXPECT_TRUE(!place.exists("one") && place.read("two") == "data");
}

// Opens the file for itself and starts a second program, which lives on as long as the file "on" is there.
const part starts("starts", [](const words& second) {
    if (second.empty()) {
        const ZU_file* const file = ZU_open_file(u"T:\\file", ZU_FILE_WRITE | ZU_FILE_CREATE_NEW, nullptr);
        child other(starts, {"second"});
        report(file ? other.next_line() : "no file");
        wait_for_parent();
        return 0;
    }
    report("here");
    while (ZU_path_attributes(u"T:\\on") != 0)
        ZU_sleep(10);
    return 0;
});

// So that the file is free when the program that opened it is killed.
TEST(file, a_started_program_inherits_none) {
    const scratch place;
    place.write("on", "");
    child owner(starts);
    EXPECT_EQ(owner.next_line(), "here");
    EXPECT_EQ(code_of(ZU_delete_file(u"T:\\file")), codes::sharing_violation);
    owner.kill();
    EXPECT_EQ(code_of(ZU_delete_file(u"T:\\file")), ok);
    EXPECT_TRUE(ZU_delete_file(u"T:\\on"));
}

} // namespace
