// Bytes and units of any kind in a character set that is not UTF-8. A process has one set, so a run takes one of
// eight; LC_ALL=x.SET chooses it.
#include <unistd.h>

#include <cstdio>
#include <memory>

#include "fuzz/check.h"
#include "zu/zu.h"

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    constexpr const char* sets[] = {"x.CP1252",  "x.ISO-8859-7",  "x.EUC-JP", "x.SHIFT_JIS",
                                    "x.GB18030", "x.ISO-2022-JP", "x.BIG5",   "x.TCVN5712-1"};
    setenv("LC_ALL", sets[getpid() % std::size(sets)], 0);
    std::printf("LC_ALL=%s\n", std::getenv("LC_ALL"));
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    // Blocks of their own size, so that a look behind the end is seen.
    const std::unique_ptr<char[]> bytes(new char[size]);
    const std::unique_ptr<ZU_wchar[]> units(new ZU_wchar[size / 2]);
    std::memcpy(bytes.get(), data, size);
    std::memcpy(units.get(), data, size / 2 * 2);
    uint32_t length = 0, size_again = 0;
    ZU_wchar* const wide =
        ZU_char_2_wchar(ZU_ENCODING_ANSI, bytes.get(), static_cast<int32_t>(size), &length);
    check(wide && wide[length] == 0);
    char* narrow = ZU_wchar_2_char(ZU_ENCODING_ANSI, wide, static_cast<int32_t>(length), &size_again);
    check(narrow && narrow[size_again] == 0);
    ZU_free(narrow);
    ZU_free(wide);
    narrow = ZU_wchar_2_char(ZU_ENCODING_ANSI, units.get(), static_cast<int32_t>(size / 2), &size_again);
    check(narrow && narrow[size_again] == 0);
    ZU_free(narrow);
    return 0;
}
