// Timers made of any texts and numbers: their due tests at any times, and the search for the next firing.
#include <string_view>

#include "fuzz/check.h"
#include "zu/zu.h"

namespace {

// Takes the input apart from the front; past its end everything is 0 and empty.
class source {
public:
    source(const uint8_t* data, size_t size) : rest_(reinterpret_cast<const char*>(data), size) {}

    int32_t number() {
        int32_t value = 0;
        rest_.remove_prefix(rest_.copy(reinterpret_cast<char*>(&value), sizeof value));
        return value;
    }
    // Bytes up to a zero byte; those from 128 on stand for units beyond ASCII.
    std::u16string text() {
        std::u16string result;
        for (; !rest_.empty() && rest_[0] != 0; rest_.remove_prefix(1)) {
            const auto byte = static_cast<uint8_t>(rest_[0]);
            result += static_cast<char16_t>(byte < 128 ? byte : byte * 257);
        }
        rest_.remove_prefix(rest_.empty() ? 0 : 1);
        return result;
    }

private:
    std::string_view rest_;
};

ZU_timer* make(source& input, ZU_timer_holidays* holidays, bool& is_slow_to_search) {
    const int32_t kind = input.number(), a = input.number(), b = input.number(), c = input.number();
    std::u16string t[7];
    for (std::u16string& each : t)
        each = input.text();
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
    source input(data, size);
    ZU_timer_set_valid_offset_seconds(input.number());
    bool is_slow_to_search = false;
    ZU_timer* const timer = make(input, &holidays, is_slow_to_search);
    if (!timer)
        return 0;
    for (int i = 0; i < 4; ++i) {
        const ZU_time_t before = timer->last, low = input.number(), now = input.number();
        const bool due = timer->ops->due(timer, low, now) == 0;
        check(due ? timer->last <= now : timer->last == before || timer->last == 0);
    }
    const ZU_time_t last = timer->last;
    check(is_slow_to_search || (timer->ops->next(timer) >= -2 && timer->last == last));
    timer->ops->destroy(timer);
    return 0;
}
