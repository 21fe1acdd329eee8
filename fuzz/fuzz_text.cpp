// Texts of any kind: conversions, formats, message templates, addresses, command lines, dates, zones, timers.
#include <arpa/inet.h>

#include <algorithm>
#include <cstdio>
#include <utility>

#include "fuzz/check.h"
#include "platform/platform.h"
#include "platform/text/command_line.h"
#include "zu/zu.h"

namespace {

// Blocks of their own size show a look behind the end. What has come out of UTF-8 is a fixed point.
void convert(fuzz_input& input) {
    const uint32_t encoding = input.ConsumeBool() ? ZU_ENCODING_UTF8 : ZU_ENCODING_ANSI;
    const std::vector<char> bytes = input.ConsumeRemainingBytes<char>();
    std::vector<ZU_wchar> units(bytes.size() / 2);
    if (units.empty())
        return;
    std::memcpy(units.data(), bytes.data(), units.size() * sizeof units[0]);
    uint32_t length = 0;
    ZU_wchar* const wide =
        ZU_char_2_wchar(encoding, bytes.data(), static_cast<int32_t>(bytes.size()), &length);
    check(wide && wide[length] == 0);
    for (const std::u16string_view text : {std::u16string_view(wide, length), {units.data(), units.size()}}) {
        uint32_t size = 0, length_again = 0;
        char* const narrow = ZU_wchar_2_char(encoding, text.data(), static_cast<int32_t>(text.size()), &size);
        check(narrow && narrow[size] == 0);
        ZU_wchar* const again = ZU_char_2_wchar(encoding, narrow, static_cast<int32_t>(size), &length_again);
        check(encoding != ZU_ENCODING_UTF8 || text.data() != wide
              || text == std::u16string_view(again, length_again));
        ZU_free(again);
        ZU_free(narrow);
    }
    ZU_free(wide);
}

constexpr size_t argument_count = 64; // a conversion takes at most as many arguments as it has units

const char16_t* const arguments[] = {u"text", u"", u"a longer text, of more units than an area has", nullptr};

template <size_t... I>
int print(char16_t* out, size_t count, const char16_t* text, std::index_sequence<I...>) {
    return platform::_snwprintf(out, count, text, arguments[I % 4]..., 1.5, -1e300, 0.0, 1e-320, 3.0, 2.5,
                                1e15, -0.0);
}

// Arguments that every conversion can take: pointers to texts. Areas of every size are filled as the measured length
// says.
void format(fuzz_input& input) {
    const size_t count = size_t{input.ConsumeIntegral<uint8_t>()} + 1;
    std::u16string text = remaining_text(input).substr(0, argument_count - 1);
    std::replace(text.begin(), text.end(), u'\xFF', u'\u20ac');
    constexpr auto slots = std::make_index_sequence<argument_count>();
    std::vector<char16_t> area(count);
    const int measured = print(nullptr, 0, text.c_str(), slots);
    const int length = print(area.data(), count, text.c_str(), slots);
    const bool fits = measured >= 0 && static_cast<size_t>(measured) <= count;
    check(length == (fits ? measured : -1));
    check(!fits || static_cast<size_t>(length) == count || area[static_cast<size_t>(length)] == 0);
}

// Widths of many digits make texts that no memory holds, and numbers of inserts beyond those that are passed.
void fill_template(fuzz_input& input) {
    const std::u16string text = remaining_text(input);
    const auto are_digits = [](ZU_wchar a, ZU_wchar b) {
        return a >= u'0' && a <= u'9' && b >= u'0' && b <= u'9';
    };
    if (std::adjacent_find(text.begin(), text.end(), are_digits) != text.end())
        return;
    ZU_s s = nullptr;
    const int32_t length = ZU_s_format_message(&s, text.c_str(), u"1", u"22", static_cast<ZU_wchar*>(nullptr),
                                               u"4444", u"", u"6", u"7", u"8", u"9");
    check(length == static_cast<int32_t>(ZU_s_length(s)));
    ZU_s_destroy(&s);
}

// Dotted addresses as the C library reads them, but for one blank alone, and the way back.
void read_address(fuzz_input& input) {
    const std::string text = input.ConsumeRemainingBytesAsString().c_str();
    in_addr expected{INADDR_NONE};
    if (text == " ")
        expected.s_addr = 0;
    else if (inet_aton(text.c_str(), &expected) == 0)
        expected.s_addr = INADDR_NONE;
    const uint32_t address = ZU_inet_addr(text.c_str());
    check(address == expected.s_addr);
    char dotted[16];
    ZU_inet_ntoa(address, dotted);
    check(address == INADDR_NONE || ZU_inet_addr(dotted) == address);
}

void read_command_line(fuzz_input& input) {
    const std::u16string text = remaining_text(input);
    platform::command_line line(text);
    do {
        size_t units = line.program().size();
        for (const std::u16string& argument : line.arguments())
            units += argument.size();
        check(units <= text.size());
    } while (line.lengthen_program());
}

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

// A process has one character set, so a run takes one of eight; LC_ALL=x.SET chooses it.
extern "C" int LLVMFuzzerInitialize(int*, char***) {
    constexpr const char* sets[] = {"x.CP1252",  "x.ISO-8859-7",  "x.EUC-JP", "x.SHIFT_JIS",
                                    "x.GB18030", "x.ISO-2022-JP", "x.BIG5",   "x.TCVN5712-1"};
    setenv("LC_ALL", sets[getpid() % std::size(sets)], 0);
    std::printf("LC_ALL=%s\n", std::getenv("LC_ALL"));
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    return run_one_of(
        {convert, format, fill_template, read_address, read_command_line, read_date, read_zone, ask_timer},
        data, size);
}
