// File-system operations, their second attempt on read-only items, and the recursive delete.
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>

#include <gtest/gtest.h>

#include "support/files.h"
#include "zu/zu.h"

namespace {

using zu_test::file_place;
using text = std::u16string;

constexpr uint32_t hidden = FILE_ATTRIBUTE_HIDDEN, system_ = FILE_ATTRIBUTE_SYSTEM,
                   read_only = FILE_ATTRIBUTE_READONLY;

// 0, or the code of a failure.
uint32_t code_of(ZU_bool done) {
    return done ? 0 : GetLastError();
}

uint32_t attributes(const char16_t* path) {
    return ZU_get_file_platform_attributes(path);
}

// Runs a body here and in a child that is an ordinary user.
template <class Body>
void as_both_users(Body body) {
    body();
    const zu_test::outcome other = zu_test::run_as_ordinary_user([&] {
        body();
        _exit(testing::Test::HasFailure());
    });
    EXPECT_EQ(other.exit_code, 0) << "as an ordinary user: " << other.output;
}

TEST(file_system, directories_are_made_and_removed_one_at_a_time) {
    as_both_users([] {
        const file_place place;
        place.write("f", "");
        EXPECT_EQ(code_of(ZU_create_dir(u"T:\\a\\b", nullptr)), 3u);
        EXPECT_FALSE(place.exists("a"));
        EXPECT_EQ(code_of(ZU_create_dir(u"T:\\a\\", nullptr)), 0u);
        EXPECT_EQ(code_of(ZU_create_dir(u"t:\\A", nullptr)), 183u);
        EXPECT_EQ(code_of(ZU_create_dir(u"T:\\f\\x", nullptr)), 3u);
        EXPECT_EQ(code_of(ZU_create_dir(u"T:\\x*", nullptr)), 123u);
        EXPECT_EQ(code_of(ZU_create_dir(u"T:\\a\\b", nullptr)), 0u);
        EXPECT_EQ(code_of(ZU_delete_dir(u"T:\\a")), 145u);
        EXPECT_EQ(code_of(ZU_delete_dir(u"T:\\f")), 267u);
        EXPECT_EQ(code_of(ZU_delete_dir(u"T:\\x")), 2u);
        ASSERT_TRUE(ZU_set_file_platform_attributes(u"T:\\a\\b", read_only | hidden));
        ASSERT_TRUE(ZU_set_file_platform_attributes(u"T:\\a", read_only | system_));
        EXPECT_EQ(code_of(ZU_delete_dir(u"T:\\a\\")), 145u) << "the code of the second attempt";
        EXPECT_EQ(ZU_path_attributes(u"T:\\a"), ZU_PATH_DIR | ZU_PATH_READONLY | ZU_PATH_SYSTEM)
            << "put back";
        EXPECT_EQ(code_of(ZU_delete_dir(u"T:\\A\\B\\")), 0u);
        EXPECT_EQ(code_of(ZU_delete_dir(u"T:\\a")), 0u);
    });
}

TEST(file_system, files_are_deleted_whatever_their_attributes) {
    as_both_users([] {
        const file_place place;
        for (uint32_t bits : {FILE_ATTRIBUTE_NORMAL, read_only, read_only | hidden | system_}) {
            place.write("f", "");
            ASSERT_TRUE(ZU_set_file_platform_attributes(u"T:\\f", bits));
            EXPECT_EQ(code_of(ZU_delete_file(u"T:\\F")), 0u) << bits;
            EXPECT_FALSE(place.exists("f"));
        }
        place.make_directory("d");
        EXPECT_EQ(code_of(ZU_delete_file(u"T:\\missing")), 2u);
        EXPECT_EQ(code_of(ZU_delete_file(u"T:\\d")), 5u);
        place.write("f", "");
        ASSERT_TRUE(ZU_set_file_platform_attributes(u"T:\\f", read_only));
        ZU_file* open =
            ZU_open_file(u"T:\\f", ZU_FILE_READ | ZU_FILE_OPEN_EXISTING | ZU_FILE_SHARE_READ, nullptr);
        EXPECT_EQ(code_of(ZU_delete_file(u"T:\\f")), 32u);
        ZU_close_file(open);
        EXPECT_EQ(attributes(u"T:\\f"), read_only);
    });
}

TEST(file_system, a_folder_without_permission_keeps_what_is_in_it) {
    const file_place place;
    place.make_directory("closed");
    place.write("closed/f", "kept");
    chmod(place.host_path("closed/f").c_str(), 0444);
    chmod(place.host_path("closed").c_str(), 0555);
    const zu_test::outcome other = zu_test::run_as_ordinary_user([&] {
        EXPECT_EQ(code_of(ZU_delete_file(u"T:\\closed\\f")), 5u);
        EXPECT_EQ(code_of(ZU_delete_dir_recursive(u"T:\\closed")), 145u);
        EXPECT_EQ(code_of(ZU_move_file(u"T:\\closed\\f", u"T:\\g")), 5u);
        EXPECT_EQ(code_of(ZU_create_dir(u"T:\\closed\\d", nullptr)), 5u);
        EXPECT_EQ(ZU_path_attributes(u"T:\\closed\\f"), ZU_PATH_FILE | ZU_PATH_READONLY);
        _exit(testing::Test::HasFailure());
    });
    EXPECT_EQ(other.exit_code, 0) << other.output;
    EXPECT_EQ(place.read("closed/f"), "kept");
}

TEST(file_system, a_recursive_delete_takes_the_tree_and_leaves_what_links_point_at) {
    as_both_users([] {
        const file_place place;
        place.make_directory("kept");
        place.write("kept/f", "kept");
        place.make_directory("tree");
        for (const char* link : {"tree/down", "top"})
            ASSERT_EQ(symlink(place.host_path("kept").c_str(), place.host_path(link).c_str()), 0);
        ASSERT_EQ(symlink("/", place.host_path("tree/root").c_str()), 0);
        ASSERT_EQ(symlink("nowhere", place.host_path("tree/dangling").c_str()), 0);
        place.write("tree/\xff", "");
        for (int d = 0; d < 20; ++d) {
            const std::string directory = "tree/d" + std::to_string(d);
            place.make_directory(directory);
            for (int f = 0; f < 20; ++f)
                place.write(directory + "/f" + std::to_string(f), "");
        }
        ASSERT_TRUE(ZU_set_file_platform_attributes(u"T:\\tree\\d1\\f1", read_only | hidden));
        ASSERT_TRUE(ZU_set_file_platform_attributes(u"T:\\tree\\d2", read_only | system_));
        ZU_file* open = ZU_open_file(u"T:\\tree\\d3\\f3", ZU_FILE_READ | ZU_FILE_OPEN_EXISTING, nullptr);
        EXPECT_EQ(code_of(ZU_delete_dir_recursive(u"T:\\tree")), 145u)
            << "a file in use stays, and the way to it";
        EXPECT_TRUE(place.exists("tree/d3/f3"));
        EXPECT_FALSE(place.exists("tree/d3/f4"));
        EXPECT_FALSE(place.exists("tree/d4"));
        ZU_close_file(open);
        EXPECT_EQ(code_of(ZU_delete_dir_recursive(u"T:\\tree\\")), 0u);
        EXPECT_FALSE(place.exists("tree"));
        EXPECT_EQ(place.read("kept/f"), "kept");
        EXPECT_EQ(code_of(ZU_delete_dir_recursive(u"T:\\top")), 0u)
            << "a link that is named itself is followed once";
        EXPECT_FALSE(place.exists("top"));
        EXPECT_TRUE(place.exists("kept"));
        EXPECT_FALSE(place.exists("kept/f"));
        EXPECT_EQ(code_of(ZU_delete_dir_recursive(u"T:\\missing")), 2u);
    });
}

TEST(file_system, a_deep_tree_needs_neither_descriptors_nor_short_paths) {
    const file_place place;
    const rlimit few = {40, 40};
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &few), 0);
    text path = u"T:";
    for (int depth = 0; depth < 200; ++depth) {
        path += u"\\" + text(50, u'd');
        ASSERT_TRUE(ZU_create_dir(path.c_str(), nullptr)) << depth << " " << GetLastError();
    }
    EXPECT_EQ(code_of(ZU_delete_dir_recursive(path.substr(0, 53).c_str())), 0u);
}

