// Decoders: any text leaves the bytes that the general engine leaves, and nothing outside the areas is touched.
#include <algorithm>
#include <cstdint>
#include <cstring>
#include <memory>

#include "fuzz/check.h"
#include "zu/zu.h"

namespace {

constexpr uint8_t untouched = 0xA5;

// Blocks of the exact size, so that the sanitizer sees every step outside.
struct area {
    explicit area(uint32_t count) : size(count), room(count), bytes(new uint8_t[count]) {
        std::fill_n(bytes.get(), count, untouched);
    }
    bool operator==(const area& other) const {
        return size == other.size && std::equal(bytes.get(), bytes.get() + room, other.bytes.get());
    }

    uint32_t size, room;
    std::unique_ptr<uint8_t[]> bytes;
};

uint32_t value_base64(uint32_t character) {
    const char* const alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    const char* const at =
        character > 0 && character < 128 ? std::strchr(alphabet, static_cast<int>(character)) : nullptr;
    return at ? static_cast<uint32_t>(at - alphabet) : 0xFFFFFFFF;
}

uint32_t value_base32(uint32_t character) {
    if (character >= 'a' && character <= 'z')
        return character - 'a';
    return character >= '0' && character <= '5' ? character - '0' + 26 : 0xFFFFFFFF;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 2)
        return 0;
    // The first byte makes the room larger or smaller than enough; the second widens some characters.
    const uint32_t count = static_cast<uint32_t>(size - 2);
    const std::unique_ptr<ZU_wchar[]> text(new ZU_wchar[count]);
    for (uint32_t i = 0; i < count; ++i)
        text[i] = static_cast<ZU_wchar>(data[i + 2] | (data[1] != 0 && i % data[1] == 1 ? 0x100 : 0));

    const struct {
        uint32_t bits;
        ZU_basex_decode_fn value;
        uint32_t (*decode)(const ZU_wchar*, uint32_t, uint8_t*, uint32_t*);
    } decoders[] = {{6, value_base64, ZU_base642bin}, {5, value_base32, ZU_base322bin}};
    for (const auto& decoder : decoders) {
        const uint32_t enough = count * decoder.bits / 8;
        const uint32_t less = data[0] % 8u;
        const uint32_t room = std::max(enough + 4, less) - less;
        area built_in(room), general(room);
        const uint32_t result = decoder.decode(text.get(), count, built_in.bytes.get(), &built_in.size);
        check(result
              == ZU_basex2bin(decoder.value, decoder.bits, text.get(), count, general.bytes.get(),
                              &general.size));
        check(built_in == general);
    }

    area pairs(count / 2);
    const uint32_t result = ZU_hex2bin(text.get(), count, pairs.bytes.get());
    check((result == 2) == (count % 2 != 0));
    if (result == 0) {
        const std::unique_ptr<ZU_wchar[]> back(new ZU_wchar[count + 1]);
        ZU_bin2hex(pairs.bytes.get(), count / 2, back.get());
        for (uint32_t i = 0; i < count; ++i)
            check(back[i] == (text[i] >= 'a' ? text[i] - 'a' + 'A' : text[i]));
    }
    return 0;
}
