// MD5: the published suite, and every length around the block size against values from another implementation.
#include "support/test.h"

namespace {

// The digest in hexadecimal; the bytes lie in a block of their exact size, and the area has bytes on both sides.
std::string digest_of(const std::vector<uint8_t>& bytes) {
    uint8_t area[18];
    std::memset(area, 0x5A, sizeof area);
    ZU_md5_hash(bytes.data(), static_cast<uint32_t>(bytes.size()), area + 1);
    EXPECT_TRUE(area[0] == 0x5A && area[17] == 0x5A) << "16 bytes and no more";
    std::string text;
    for (int i = 1; i <= 16; ++i) {
        char digits[3];
        std::snprintf(digits, sizeof digits, "%02x", area[i]);
        text += digits;
    }
    return text;
}

TEST(md5, published_suite) {
    const struct {
        const char* text;
        const char* digest;
    } rows[] = {
        {"", "d41d8cd98f00b204e9800998ecf8427e"},
        {"a", "0cc175b9c0f1b6a831c399e269772661"},
        {"abc", "900150983cd24fb0d6963f7d28e17f72"},
        {"message digest", "f96b697d7cb7938d525a2f31aaf161d0"},
        {"abcdefghijklmnopqrstuvwxyz", "c3fcd3d76192e4007dfb496cca67e13b"},
        {"ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789",
         "d174ab98d277d9f5a5611c2c9f419d9f"},
        {"12345678901234567890123456789012345678901234567890123456789012345678901234567890",
         "57edf4a22be3c955ac49da2e2107b67a"},
    };
    for (const auto& row : rows)
        EXPECT_EQ(digest_of({row.text, row.text + std::strlen(row.text)}), row.digest) << row.text;
}

// Byte number i of every input is i modulo 251.
TEST(md5, lengths_around_the_block_size) {
    const struct {
        uint32_t length;
        const char* digest;
    } rows[] = {
        {1, "93b885adfe0da089cdf634904fd59f71"},       {54, "33dd62a2df6538daf1cf821d9cde61f9"},
        {55, "6912ee65fff2d9f9ce2508cddf8bcda0"},      {56, "51fdd1acda72405dfdfa03fcb85896d7"},
        {57, "5320ef4c17ef34a0cf2db763338d25eb"},      {63, "48a6295221902e8e0938f773a7185e72"},
        {64, "b2d3f56bc197fd985d5965079b5e7148"},      {65, "8bd7053801c768420faf816fadba971c"},
        {118, "4541055c6675b614d27c537c3bb15675"},     {119, "1c772251899a7ff007400b888d6b2042"},
        {120, "b7ba1efc6022e9ed272f00b8831e26e6"},     {121, "b0b2d719a838db877b6d6571a39a1cdc"},
        {127, "8402b21e7bc7906493bae0dac017f1f9"},     {128, "37eff01866ba3f538421b30b7cbefcac"},
        {129, "46f986692847558fc38b0cece591c20f"},     {1000, "a24f1e3ef66950e1327f210e3997ba2c"},
        {1048576, "8f293a2f6c19b345152f7a49bb4c643c"},
    };
    for (const auto& row : rows) {
        std::vector<uint8_t> bytes(row.length);
        for (uint32_t i = 0; i < row.length; ++i)
            bytes[i] = static_cast<uint8_t>(i % 251);
        EXPECT_EQ(digest_of(bytes), row.digest) << row.length;
    }
    const std::vector<uint8_t> zeros((1u << 29) + 3);
    EXPECT_EQ(digest_of(zeros), "f477dd2300ffb741b990c4eac208d915") << "the count of bits takes more than 32";
}

} // namespace
