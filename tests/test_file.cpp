// File handles: ways to open and their second attempt, positions, gathered writes.
#include "support/test.h"

namespace {

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

TEST(file, ways_to_open_and_the_second_attempt) {
    constexpr uint32_t hidden = FILE_ATTRIBUTE_HIDDEN, read_only = FILE_ATTRIBUTE_READONLY;
    constexpr uint32_t system = FILE_ATTRIBUTE_SYSTEM, plain = FILE_ATTRIBUTE_NORMAL, missing = 0;
    // Attributes of a file that holds "old", the flags, the code, and what it holds then.
    // clang-format off
    const std::tuple<uint32_t, uint32_t, uint32_t, const char*> rows[] = {
        {missing, ZU_FILE_OPEN_ALWAYS, 0, ""}, {missing, ZU_FILE_OPEN_EXISTING, 2, ""}, {plain, 0, 87, "old"},
        {plain, ZU_FILE_OPEN_ALWAYS, 0, "old"}, {plain, ZU_FILE_CREATE_NEW, 80, "old"},
        {plain, ZU_FILE_CREATE_NEW | ZU_FILE_CREATE_ALWAYS, 0, ""},
        {plain, ZU_FILE_TRUNCATE_EXISTING | ZU_FILE_OPEN_EXISTING, 0, "old"},
        {plain, ZU_FILE_TRUNCATE_EXISTING, 0, ""}, {read_only, ZU_FILE_OPEN_EXISTING, 0, "old"},
        {read_only, ZU_FILE_TRUNCATE_EXISTING, 5, "old"}, {read_only, ZU_FILE_CREATE_NEW, 80, "old"},
        {read_only | hidden, ZU_FILE_CREATE_ALWAYS, 0, ""}, {hidden, ZU_FILE_CREATE_ALWAYS, 0, ""},
        {hidden | system, ZU_FILE_CREATE_ALWAYS, 5, "old"}, // the second attempt fails too
    };
    // clang-format on
    as_both_users([&](const file_place& place) {
        for (const auto& [attributes, flags, code, contents] : rows) {
            SCOPED_TRACE(testing::Message() << attributes << ' ' << flags);
            ZU_delete_file(u"T:\\f");
            if (attributes != missing)
                place.write("f", "old");
            ZU_set_file_platform_attributes(u"T:\\f", attributes);
            ZU_file* file = ZU_open_file(u"T:\\f", ZU_FILE_WRITE | flags, nullptr);
            EXPECT_EQ(code_after(file != nullptr), code);
            ZU_close_file(file);
            EXPECT_EQ(place.read("f"), contents);
            EXPECT_TRUE(attributes == missing || ZU_get_file_platform_attributes(u"T:\\f") == attributes);
        }
        place.make_directory("d");
        ZU_set_file_platform_attributes(u"T:\\d", read_only);
        EXPECT_EQ(ZU_open_file(u"T:\\d", ZU_FILE_WRITE | ZU_FILE_OPEN_EXISTING, nullptr), nullptr);
        EXPECT_EQ(GetLastError(), 5u);
        EXPECT_EQ(ZU_get_file_platform_attributes(u"T:\\d"), FILE_ATTRIBUTE_DIRECTORY | read_only);
    });
}

TEST(file, the_position_is_kept_and_lost_with_a_failure) {
    const file_place place;
    place.write("f", std::string(100, 'x'));
    ZU_file* file = ZU_open_file(u"T:\\f", ZU_FILE_READ | ZU_FILE_WRITE | ZU_FILE_OPEN_EXISTING, nullptr);
    EXPECT_TRUE(ZU_seek_file(file, 0, nullptr, ZU_SEEK_END) && written(file, "0123456789"));
    const std::tuple<int64_t, uint32_t, uint32_t, uint64_t> rows[] = {
        {0, ZU_SEEK_CURRENT, 0, 110}, {-10, ZU_SEEK_CURRENT, 0, 100},  {0, 3, 87, 0},
        {0, ZU_SEEK_CURRENT, 0, 100}, {-101, ZU_SEEK_CURRENT, 131, 0}, {-1, ZU_SEEK_BEGIN, 131, 0},
        {100, ZU_SEEK_BEGIN, 0, 100}, {1000, ZU_SEEK_END, 0, 1110},    {0, 0xFFFFFFFF, 87, 0}};
    uint64_t position = 7;
    for (const auto& [offset, origin, code, reached] : rows) {
        position = 7;
        EXPECT_EQ(code_of(ZU_seek_file(file, offset, &position, origin)), code) << offset;
        EXPECT_EQ(position, reached) << offset;
    }
    EXPECT_TRUE(ZU_tell_file(file, &position))
        << "asks the platform, whose position no failed seek has moved";
    EXPECT_EQ(position, 1110u);
    EXPECT_EQ(read(file, 10), "") << "beyond the end";
    EXPECT_TRUE(written(file, "z"));
    EXPECT_EQ(place.read("f").substr(108), "89" + std::string(1000, '\0') + "z");
    EXPECT_TRUE(ZU_seek_file(file, 4, nullptr, ZU_SEEK_BEGIN) && ZU_set_end_of_file(file));
    EXPECT_TRUE(ZU_tell_file(file, &position) && ZU_flush_file(file));
    EXPECT_EQ(position, 4u);
    EXPECT_EQ(place.read("f"), "xxxx");
    ZU_close_file(file);
    ZU_close_file(nullptr);
}

TEST(file, a_gather_list_is_one_write_of_at_most_1024_pieces) {
    const file_place place;
    ZU_file* file = ZU_open_file(u"T:\\f", ZU_FILE_WRITE | ZU_FILE_CREATE_NEW, nullptr);
    const auto* bytes = reinterpret_cast<const uint8_t*>("abcd");
    std::vector<ZU_file_vec> list(1025, ZU_file_vec{bytes, 1});
    list[1] = {nullptr, 0};
    const ZU_file_vec two[] = {{bytes, 2}, {bytes + 2, 2}}, huge[] = {{bytes, 0xFFFFFFFF}, {bytes, 4}};
    const std::tuple<const ZU_file_vec*, int32_t, uint32_t, uint32_t> rows[] = {
        {list.data(), 1025, 87, 0}, {list.data(), 1024, 0, 1023}, {two, 2, 0, 4},
        {list.data(), 0, 0, 0},     {list.data(), -1, 0, 0},      {huge, 2, 87, 0}}; // a sum must not wrap
    for (const auto& [pieces, count, code, wanted] : rows) {
        uint32_t done = 7;
        EXPECT_EQ(code_of(ZU_write_file_v(file, pieces, count, &done)), code) << count;
        EXPECT_EQ(done, wanted) << count;
    }
    EXPECT_EQ(place.read("f"), std::string(1023, 'a') + "abcd");
    ZU_close_file(file);
}

} // namespace
