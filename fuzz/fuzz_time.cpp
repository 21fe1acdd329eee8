// Date texts of any code units, under zones that the input chooses: what is read is written as it stands and reads
// back as the same time, unless the local time exists twice or the day does not exist.
#include "fuzz/check.h"
#include "zu/zu.h"

namespace {

const char* const zones[] = {"UTC", "Europe/Berlin", "Australia/Lord_Howe", "AAA24BBB-24,J50,J300"};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 2)
        return 0;
    setenv("TZ", zones[data[0] % 4], 1);
    std::u16string text = units_of(data + 2, size - 2);
    if (data[1] % 2) // one byte becomes one unit, so that digits are frequent
        text.assign(data + 2, data + size);
    ZU_tm local{};
    const ZU_time_t time = ZU_read_tm(text.c_str(), &local);
    check(time >= -1 && ZU_read_time_t(text.c_str()) == time);
    ZU_wchar written[20];
    ZU_write_tm(&local, written);
    if (time < 0)
        return 0;
    ZU_tm again{};
    check(ZU_localtime(time, &again) && std::memcmp(&again, &local, sizeof local) == 0);
    check(std::u16string(written).size() == 19);
    check(ZU_mktime(&again) == time); // the daylight flag tells which of two times is meant
    const ZU_time_t reread = ZU_read_time_t(written);
    check(reread == time || std::abs(int64_t{reread} - time) <= 48 * 3600);
    return 0;
}
