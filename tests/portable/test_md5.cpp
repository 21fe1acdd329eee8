// MD5: texts of the published suite, and other lengths against values from another implementation.
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

TEST(md5, known_digests) {
    std::vector<uint8_t> bytes; // byte number i is i modulo 251
    std::string digests;
    for (; bytes.size() < 200; bytes.push_back(static_cast<uint8_t>(bytes.size() % 251)))
        digests += digest_of(bytes);
    EXPECT_EQ(digest_of({digests.begin(), digests.end()}), "987e7e0e8d0969610f0a061b7e3fc520") << digests;
    EXPECT_EQ(digest_of({}), "d41d8cd98f00b204e9800998ecf8427e");
    EXPECT_EQ(digest_of({'a', 'b', 'c'}), "900150983cd24fb0d6963f7d28e17f72");
    const std::vector<uint8_t> large((1u << 29) + 3); // more than 32 bits of bits
    EXPECT_EQ(digest_of(large), "f477dd2300ffb741b990c4eac208d915");
}

} // namespace
