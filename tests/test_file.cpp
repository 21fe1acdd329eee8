// File handles: ways to open and their second attempt, positions, gathered writes, and what can go wrong.
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "support/files.h"
#include "zu/zu.h"

namespace {

using zu_test::file_place;
using text = std::u16string;

constexpr uint32_t read_write = ZU_FILE_READ | ZU_FILE_WRITE;
constexpr uint32_t hidden = FILE_ATTRIBUTE_HIDDEN, system_ = FILE_ATTRIBUTE_SYSTEM,
                   read_only = FILE_ATTRIBUTE_READONLY;

bool written(ZU_file* file, const std::string& bytes) {
    uint32_t done = 77;
    return ZU_write_file(file, bytes.data(), static_cast<uint32_t>(bytes.size()), &done)
           && done == bytes.size();
}

std::string read(ZU_file* file, uint32_t count) {
    std::string bytes(count, '\0');
    uint32_t done = 77;
    if (!ZU_read_file(file, bytes.data(), count, &done))
        return "code " + std::to_string(GetLastError());
    return bytes.substr(0, done);
}

// 0, or the code that opening left.
uint32_t open_code(const text& path, uint32_t flags) {
    SetLastError(12345);
    ZU_file* file = ZU_open_file(path.c_str(), flags, nullptr);
    const uint32_t code = file ? 0 : GetLastError();
    ZU_close_file(file);
    return code;
}

TEST(file, the_ways_to_open_and_the_second_attempt) {
    constexpr uint32_t plain = FILE_ATTRIBUTE_NORMAL, missing = 0;
    const struct {
        uint32_t attributes; // before; of a file that holds "old"
        uint32_t flags, code;
        const char* contents; // after
    } rows[] = {
        {missing, ZU_FILE_WRITE | ZU_FILE_OPEN_ALWAYS, 0, ""},
        {missing, ZU_FILE_WRITE | ZU_FILE_CREATE_NEW, 0, ""},
        {missing, ZU_FILE_WRITE | ZU_FILE_OPEN_EXISTING, 2, ""},
        {missing, ZU_FILE_WRITE | ZU_FILE_TRUNCATE_EXISTING, 2, ""},
        {plain, ZU_FILE_WRITE, 87, "old"},
        {plain, 0x92, 0, "old"},
        {plain, ZU_FILE_WRITE | ZU_FILE_CREATE_NEW, 80, "old"},
        {plain, ZU_FILE_WRITE | ZU_FILE_CREATE_NEW | ZU_FILE_CREATE_ALWAYS, 0, ""},
        {plain, ZU_FILE_WRITE | ZU_FILE_TRUNCATE_EXISTING | ZU_FILE_OPEN_EXISTING, 0, "old"},
        {plain, ZU_FILE_WRITE | ZU_FILE_TRUNCATE_EXISTING, 0, ""},
        {plain, ZU_FILE_READ | ZU_FILE_TRUNCATE_EXISTING, 87, "old"},
        {read_only, ZU_FILE_WRITE | ZU_FILE_OPEN_EXISTING, 0, "old"},
        {read_only, ZU_FILE_WRITE | ZU_FILE_OPEN_ALWAYS, 0, "old"},
        {read_only, ZU_FILE_WRITE | ZU_FILE_CREATE_ALWAYS, 0, ""},
        {read_only, ZU_FILE_WRITE | ZU_FILE_TRUNCATE_EXISTING, 5, "old"},
        {read_only, ZU_FILE_WRITE | ZU_FILE_CREATE_NEW, 80, "old"},
        {read_only | hidden, ZU_FILE_WRITE | ZU_FILE_CREATE_ALWAYS, 0, ""},
        {hidden, ZU_FILE_WRITE | ZU_FILE_OPEN_EXISTING, 0, "old"},
        {hidden, ZU_FILE_WRITE | ZU_FILE_CREATE_ALWAYS, 0, ""},
        {hidden | system_, ZU_FILE_WRITE | ZU_FILE_CREATE_ALWAYS, 5, "old"},
        {system_, ZU_FILE_WRITE | ZU_FILE_CREATE_ALWAYS, 5, "old"},
    };
    const auto run = [&] {
        const file_place place;
        const text path = place.drive_path(u"f");
        for (const auto& row : rows) {
            ZU_delete_file(path.c_str());
            if (row.attributes != missing) {
                place.write("f", "old");
                ASSERT_TRUE(ZU_set_file_platform_attributes(path.c_str(), row.attributes)) << row.attributes;
            }
            EXPECT_EQ(open_code(path, row.flags), row.code) << row.attributes << " " << row.flags;
            EXPECT_EQ(place.read("f"), row.contents) << row.attributes << " " << row.flags;
            if (row.attributes != missing) {
                EXPECT_EQ(ZU_get_file_platform_attributes(path.c_str()), row.attributes) << row.flags;
            }
        }
        place.make_directory("d");
        ZU_set_file_platform_attributes(u"T:\\d", read_only);
        EXPECT_EQ(open_code(u"T:\\d", ZU_FILE_WRITE | ZU_FILE_OPEN_EXISTING), 5u);
        EXPECT_EQ(ZU_path_attributes(u"T:\\d"), ZU_PATH_DIR | ZU_PATH_READONLY)
            << "no second attempt on a directory";
    };
    run();
    const zu_test::outcome other = zu_test::run_as_ordinary_user([&] {
        run();
        _exit(testing::Test::HasFailure());
    });
    EXPECT_EQ(other.exit_code, 0) << other.output;
}

TEST(file, names_that_cannot_be_opened) {
    const file_place place;
    place.write("f", "");
    ASSERT_EQ(symlink("/", place.host_path("long").c_str()), 0);
    text longest = u"T:";
    while (longest.size() < 32763)
        longest += longest.size() % 250 == 2 ? u'\\' : u'x';
    const struct {
        text path;
        uint32_t code, code2;
    } rows[] = {{u"", 3, 87},
                {u"T:\\a*", 123, 123},
                {u"T:\\a?b", 123, 123},
                {u"T:\\\xd800z", 123, 123},
                {u"T:\\\xdc41", 123, 123},
                {u"\\\\?\\T:\\x\\..\\f", 123, 123},
                {u"T:\\.\\f", 123, 123},
                {u"T:\\f\\", 123, 123},
                {u"T:\\f\\x", 3, 3},
                {u"T:\\x\\f", 3, 3},
                {u"Q:\\f", 3, 3},
                {u"\\\\nosuch\\share\\f", 53, 3},
                {u"T:\\" + text(256, u'x'), 123, 123},
                {longest, 3, 3},
                {longest + u"x", 206, 3}};
    for (const auto& row : rows) {
        const uint32_t code = open_code(row.path, ZU_FILE_WRITE | ZU_FILE_OPEN_ALWAYS);
        EXPECT_TRUE(code == row.code || code == row.code2)
            << zu_test::narrow(row.path.substr(0, 40)) << ": " << code;
    }
    for (const text& path : {u"T:\\" + text(255, u'x'), text(u"T:\\\xdcff")})
        EXPECT_EQ(open_code(path, ZU_FILE_WRITE | ZU_FILE_CREATE_NEW), 0u) << "a name like any other";
    int anything = 0;
    EXPECT_EQ(ZU_open_file(u"T:\\f", ZU_FILE_READ | ZU_FILE_OPEN_EXISTING, &anything), nullptr);
    EXPECT_EQ(GetLastError(), 50u);
}

TEST(file, the_position_is_kept_and_lost_with_a_failure) {
    const file_place place;
    place.write("f", std::string(100, 'x'));
    ZU_file* file = ZU_open_file(u"T:\\f", read_write | ZU_FILE_OPEN_EXISTING, nullptr);
    ASSERT_NE(file, nullptr);
    uint64_t position = 7;
    EXPECT_TRUE(ZU_tell_file(file, &position));
    EXPECT_EQ(position, 0u);
    EXPECT_TRUE(ZU_seek_file(file, 0, nullptr, ZU_SEEK_END));
    EXPECT_TRUE(written(file, "0123456789"));
    EXPECT_TRUE(ZU_tell_file(file, &position));
    EXPECT_EQ(position, 110u);
    const struct {
        int64_t offset;
        uint32_t origin, code;
        uint64_t reached;
    } rows[] = {{-10, ZU_SEEK_CURRENT, 0, 100}, {100, ZU_SEEK_BEGIN, 0, 100},    {0, 3, 87, 0},
                {0, ZU_SEEK_CURRENT, 0, 100},   {-101, ZU_SEEK_CURRENT, 131, 0}, {-5, ZU_SEEK_BEGIN, 131, 0},
                {-1, ZU_SEEK_BEGIN, 131, 0},    {1000, ZU_SEEK_END, 0, 1110},    {-1110, ZU_SEEK_END, 131, 0},
                {0, 0xFFFFFFFF, 87, 0}};
    for (const auto& row : rows) {
        uint64_t reached = 7;
        EXPECT_EQ(ZU_seek_file(file, row.offset, &reached, row.origin), row.code == 0) << row.offset;
        EXPECT_EQ(reached, row.reached) << row.offset;
        if (row.code != 0) {
            EXPECT_EQ(GetLastError(), row.code);
        }
    }
    EXPECT_TRUE(ZU_tell_file(file, &position))
        << "asks the platform, whose position no failed seek has moved";
    EXPECT_EQ(position, 1110u);
    EXPECT_EQ(read(file, 10), "") << "beyond the end";
    EXPECT_TRUE(written(file, "z"));
    EXPECT_EQ(place.read("f").substr(108), "89" + std::string(1000, '\0') + "z");

    EXPECT_TRUE(ZU_seek_file(file, 4, nullptr, ZU_SEEK_BEGIN));
    EXPECT_TRUE(ZU_set_end_of_file(file) && ZU_flush_file(file));
    EXPECT_EQ(place.read("f"), "xxxx");
    EXPECT_EQ(truncate(place.host_path("f").c_str(), 2), 0);
    EXPECT_TRUE(ZU_seek_file(file, 0, nullptr, ZU_SEEK_BEGIN));
    EXPECT_EQ(read(file, 10), "xx") << "of a file that lost its end meanwhile";
    ZU_close_file(file);
    ZU_close_file(nullptr);
}

TEST(file, access_and_sharing_are_enforced) {
    const file_place place;
    place.write("f", "data");
    ZU_file* reader =
        ZU_open_file(u"T:\\f", ZU_FILE_READ | ZU_FILE_OPEN_EXISTING | ZU_FILE_SHARE_READ, nullptr);
    ASSERT_NE(reader, nullptr);
    EXPECT_FALSE(written(reader, "x"));
    EXPECT_EQ(GetLastError(), 5u);
    EXPECT_FALSE(ZU_set_end_of_file(reader));
    EXPECT_EQ(GetLastError(), 5u);
    uint64_t position = 0;
    EXPECT_TRUE(ZU_tell_file(reader, &position));
    EXPECT_EQ(read(reader, 9), "data");
    EXPECT_EQ(open_code(u"T:\\f", 0x92), 32u);
    EXPECT_EQ(open_code(u"T:\\f", ZU_FILE_READ | ZU_FILE_OPEN_EXISTING | ZU_FILE_SHARE_READ), 0u);
    ZU_close_file(reader);

    ZU_file* writer = ZU_open_file(u"T:\\f", 0x92, nullptr);
    ASSERT_NE(writer, nullptr);
    EXPECT_EQ(read(writer, 1), "code 5");
    EXPECT_EQ(open_code(u"T:\\f", 0x92), 32u);
    EXPECT_EQ(open_code(u"T:\\f", ZU_FILE_WRITE | ZU_FILE_CREATE_ALWAYS), 32u);
    EXPECT_EQ(place.read("f"), "data") << "refused before anything is cut";
    ZU_close_file(writer);
}

TEST(file, a_gather_list_is_one_write_of_at_most_1024_pieces) {
    const file_place place;
    ZU_file* file = ZU_open_file(u"T:\\f", read_write | ZU_FILE_CREATE_NEW, nullptr);
    ASSERT_NE(file, nullptr);
    const auto* bytes = reinterpret_cast<const uint8_t*>("abcd");
    std::vector<ZU_file_vec> pieces(1025, ZU_file_vec{bytes, 1});
    pieces[1] = {nullptr, 0};
    uint32_t done = 7;
    EXPECT_FALSE(ZU_write_file_v(file, pieces.data(), 1025, &done));
    EXPECT_EQ(GetLastError(), 87u);
    EXPECT_EQ(done, 0u);
    EXPECT_TRUE(ZU_write_file_v(file, pieces.data(), 1024, &done));
    EXPECT_EQ(done, 1023u);
    for (int32_t count : {0, -1}) {
        EXPECT_TRUE(ZU_write_file_v(file, pieces.data(), count, &done));
        EXPECT_EQ(done, 0u);
    }
    const ZU_file_vec huge[] = {{bytes, 0xFFFFFFFF}, {bytes, 4}};
    EXPECT_FALSE(ZU_write_file_v(file, huge, 2, &done)) << "the sum must not wrap";
    EXPECT_EQ(GetLastError(), 87u);
    const ZU_file_vec two[] = {{bytes, 2}, {bytes + 2, 2}};
    EXPECT_TRUE(ZU_write_file_v(file, two, 2, &done));
    EXPECT_EQ(place.read("f"), std::string(1023, 'a') + "abcd");
    ZU_close_file(file);
}

TEST(file, a_full_disk_takes_whole_lines_or_nothing) {
    const file_place place;
    place.make_directory("small");
    const zu_test::small_file_system disk(place.host_path("small"), 64 << 10);
    if (!disk.mounted())
        GTEST_SKIP() << "mounting a small file system needs root";
    ZU_file* file = ZU_open_file(u"T:\\small\\f", 0x92, nullptr);
    ASSERT_NE(file, nullptr);
    const std::string line(5000, 'x');
    size_t lines = 0;
    while (written(file, line))
        ++lines;
    EXPECT_EQ(GetLastError(), 112u);
    EXPECT_EQ(place.read("small/f").size(), lines * line.size()) << "no half line stays";
    ZU_close_file(file);
    ASSERT_TRUE(disk.remount_read_only());
    EXPECT_EQ(open_code(u"T:\\small\\f", 0x92), 19u);
    EXPECT_EQ(open_code(u"T:\\small\\f", ZU_FILE_READ | ZU_FILE_OPEN_EXISTING), 0u);
    EXPECT_FALSE(ZU_delete_file(u"T:\\small\\f"));
    EXPECT_EQ(GetLastError(), 19u);
}

TEST(file, a_signal_during_a_read_is_not_seen) {
    const file_place place;
    ASSERT_EQ(mkfifo(place.host_path("pipe").c_str(), 0600), 0);
    struct sigaction ignore = {};
    ignore.sa_handler = [](int) {};
    ASSERT_EQ(sigaction(SIGALRM, &ignore, nullptr), 0);
    std::thread writer([&] {
        FILE* stream = std::fopen(place.host_path("pipe").c_str(), "we");
        usleep(50000);
        std::fputs("whole", stream);
        std::fclose(stream);
    });
    ZU_file* file =
        ZU_open_file(u"T:\\pipe", ZU_FILE_READ | ZU_FILE_OPEN_EXISTING | ZU_FILE_SHARE_WRITE, nullptr);
    ASSERT_NE(file, nullptr);
    const itimerval often = {{0, 1000}, {0, 1000}}, never = {};
    setitimer(ITIMER_REAL, &often, nullptr);
    EXPECT_EQ(read(file, 5), "whole");
    setitimer(ITIMER_REAL, &never, nullptr);
    writer.join();
    ZU_close_file(file);
}

TEST(file, streams_open_through_the_same_paths) {
    const file_place place;
    const struct {
        const char16_t *path, *mode;
        const char *put, *contents; // null: must not open
        int error;
    } rows[] = {
        {u"T:\\F", u"r", nullptr, "", ENOENT},          {u"T:\\F", u"wb", "one", "one", 0},
        {u"t:\\f", u"a+tc", "two", "onetwo", 0},        {u"T:/x/../f", u"r+nSN", "ONE", "ONEtwo", 0},
        {u"T:\\f", u"wx", nullptr, "ONEtwo", EEXIST},   {u"T:\\f", u"rw", nullptr, "ONEtwo", EINVAL},
        {u"T:\\f", u"", nullptr, "ONEtwo", EINVAL},     {u"T:\\f", u"w,ccs=UTF-8", nullptr, "ONEtwo", EINVAL},
        {u"T:\\x\\f", u"w", nullptr, "ONEtwo", ENOENT}, {u"T:\\f", u"w", "", "", 0}};
    for (const auto& row : rows) {
        errno = 0;
        FILE* stream = ZU_fopen(row.path, row.mode);
        ASSERT_EQ(stream != nullptr, row.put != nullptr) << zu_test::narrow(row.mode);
        if (stream) {
            EXPECT_GE(std::fputs(row.put, stream), 0);
            EXPECT_EQ(open_code(u"T:\\f", ZU_FILE_READ | ZU_FILE_OPEN_EXISTING | 0x180), 0u) << "shared";
            EXPECT_EQ(ZU_fclose(stream), 0);
        } else {
            EXPECT_EQ(errno, row.error) << zu_test::narrow(row.mode);
        }
        EXPECT_EQ(place.read("F"), row.contents) << zu_test::narrow(row.mode);
    }
    ZU_file* alone = ZU_open_file(u"T:\\f", ZU_FILE_WRITE | ZU_FILE_OPEN_EXISTING, nullptr);
    EXPECT_EQ(ZU_fopen(u"T:\\f", u"r"), nullptr);
    EXPECT_EQ(GetLastError(), 32u);
    EXPECT_EQ(errno, EACCES);
    ZU_close_file(alone);
}

} // namespace
