// Fixed-capacity strings and byte buffers.
#include "support/portable.h"

namespace {

using namespace std::string_literals;

TEST(fixed_string, the_block_follows_the_length_that_was_held) {
    ZU_fixed_s s = {}, copy = {};
    ZU_fixed_s_create(&s, nullptr);
    EXPECT_EQ(s.text, nullptr);
    ZU_fixed_s_create(&s, u"abcdef");
    const ZU_wchar* block = s.text;
    ZU_fixed_s_assign(&s, s.text + 5);
    EXPECT_EQ(s.text, block) << "large enough by the length held";
    EXPECT_EQ(std::u16string(s.text), u"f");
    ZU_fixed_s_assign(&s, s.text + 3); // what is left of "abcdef" behind the terminator, longer than "f"
    EXPECT_EQ(std::u16string(s.text), u"def") << "the new block is filled before the old one goes";
    EXPECT_EQ(s.length, 3u);
    ZU_fixed_s_assign_s(&s, &s);
    ZU_fixed_s_assign_s(&copy, &s);
    EXPECT_EQ(std::u16string(copy.text), u"def");
    EXPECT_NE(copy.text, s.text);
    ZU_fixed_s_destroy(&s);
    ZU_fixed_s_assign_s(&copy, &s);
    EXPECT_EQ(copy.text, nullptr);
    EXPECT_EQ(copy.length, 0u);
}

TEST(fixed_string, the_serialised_form_counts_bytes_of_the_encoding) {
    const std::tuple<const ZU_wchar*, uint32_t, std::string> rows[] = {
        {nullptr, ZU_ENCODING_UTF8, "\0\0\0\0"s},
        {u"\u20ac", ZU_ENCODING_UTF8, "\3\0\0\0\xe2\x82\xac"s},
        {u"abc", 77, "\0\0\0\0"s}};
    for (const auto& [text, encoding, bytes] : rows) {
        ZU_fixed_s s = {};
        ZU_fixed_s_create(&s, text);
        uint8_t* block = nullptr;
        const int32_t size = ZU_fixed_s_to_buffer(&s, encoding, &block);
        EXPECT_EQ(std::string(block, block + size), bytes);
        ZU_free(block);
        ZU_fixed_s_destroy(&s);
    }
}

TEST(buffer, growth_and_ownership) {
    ZU_buf b = {}, other = {};
    ZU_buf_append(&b, 0, "", 0);
    EXPECT_EQ(b.data, nullptr);
    uint8_t* data = ZU_buf_get_ex(&b, 5, 0);
    EXPECT_EQ(ZU_buf_get_ex(&b, 8, 0), data);
    ZU_buf_append(&b, 0, "12345678", 8);
    ZU_buf_append(&b, 8, "9", 1);
    EXPECT_EQ(std::string(b.data, b.data + 9), "123456789");
    ZU_buf_append(&b, 9, b.data + 4, 5); // its own bytes, which move to a larger block
    ZU_buf_append(&b, 10, b.data + 9, 4);
    EXPECT_EQ(std::string(b.data, b.data + 14), "12345678955678");
    ZU_buf_append(&other, 1000, "beyond what there is", 20);
    EXPECT_EQ(std::string(other.data + 1000, other.data + 1020), "beyond what there is");
    ZU_buf_destroy(&other);
    data = b.data;
    EXPECT_EQ(ZU_buf_swap(&b, &other), &b);
    EXPECT_EQ(b.data, nullptr);
    uint32_t capacity = 0;
    EXPECT_EQ(ZU_buf_detach(&other, &capacity), data);
    EXPECT_EQ(capacity, 16u);
    EXPECT_EQ(ZU_buf_detach(&other, nullptr), nullptr);
    ZU_free(data);
    ZU_buf_get_ex(&b, 1, 0);
    ZU_buf_destroy(&b);
    EXPECT_EQ(b.data, nullptr);
    EXPECT_EQ(b.capacity, 0u);
    ZU_buf_destroy(nullptr);
}

} // namespace
