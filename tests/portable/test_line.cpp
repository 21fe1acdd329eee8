// The line reader.
#include "support/portable.h"

namespace {

using namespace std::string_literals;

constexpr uint32_t shared = ZU_FILE_SHARE_READ | ZU_FILE_SHARE_WRITE;

struct open_file {
    ZU_file* file;
    explicit open_file(uint32_t flags = ZU_FILE_READ | ZU_FILE_OPEN_EXISTING | shared)
        : file(ZU_open_file(u"T:\\f", flags, nullptr)) {}
    ~open_file() { ZU_close_file(file); }
};

std::vector<std::string> lines(ZU_file* file, uint32_t limit) {
    std::vector<std::string> result;
    ZU_buf buffer = {};
    uint32_t length = 7;
    ZU_bool short_read = 7;
    while (const char* line = ZU_get_line_i(file, &buffer, &length, &short_read, limit)) {
        EXPECT_EQ(static_cast<const void*>(line), buffer.data);
        result.emplace_back(line, length);
    }
    EXPECT_EQ(length, 0u);
    EXPECT_EQ(short_read, limit != 0);
    ZU_buf_destroy(&buffer);
    return result;
}

// A line ends at a line feed or a zero byte, and loses one carriage return.
TEST(line, line_ends) {
    const std::string long_line(300, 'x'), chunk(128, 'c');
    // clang-format off
    const struct {
        std::string bytes;
        uint32_t limit;
        std::vector<std::string> expected;
    } rows[] = {{"abc\ndef", 1000, {"abc", "def"}}, {"ab\r\nc", 1000, {"ab", "c"}}, {"a\rb\n", 1000, {"a\rb"}},
                {"a\r\r\n\r", 1000, {"a\r", ""}}, {"a\0\nb\n\0"s, 1000, {"a", "", "b", ""}}, {"\n\n", 1000, {"", ""}},
                {"", 1000, {}}, {long_line, 1000, {long_line}}, {"ab", 1, {"a", "b"}}, {"abc", 0, {}},
                {chunk + "\n" + chunk + "\0"s + long_line + "\n", 1000, {chunk, chunk, long_line}},
                {"abcdefgh\n", 4, {"abcd", "efgh", ""}}, {"abc\n", UINT32_MAX, {"abc"}},
                {"abc\r\nd", 4, {"abc", "", "d"}}}; // the line feed ends a line of its own
    // clang-format on
    const scratch place;
    for (const auto& row : rows) {
        place.write("f", row.bytes);
        EXPECT_EQ(lines(open_file().file, row.limit), row.expected) << row.bytes << " at " << row.limit;
    }
}

// The line at a place of the bytes, and the place behind it.
std::pair<std::string, uint64_t> line_at(const std::string& bytes, size_t at, uint32_t limit) {
    const size_t end = std::min(bytes.find_first_of("\n\0"s, at), bytes.size());
    const size_t length = std::min<size_t>(end - at, limit);
    std::string line = bytes.substr(at, length);
    if (line.ends_with('\r'))
        line.pop_back();
    return {line, at + length + (at + length == end && end < bytes.size() && length < limit)};
}

// Bytes that nobody else may write are read ahead, and most lines are taken from them at once: the results are those of
// a file that others may write to, and of the same bytes in memory.
TEST(line, random_lines_read_ahead_and_not) {
    const scratch place;
    std::mt19937 random(1);
    std::string bytes;
    while (bytes.size() < 200'000) {
        bytes += std::string(random() % 4 ? random() % 140 : random() % 700, 'x');
        bytes += "\n\n\n\r\n"s.substr(random() % 4, 1 + random() % 2);
        if (random() % 8 == 0)
            bytes += '\0';
    }
    place.write("f", bytes);
    const open_file plain, ahead(ZU_FILE_READ | ZU_FILE_OPEN_EXISTING | ZU_FILE_SHARE_READ);
    ZU_buf buffer = {};
    uint64_t at = 0, reached[2] = {};
    for (int i = 0; i < 20'000; ++i, at = reached[0]) {
        const uint32_t limits[] = {1000, 1 + static_cast<uint32_t>(random() % 300), 1000, UINT32_MAX};
        const uint32_t limit = limits[i % 4];
        const bool seeks = at == bytes.size() || random() % 50 == 0;
        const auto expected = line_at(bytes, at = seeks ? random() % bytes.size() : at, limit);
        ZU_bool short_read[2];
        for (const bool is_ahead : {false, true}) {
            ZU_file* file = is_ahead ? ahead.file : plain.file;
            uint32_t length = 0;
            ASSERT_TRUE(!seeks || ZU_seek_file(file, static_cast<int64_t>(at), nullptr, ZU_SEEK_BEGIN));
            const char* line = ZU_get_line_i(file, &buffer, &length, &short_read[is_ahead], limit);
            ASSERT_NE(line, nullptr) << i;
            EXPECT_TRUE(ZU_tell_file(file, &reached[is_ahead]));
            ASSERT_EQ(std::string(line, length + 1), expected.first + '\0') << i;
            ASSERT_EQ(reached[is_ahead], expected.second) << i;
        }
        ASSERT_EQ(short_read[0], short_read[1]) << i;
    }
    ZU_buf_destroy(&buffer);
}

TEST(line, position_and_short_read) {
    const scratch place;
    place.write("f", "abc\ndef");
    const open_file f;
    uint32_t length = 7;
    ZU_bool short_read = 7;
    uint64_t position = 0;
    const auto next = [&] {
        char* line = ZU_get_line(f.file, &length, &short_read);
        const std::string copy = line ? std::string(line, length) : "<null>";
        ZU_free(line);
        return copy;
    };
    EXPECT_EQ(next(), "abc");
    EXPECT_TRUE(ZU_tell_file(f.file, &position));
    EXPECT_EQ(position, 4u);
    EXPECT_EQ(short_read, 1);
    EXPECT_EQ(next(), "def");
    EXPECT_EQ(next(), "<null>");
    EXPECT_EQ(short_read, 1);
    EXPECT_EQ(length, 0u);
    const std::string filler(ZU_GET_LINE_MAX, 'x');
    place.write("f", "abc\ndefghi\n" + filler + "y\n");
    EXPECT_EQ(next(), "ghi") << "what another appended meanwhile is read";
    EXPECT_EQ(next(), filler);
    EXPECT_EQ(short_read, 0);
    EXPECT_EQ(next(), "y");

    const open_file unreadable(ZU_FILE_WRITE | ZU_FILE_OPEN_EXISTING | shared);
    EXPECT_EQ(code_of(ZU_get_line(unreadable.file, &length, &short_read)), codes::access_denied)
        << "a failed read is not the end";
    EXPECT_EQ(length, 0u);
    EXPECT_EQ(short_read, 0);
}

} // namespace
