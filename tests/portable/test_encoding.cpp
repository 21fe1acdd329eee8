// Encodings: every length, exact areas, and the built-in alphabets against the general engine. Digests of MD5: texts of
// the published suite, and other lengths against values from another implementation.
#include "support/portable.h"

namespace {

using bytes = std::vector<uint8_t>;

constexpr char16_t alphabet64[] = u"ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr char16_t alphabet32[] = u"abcdefghijklmnopqrstuvwxyz012345";

template <const char16_t* Alphabet>
uint32_t value_in(uint32_t character) {
    const size_t at = std::u16string_view(Alphabet).find(static_cast<char16_t>(character));
    return at == std::u16string_view::npos ? 0xFFFFFFFF : static_cast<uint32_t>(at);
}

const struct encoding {
    const char16_t* alphabet;
    uint32_t bits;
    ZU_basex_decode_fn value;
    decltype(&ZU_bin2base64) encode;
    decltype(&ZU_base642bin) decode;
} encodings[] = {
    {alphabet64, 6, value_in<alphabet64>, ZU_bin2base64, ZU_base642bin},
    {alphabet32, 5, value_in<alphabet32>, ZU_bin2base32, ZU_base322bin},
};

uint32_t random_number() {
    static std::mt19937 source(4);
    return static_cast<uint32_t>(source());
}

bytes random_bytes(size_t count) {
    bytes result(count);
    std::generate(result.begin(), result.end(), [] { return static_cast<uint8_t>(random_number()); });
    return result;
}

// The outcome of a decoder: its result, the size, and the whole area. The area is a block of its own with as many
// bytes as said, and so is the text, so that a byte read or written beyond either is seen by the sanitizer.
struct decoded {
    uint32_t result, size;
    bytes area;
    bool operator==(const decoded&) const = default;
};

template <class F>
decoded decode_to(size_t room, const std::u16string& text, F&& decode) {
    const std::vector<char16_t> exact(text.begin(), text.end());
    decoded all{0, static_cast<uint32_t>(room), bytes(room, 0xA5)};
    all.result = decode(exact.data(), static_cast<uint32_t>(text.size()), all.area.data(), &all.size);
    return all;
}

decoded by_general_engine(ZU_basex_decode_fn value, uint32_t bits, size_t room, const std::u16string& text) {
    return decode_to(room, text, [=](const ZU_wchar* t, uint32_t count, uint8_t* area, uint32_t* size) {
        return ZU_basex2bin(value, bits, t, count, area, size);
    });
}

TEST(encoding, known_texts) {
    uint32_t length = 77;
    EXPECT_EQ(taken(ZU_bin2base64_ex(bytes{'a', 'b', 'c', 0xFF}.data(), 4, &length)), u"hJ2Y/D");
    EXPECT_EQ(length, 6u);
    EXPECT_EQ(taken(ZU_bin2base32_ex(bytes{'a', 'b', 'c'}.data(), 3, nullptr)), u"btygg");
    EXPECT_EQ(decode_to(2, u"hJ2Y", ZU_base642bin), (decoded{2, 3, {0xA5, 0xA5}}));
    EXPECT_EQ(decode_to(3, u"bty6g", ZU_base322bin).result, 1u);
}

TEST(encoding, built_in_alphabets_agree_with_the_general_engine) {
    const char16_t outside[] = {u'=', u' ', u'-', u'@', u'[', u'`', u'{', u'A', u'6', 0x80, 0xC1, 0x141, 0};
    for (const encoding& e : encodings) {
        for (uint32_t count = 0; count <= 100; ++count) {
            const bytes data = random_bytes(count);
            const uint32_t needed = (count * 8 + e.bits - 1) / e.bits + 1;
            uint32_t size = needed - 1;
            ASSERT_EQ(e.encode(data.data(), count, nullptr, &size), 2u);
            ASSERT_EQ(size, needed);
            std::vector<char16_t> area(size, u'?'), general(size, u'?');
            ASSERT_EQ(e.encode(data.data(), count, area.data(), &size), 0u);
            ASSERT_EQ(size, needed);
            ASSERT_EQ(ZU_bin2basex(e.alphabet, e.bits, data.data(), count, general.data(), &size), 0u);
            ASSERT_EQ(area, general);
        }
        // Texts of any length, most with characters outside the alphabet, in areas of about the size they need.
        for (int round = 0; round < 20000; ++round) {
            std::u16string text(random_number() % 70, u'\0');
            for (char16_t& character : text)
                character = e.alphabet[random_number() % (1u << e.bits)];
            for (uint32_t wrong = random_number() % 3; wrong > 0 && !text.empty(); --wrong)
                text[random_number() % text.size()] = round % 4
                                                          ? outside[random_number() % std::size(outside)]
                                                          : static_cast<char16_t>(random_number());
            const size_t room = std::max<size_t>(text.size() * e.bits / 8 + random_number() % 5, 2) - 2;
            ASSERT_EQ(decode_to(room, text, e.decode), by_general_engine(e.value, e.bits, room, text))
                << round;
        }
    }
}

TEST(encoding, alphabets_of_every_width) {
    std::vector<char16_t> alphabet(1u << 12);
    std::iota(alphabet.begin(), alphabet.end(), char16_t{0x100});
    for (uint32_t bits = 1; bits <= 12; ++bits) {
        for (uint32_t count = 0; count < 40; ++count) {
            bytes data = random_bytes(count);
            uint32_t length = 0;
            std::u16string text = taken(ZU_bin2basex_ex(alphabet.data(), bits, data.data(), count, &length));
            ASSERT_EQ(length, text.size());
            ASSERT_EQ(length, (count * 8 + bits - 1) / bits);
            data.resize(length * bits / 8); // a wide last symbol can hold a whole byte more than went in
            const auto size = static_cast<uint32_t>(data.size());
            for (int i = 0; i < 2; ++i, text += u'\0') // without a terminator, and with one
                ASSERT_EQ(by_general_engine([](uint32_t c) { return c - 0x100; }, bits, size, text),
                          (decoded{0, size, data}));
        }
    }
}

TEST(encoding, fields_of_bits_against_single_bits) {
    EXPECT_EQ(ZU_get_bits(nullptr, 0, 0, 32), 0u);
    for (int round = 0; round < 20000; ++round) {
        bytes data = random_bytes(random_number() % 9);
        const auto size = static_cast<uint32_t>(data.size());
        const uint32_t offset = random_number() % 80, count = random_number() % 33, value = random_number();
        bytes written = data;
        uint32_t field = 0;
        for (uint32_t i = 0; i < count && (offset + i) / 8 < size; ++i) {
            const uint32_t byte = (offset + i) / 8, bit = (offset + i) % 8;
            field |= (data[byte] >> bit & 1u) << i;
            written[byte] = static_cast<uint8_t>((written[byte] & ~(1u << bit)) | (value >> i & 1u) << bit);
        }
        ASSERT_EQ(ZU_get_bits(data.data(), size, offset, count), field) << offset << " " << count;
        ZU_set_bits(data.data(), size, offset, count, value);
        ASSERT_EQ(data, written) << offset << " " << count;
    }
}

TEST(encoding, hexadecimal_of_every_length_and_its_errors) {
    const auto decode = [](const ZU_wchar* text, uint32_t count, uint8_t* area, uint32_t*) {
        return ZU_hex2bin(text, count, area);
    };
    for (uint32_t count = 1; count <= 300; ++count) {
        const bytes data = random_bytes(count);
        std::u16string upper;
        for (uint8_t byte : data)
            upper += {u"0123456789ABCDEF"[byte / 16], u"0123456789ABCDEF"[byte % 16]};
        std::u16string lower = upper;
        ZU_strlwr(lower.data());
        std::vector<char16_t> area(2 * count + 1, u'?');
        ZU_bin2hex(data.data(), count, area.data());
        ASSERT_EQ(std::u16string(area.begin(), area.end()), upper + u'\0');
        for (const std::u16string& text : {upper, lower})
            ASSERT_EQ(decode_to(count, text, decode), (decoded{0, count, data}));
        ASSERT_EQ(decode_to(count, lower + u'0', decode).result, 2u);

        // A wrong character somewhere: the bytes before its pair are there, the others as they were.
        const uint32_t at = random_number() % (2 * count);
        upper[at] = u"/:@G`g\x80\x9f\x130\x141 "[random_number() % 11];
        bytes before(data.begin(), data.begin() + at / 2);
        before.resize(count, 0xA5);
        ASSERT_EQ(decode_to(count, upper, decode), (decoded{1, count, before})) << at;
    }
}

// The digest in hexadecimal; the area has bytes on both sides.
std::string digest_of(const bytes& input) {
    uint8_t area[18];
    std::memset(area, 0x5A, sizeof area);
    ZU_md5_hash(input.data(), static_cast<uint32_t>(input.size()), area + 1);
    EXPECT_EQ(std::pair(area[0], area[17]), std::pair(uint8_t{0x5A}, uint8_t{0x5A}))
        << "16 bytes and no more";
    ZU_wchar text[33];
    ZU_bin2hex(area + 1, 16, text);
    return narrow(ZU_strlwr(text));
}

TEST(md5, known_digests) {
    bytes input; // byte number i is i modulo 251; a copy lies in a block of its exact size
    std::string digests;
    for (; input.size() < 200; input.push_back(static_cast<uint8_t>(input.size() % 251)))
        digests += digest_of(bytes(input));
    EXPECT_EQ(digest_of({digests.begin(), digests.end()}), "987e7e0e8d0969610f0a061b7e3fc520") << digests;
    EXPECT_EQ(digest_of({}), "d41d8cd98f00b204e9800998ecf8427e");
    EXPECT_EQ(digest_of({'a', 'b', 'c'}), "900150983cd24fb0d6963f7d28e17f72");
    const bytes large((1u << 29) + 3); // more than 32 bits of bits
    EXPECT_EQ(digest_of(large), "f477dd2300ffb741b990c4eac208d915");
}

} // namespace
