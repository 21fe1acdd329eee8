// Timers made of any texts and numbers: their due tests at any times, and the search for the next firing.
#include <fuzzer/FuzzedDataProvider.h>

#include "fuzz/check.h"
#include "zu/zu.h"

namespace {

ZU_timer* make(FuzzedDataProvider& input, ZU_timer_holidays* holidays, bool& is_slow_to_search) {
    const auto kind = input.ConsumeIntegral<uint32_t>();
    const auto a = input.ConsumeIntegral<int32_t>(), b = input.ConsumeIntegral<int32_t>();
    const auto c = input.ConsumeIntegral<int32_t>();
    std::u16string t[7];
    for (std::u16string& each : t) {
        const std::string text = input.ConsumeRandomLengthString();
        each.assign(text.begin(), text.end()); // bytes have a sign, so some units lie beyond ASCII
    }
    // A date of any bytes is mostly refused, so most of them get a good one.
    const ZU_wchar* start = kind & 64 ? t[0].c_str() : u"2006-05-01 02:30";
    const ZU_wchar *end = t[1].c_str(), *last = t[2].c_str(), *on = t[3].c_str();
    const ZU_wchar *x = t[4].c_str(), *y = t[5].c_str(), *z = t[6].c_str();
    switch (kind & 7) {
    case 0: return ZU_timer_new_daily(start, end, last, a, x, y, z, holidays);
    case 1: // steps of a second take millions of them
        is_slow_to_search =
            static_cast<uint32_t>(a) * 3600 + static_cast<uint32_t>(b) * 60 + static_cast<uint32_t>(c) < 3600;
        return ZU_timer_new_interval(start, end, last, a, b, c, on, x, y, z, holidays);
    case 2: return ZU_timer_new_weekly(start, end, last, on, a, x, y, holidays);
    case 3: return ZU_timer_new_monthly(start, end, last, on, x, y, holidays);
    case 4: return ZU_timer_new_week_of_month(start, end, last, a, on, x, y, holidays);
    default: return ZU_timer_new_weekday_of_month(start, end, last, a, on, x, y, holidays);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    setenv("TZ", "Europe/Berlin", 1);
    static ZU_timer_holidays holidays;
    if (holidays.count == 0) {
        ZU_timer_holidays_init(&holidays);
        const ZU_holiday christmas{12, 25};
        ZU_timer_holidays_add(&holidays, &christmas);
    }
    FuzzedDataProvider input(data, size);
    ZU_timer_set_valid_offset_seconds(input.ConsumeIntegral<int32_t>());
    bool is_slow_to_search = false;
    ZU_timer* const timer = make(input, &holidays, is_slow_to_search);
    if (!timer)
        return 0;
    for (int i = 0; i < 4; ++i) {
        const ZU_time_t before = timer->last, low = input.ConsumeIntegral<int32_t>();
        const auto now = input.ConsumeIntegral<int32_t>();
        const bool due = timer->ops->due(timer, low, now) == 0;
        check(due ? timer->last <= now : timer->last == before || timer->last == 0);
    }
    const ZU_time_t last = timer->last;
    check(is_slow_to_search || (timer->ops->next(timer) >= -2 && timer->last == last));
    timer->ops->destroy(timer);
    return 0;
}
