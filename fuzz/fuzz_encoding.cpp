// Texts of encoded bytes: what can be read is written and read back as the same bytes, and never beyond the room.
#include <memory>

#include "fuzz/check.h"
#include "zu/zu.h"

namespace {

struct encoding {
    uint32_t (*write)(const uint8_t*, uint32_t, ZU_wchar*, uint32_t*);
    uint32_t (*read)(const ZU_wchar*, uint32_t, uint8_t*, uint32_t*);
};

constexpr encoding encodings[] = {{ZU_bin2base64, ZU_base642bin}, {ZU_bin2base32, ZU_base322bin}};

void check_base(const encoding& base, const ZU_wchar* text, uint32_t count, uint32_t room) {
    const std::unique_ptr<uint8_t[]> bytes(new uint8_t[room]), again(new uint8_t[room + 1]);
    uint32_t size = room, length = 0, size_again = room + 1;
    if (const uint32_t code = base.read(text, count, bytes.get(), &size)) {
        check(code == 1 || code == 2);
        return;
    }
    check(size <= room);
    check(base.write(bytes.get(), size, nullptr, &length) == 2);
    const std::unique_ptr<ZU_wchar[]> written(new ZU_wchar[length]);
    const uint32_t measured = length;
    check(base.write(bytes.get(), size, written.get(), &length) == 0 && length == measured
          && written[length - 1] == 0);
    check(base.read(written.get(), length, again.get(), &size_again) == 0 && size_again >= size);
    check(std::memcmp(again.get(), bytes.get(), size) == 0);
}

void check_hex(const ZU_wchar* text, uint32_t count) {
    const uint32_t size = count / 2;
    const std::unique_ptr<uint8_t[]> bytes(new uint8_t[size]), again(new uint8_t[size]);
    const std::unique_ptr<ZU_wchar[]> written(new ZU_wchar[2 * size_t{size} + 1]);
    if (ZU_hex2bin(text, count, bytes.get()) != 0)
        return;
    ZU_bin2hex(bytes.get(), size, written.get());
    check(ZU_hex2bin(written.get(), 2 * size, again.get()) == 0);
    check(std::memcmp(again.get(), bytes.get(), size) == 0);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 2)
        return 0;
    std::u16string units = units_of(data + 2, size - 2);
    if (data[0] % 2) // one byte is one unit, so that the alphabets come up often
        units.assign(data + 2, data + size);
    const auto count = static_cast<uint32_t>(units.size());
    const std::unique_ptr<ZU_wchar[]> text(new ZU_wchar[count]); // ends where its units end
    std::memcpy(text.get(), units.data(), count * sizeof(ZU_wchar));
    for (const encoding& base : encodings)
        check_base(base, text.get(), count, data[1]);
    const auto decode = [](uint32_t character) { return character < 0x80 ? character & 31 : UINT32_MAX; };
    uint32_t room = data[1];
    const std::unique_ptr<uint8_t[]> bytes(new uint8_t[room]);
    ZU_basex2bin(decode, 1 + data[0] / 2 % 8, text.get(), count, bytes.get(), &room);
    check_hex(text.get(), count);
    return 0;
}
