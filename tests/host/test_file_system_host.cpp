// Recursive deletes over links of the host, also under attack, and moves between its mounts, for root and for an ordinary
// user.
#include "support/test.h"

namespace {

TEST(file_system, recursive_delete_removes_links_alone_and_a_move_stays_on_its_mount) {
    as_both_users([](const file_place& place) {
        for (const char* directory : {"kept", "tree", "tree/d2", "tree/d2/deep"})
            place.make_directory(directory);
        place.write("kept/f", "kept");
        for (const char* link : {"tree/down", "tree/d2/deep/up", "top"})
            place.make_link(link, place.host_path("kept"));
        place.make_link("tree/dangling", "nowhere");
        place.write("tree/d2/f", "");
        EXPECT_EQ(code_of(ZU_delete_dir_recursive(u"T:\\tree\\")), 0u);
        EXPECT_EQ(place.read("kept/f"), "kept");
        EXPECT_EQ(code_of(ZU_delete_dir_recursive(u"T:\\top")), 0u) << "followed when named itself";
        EXPECT_FALSE(place.exists("top") || place.exists("kept/f"));
        EXPECT_EQ(code_of(ZU_delete_dir_recursive(u"T:\\top")), codes::file_not_found);
        place.map_drive('U', "/dev/shm");
        place.write("src", "src");
        EXPECT_EQ(code_of(ZU_move_file(u"T:\\src", u"U:\\zu-test-moved")), codes::not_same_device);
    });
}

// Somebody else exchanges what is being deleted for links to what must stay.
TEST(file_system, links_swapped_in_by_others) {
    const file_place place;
    place.make_directory("kept");
    for (int f = 0; f < 200; ++f)
        place.write("kept/f" + std::to_string(f), "kept");
    chmod(place.host_path("kept/f1").c_str(), 0444);
    const std::string names[] = {place.host_path("tree/d"), place.host_path("tree/way"),
                                 place.host_path("tree/f"), place.host_path("tree/link")};
    for (int round = 0; round < 15; ++round) {
        ZU_delete_dir_recursive(u"T:\\tree");
        place.make_directory("tree");
        place.make_directory("tree/d");
        for (int f = 0; f < 200; ++f)
            place.write("tree/d/f" + std::to_string(f), "");
        place.write("tree/f", "");
        chmod(names[2].c_str(), 0444);
        place.make_link("tree/way", place.host_path("kept"));
        place.make_link("tree/link", place.host_path("kept/f1"));
        std::atomic<bool> over{false};
        std::thread attacker([&] {
            while (!over)
                for (int i : {0, 2})
                    renameat2(AT_FDCWD, names[i].c_str(), AT_FDCWD, names[i + 1].c_str(), RENAME_EXCHANGE);
        });
        ZU_delete_file(u"T:\\tree\\f");
        ZU_delete_dir_recursive(u"T:\\tree");
        over = true;
        attacker.join();
    }
    for (int f = 0; f < 200; ++f)
        ASSERT_EQ(place.read("kept/f" + std::to_string(f)), "kept") << f;
    EXPECT_EQ(ZU_path_attributes(u"T:\\kept\\f1"), ZU_PATH_FILE | ZU_PATH_READONLY);
}

} // namespace