TEST(file_system, a_move_replaces_files_and_keeps_a_destination_that_it_cannot_replace) {
    as_both_users([] {
        const file_place place;
        place.make_directory("dir");
        place.make_directory("other");
        const struct {
            const char16_t *source, *destination;
            uint32_t bits, code;  // of the destination before
            const char* contents; // of the destination after; "" for none
        } rows[] = {{u"T:\\src", u"T:\\new", 0, 0, "src"},
                    {u"T:\\SRC", u"T:\\dst", FILE_ATTRIBUTE_NORMAL, 0, "src"},
                    {u"T:\\src", u"T:\\dst", read_only, 0, "src"},
                    {u"T:\\src", u"T:\\dst", read_only | hidden, 0, "src"},
                    {u"T:\\missing", u"T:\\dst", read_only, 2, "dst"},
                    {u"T:\\src", u"T:\\missing\\dst", 0, 3, ""},
                    {u"T:\\src", u"T:\\x?", 0, 123, ""},
                    {u"T:\\src", u"T:\\dir", 0, 5, ""},
                    {u"T:\\dir", u"T:\\dir\\in", 0, 87, ""},
                    {u"T:\\dir", u"T:\\other\\dir", 0, 0, ""}};
        for (const auto& row : rows) {
            place.write("src", "src");
            if (row.bits != 0) {
                ZU_delete_file(row.destination);
                place.write("dst", "dst");
                ASSERT_TRUE(ZU_set_file_platform_attributes(row.destination, row.bits));
            }
            const std::string what = zu_test::narrow(row.source) + " to " + zu_test::narrow(row.destination);
            EXPECT_EQ(code_of(ZU_move_file(row.source, row.destination)), row.code) << what;
            EXPECT_EQ(place.read(zu_test::narrow(row.destination).substr(3)), row.contents) << what;
            if (row.code != 0 && row.bits != 0) {
                EXPECT_EQ(attributes(row.destination), row.bits) << what;
            }
        }
        EXPECT_TRUE(place.exists("other/dir"));
        place.map_drive('U', "/dev/shm");
        EXPECT_EQ(code_of(ZU_move_file(u"T:\\src", u"U:\\zu-test-moved")), 17u);
    });
}

