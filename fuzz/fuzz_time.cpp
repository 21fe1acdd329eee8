// Date texts, zones and timers made of any texts and numbers.
#include "fuzz/check.h"
#include "zu/zu.h"

namespace {

// What is read is written as it stands and reads back as the same time, unless the local time exists twice or the day
// does not exist.
void read_date(fuzz_input& input) {
    setenv("TZ",
           input.PickValueInArray({"UTC", "Europe/Berlin", "Australia/Lord_Howe", "AAA24BBB-24,J50,J300"}),
           1);
    const std::u16string text = remaining_text(input);
    ZU_tm local{};
    const ZU_time_t time = ZU_read_tm(text.c_str(), &local);
    check(time >= -1 && ZU_read_time_t(text.c_str()) == time);
    ZU_wchar written[20];
    ZU_write_tm(&local, written);
    if (time < 0)
        return;
    ZU_tm again{};
    check(ZU_localtime(time, &again) && std::memcmp(&again, &local, sizeof local) == 0);
    check(std::u16string(written).size() == 19);
    check(ZU_mktime(&again) == time); // the daylight flag tells which of two times is meant
    const ZU_time_t reread = ZU_read_time_t(written);
    check(reread == time || std::abs(int64_t{reread} - time) <= 48 * 3600);
}

void read_zone(fuzz_input& input) {
    std::string zone = input.ConsumeRandomLengthString(60).c_str();
    if (zone.find_first_of("/.:") != std::string::npos) // no file of the host's
        zone = "UTC";
    setenv("TZ", zone.c_str(), 1);
    while (input.remaining_bytes() > 0) {
        const auto time = input.ConsumeIntegralInRange<ZU_time_t>(0, INT32_MAX);
        ZU_tm local;
        if (!ZU_localtime(time, &local))
            continue;
        const ZU_time_t back = ZU_mktime(&local);
        check(back == -1 || std::abs(int64_t{back} - time) <= 7 * 24 * 3600);
        local.tm_isdst = input.ConsumeIntegralInRange(-1, 2);
        for (int32_t* field : {&local.tm_mon, &local.tm_mday, &local.tm_hour})
            *field = input.ConsumeIntegral<int32_t>();
        ZU_mktime(&local);
    }
}

ZU_timer* make(fuzz_input& input, ZU_timer_holidays* holidays, bool& is_slow_to_search) {
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

// Due tests at any times, and the search for the next firing.
void ask_timer(fuzz_input& input) {
    setenv("TZ", "Europe/Berlin", 1);
    static ZU_timer_holidays holidays;
    if (holidays.count == 0) {
        ZU_timer_holidays_init(&holidays);
        const ZU_holiday christmas{12, 25};
        ZU_timer_holidays_add(&holidays, &christmas);
    }
    ZU_timer_set_valid_offset_seconds(input.ConsumeIntegral<int32_t>());
    bool is_slow_to_search = false;
    ZU_timer* const timer = make(input, &holidays, is_slow_to_search);
    if (!timer)
        return;
    for (int i = 0; i < 4; ++i) {
        const ZU_time_t before = timer->last, low = input.ConsumeIntegral<int32_t>();
        const auto now = input.ConsumeIntegral<int32_t>();
        const bool due = timer->ops->due(timer, low, now) == 0;
        check(due ? timer->last <= now : timer->last == before || timer->last == 0);
    }
    const ZU_time_t last = timer->last;
    check(is_slow_to_search || (timer->ops->next(timer) >= -2 && timer->last == last));
    timer->ops->destroy(timer);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    return run_one_of({read_date, read_zone, ask_timer}, data, size);
}
