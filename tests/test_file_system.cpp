// File-system operations, their second attempt on read-only items, and the recursive delete.
#include "support/test.h"

namespace {

constexpr uint32_t hidden = FILE_ATTRIBUTE_HIDDEN, system_ = FILE_ATTRIBUTE_SYSTEM;
constexpr uint32_t read_only = FILE_ATTRIBUTE_READONLY, plain = FILE_ATTRIBUTE_NORMAL;

// A file of that content, with those attributes.
void make(const file_place& place, const char* name, const char* contents, uint32_t bits) {
    const std::u16string path = place.drive_path(wide(name));
    ZU_delete_file(path.c_str());
    place.write(name, contents);
    ASSERT_TRUE(ZU_set_file_platform_attributes(path.c_str(), bits)) << name;
}

TEST(file_system, single_items_and_their_attributes) {
    as_both_users([](const file_place& place) {
        for (const auto& [path, code] :
             {std::pair{u"T:\\a\\b", 3u}, {u"T:\\a\\\\", 0u}, {u"t:\\A", 183u}, {u"T:\\a\\b", 0u}})
            EXPECT_EQ(code_after(ZU_create_dir(path, nullptr)), code);
        EXPECT_EQ(code_after(ZU_delete_dir(u"T:\\a")), 145u);
        ASSERT_TRUE(ZU_set_file_platform_attributes(u"T:\\a\\b", read_only | hidden));
        ASSERT_TRUE(ZU_set_file_platform_attributes(u"T:\\a\\", read_only | system_));
        EXPECT_EQ(code_after(ZU_delete_dir(u"T:\\a\\")), 145u) << "the code of the second attempt";
        EXPECT_EQ(ZU_path_attributes(u"T:\\a"), ZU_PATH_DIR | ZU_PATH_READONLY | ZU_PATH_SYSTEM)
            << "put back";
        for (const auto& [path, code] : {std::pair{u"T:\\A\\B\\", 0u}, {u"T:\\a", 0u}, {u"T:\\a", 2u}})
            EXPECT_EQ(code_after(ZU_delete_dir(path)), code);

        make(place, "f", "", read_only | hidden | system_);
        for (const uint32_t code : {0u, 2u})
            EXPECT_EQ(code_after(ZU_delete_file(u"T:\\F")), code);
        EXPECT_FALSE(place.exists("f"));
        make(place, "f", "", read_only | hidden);
        ZU_file* open =
            ZU_open_file(u"T:\\f", ZU_FILE_READ | ZU_FILE_OPEN_EXISTING | ZU_FILE_SHARE_READ, nullptr);
        EXPECT_EQ(code_after(ZU_delete_file(u"T:\\f")), 32u);
        ZU_close_file(open);
        EXPECT_EQ(ZU_path_attributes(u"T:\\f"), 0x282u);

        EXPECT_EQ(ZU_path_attributes(u"T:") & ZU_PATH_DIR, ZU_PATH_DIR) << "a root is completed";
        EXPECT_EQ(ZU_get_file_platform_attributes(u"T:\\missing"), INVALID_FILE_ATTRIBUTES);
        EXPECT_EQ(ZU_path_attributes(u"T:\\missing\\x"), 0u);
        EXPECT_EQ(GetLastError(), 3u);
    });
}

TEST(file_system, a_recursive_delete_takes_the_tree_and_leaves_what_links_point_at) {
    as_both_users([](const file_place& place) {
        for (const char* directory : {"kept", "tree", "tree/d1", "tree/d2", "tree/d2/deep"})
            place.make_directory(directory);
        place.write("kept/f", "kept");
        for (const char* link : {"tree/down", "tree/d2/deep/up", "top"})
            place.make_link(link, place.host_path("kept"));
        place.make_link("tree/dangling", "nowhere");
        for (int f = 0; f < 500; ++f)
            place.write("tree/d1/f" + std::to_string(f), "");
        place.write("tree/\xc3\xa4", "");
        place.write("tree/d2/f", "");
        for (const char16_t* path : {u"T:\\tree\\\u00e4", u"T:\\tree\\d2"})
            ASSERT_TRUE(ZU_set_file_platform_attributes(path, read_only | system_));
        ZU_file* open = ZU_open_file(u"T:\\tree\\d1\\f3", ZU_FILE_READ | ZU_FILE_OPEN_EXISTING, nullptr);
        EXPECT_EQ(code_after(ZU_delete_dir_recursive(u"T:\\tree")), 145u)
            << "what is in use stays, and the way to it";
        EXPECT_TRUE(place.exists("tree/d1/f3"));
        EXPECT_FALSE(place.exists("tree/d1/f4") || place.exists("tree/d2") || place.exists("tree/down"));
        ZU_close_file(open);
        EXPECT_EQ(code_after(ZU_delete_dir_recursive(u"T:\\tree\\")), 0u);
        EXPECT_EQ(place.read("kept/f"), "kept");
        EXPECT_EQ(code_after(ZU_delete_dir_recursive(u"T:\\top")), 0u)
            << "a link that is named itself is followed";
        EXPECT_FALSE(place.exists("top") || place.exists("kept/f"));
        EXPECT_EQ(code_after(ZU_delete_dir_recursive(u"T:\\top")), 2u);
    });
}

TEST(file_system, a_move_replaces_files_and_keeps_a_destination_that_it_cannot_replace) {
    as_both_users([](const file_place& place) {
        place.make_directory("dir");
        // With attributes, the destination is a file that holds "dst" before; then the code, and what it holds after.
        // clang-format off
        const std::tuple<const char16_t*, const char16_t*, uint32_t, uint32_t, const char*> rows[] = {
            {u"T:\\src", u"T:\\new", 0, 0, "src"}, {u"T:\\SRC", u"T:\\dst", plain, 0, "src"},
            {u"T:\\src", u"T:\\dst", read_only | hidden, 0, "src"}, {u"T:\\missing", u"T:\\dst", read_only, 2, "dst"},
            {u"T:\\src", u"T:\\no\\dst", 0, 3, ""}, {u"T:\\src", u"T:\\dir", 0, 5, ""},
            {u"T:\\dir", u"T:\\moved", 0, 0, ""}};
        // clang-format on
        for (const auto& [source, destination, bits, code, contents] : rows) {
            const std::string name = narrow(destination).substr(3);
            place.write("src", "src");
            if (bits != 0)
                make(place, name.c_str(), "dst", bits);
            EXPECT_EQ(code_after(ZU_move_file(source, destination)), code) << name;
            EXPECT_EQ(place.read(name), contents) << name;
            const bool kept = code != 0 && bits != 0;
            EXPECT_TRUE(!kept || ZU_get_file_platform_attributes(destination) == bits) << "put back";
        }
        place.map_drive('U', "/dev/shm");
        EXPECT_EQ(code_after(ZU_move_file(u"T:\\src", u"U:\\zu-test-moved")), 17u);
    });
}

} // namespace
