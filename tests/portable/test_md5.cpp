// MD5: texts of the published suite, and lengths around the block size against values from another implementation.
#include "support/portable.h"

namespace {

// The digest in hexadecimal; the bytes lie in a block of their exact size, and the area has bytes on both sides.
std::string digest_of(const std::vector<uint8_t>& bytes) {
    uint8_t area[18];
    std::memset(area, 0x5A, sizeof area);
    ZU_md5_hash(bytes.data(), static_cast<uint32_t>(bytes.size()), area + 1);
    EXPECT_EQ(std::pair(area[0], area[17]), std::pair(uint8_t{0x5A}, uint8_t{0x5A}))
        << "16 bytes and no more";
    ZU_wchar text[33];
    ZU_bin2hex(area + 1, 16, text);
    return narrow(ZU_strlwr(text));
}

// Byte number i is i modulo 251.
std::vector<uint8_t> bytes(uint32_t length) {
    std::vector<uint8_t> all(length);
    for (uint32_t i = 0; i < length; ++i)
        all[i] = static_cast<uint8_t>(i % 251);
    return all;
}

TEST(md5, known_digests) {
    const struct {
        std::vector<uint8_t> input;
        const char* digest;
    } rows[] = {
        {{}, "d41d8cd98f00b204e9800998ecf8427e"},
        {{'a', 'b', 'c'}, "900150983cd24fb0d6963f7d28e17f72"},
        {bytes(55), "6912ee65fff2d9f9ce2508cddf8bcda0"},
        {bytes(56), "51fdd1acda72405dfdfa03fcb85896d7"},
        {bytes(63), "48a6295221902e8e0938f773a7185e72"},
        {bytes(64), "b2d3f56bc197fd985d5965079b5e7148"},
        {bytes(65), "8bd7053801c768420faf816fadba971c"},
        {bytes(119), "1c772251899a7ff007400b888d6b2042"},
        {bytes(120), "b7ba1efc6022e9ed272f00b8831e26e6"},
        {bytes(1048576), "8f293a2f6c19b345152f7a49bb4c643c"},
        {std::vector<uint8_t>((1u << 29) + 3),
         "f477dd2300ffb741b990c4eac208d915"}, // more than 32 bits of bits
    };
    for (const auto& row : rows)
        EXPECT_EQ(digest_of(row.input), row.digest) << row.input.size();
}

} // namespace