TEST(file_system, times_and_attributes) {
    as_both_users([] {
        const file_place place;
        place.write("f", "");
        place.make_directory("d");
        ZU_stat before, after;
        for (const char16_t* path : {u"T:\\f", u"T:\\d\\"}) {
            ASSERT_EQ(ZU_stat64(path, &before), 0);
            EXPECT_EQ(code_of(ZU_set_file_time(path, -1, 1137000000, -1)), 0u);
            ASSERT_EQ(ZU_stat64(path, &after), 0);
            EXPECT_EQ(after.st_mtime, 1137000000);
            EXPECT_EQ(after.st_atime, before.st_atime);
            EXPECT_EQ(after.st_ctime, before.st_ctime);
        }
        EXPECT_EQ(code_of(ZU_set_file_time(u"T:\\", 1, 1, 1)), 0u) << "a drive's root: nothing to do";
        EXPECT_EQ(code_of(ZU_set_file_time(u"T:\\missing", 1, 1, 1)), 2u);

        const struct {
            const char16_t* path;
            uint32_t bits, code;
        } rows[] = {{u"T:\\f", hidden | read_only, 0x282},
                    {u"T:\\d", system_, 0x101},
                    {u"T:\\f", FILE_ATTRIBUTE_NORMAL, 2},
                    {u"t:\\D\\\\", 0, 1}};
        for (const auto& row : rows) {
            EXPECT_EQ(code_of(ZU_set_file_platform_attributes(row.path, row.bits)), 0u);
            EXPECT_EQ(ZU_path_attributes(row.path), row.code);
            EXPECT_EQ(code_of(ZU_set_file_time(row.path, 1, 2, 3)), 0u) << "also of a read-only file";
        }
        EXPECT_EQ(ZU_path_attributes(u"T:") & ZU_PATH_DIR, ZU_PATH_DIR) << "the root is completed";
        EXPECT_EQ(attributes(u"T:\\missing"), INVALID_FILE_ATTRIBUTES);
        EXPECT_EQ(GetLastError(), 2u);
        EXPECT_EQ(ZU_path_attributes(u"T:\\missing\\x"), 0u);
        EXPECT_EQ(GetLastError(), 3u);
    });
}

} // namespace
