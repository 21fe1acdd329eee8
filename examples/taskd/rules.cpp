#include "rules.h"

#include <algorithm>
#include <array>
#include <cstdio>

#include "text.h"

namespace {

[[noreturn]] void refuse(std::string_view what, std::string_view why) {
    throw misunderstood{'"' + std::string(what) + "\" " + std::string(why)};
}

// The arguments of the six constructors.
struct inputs {
    wide_text start, end;
    int32_t number = 0;                      // days, weeks, the number of a week or of an occurrence
    wide_text on;                            // weekdays, or days of the month
    int32_t clock[3] = {};                   // hours, minutes, seconds
    wide_text months, days, weekdays, hours; // the exclusions
    ZU_timer_holidays* holidays = nullptr;
};

// A list such as "1,15,-1", or "mon,fri" of weekdays. The library drops what is out of range; here it is reported.
wide_text list(std::string_view text, int32_t low, int32_t high, bool of_weekdays = false) {
    static constexpr std::array<std::string_view, 7> names{"mon", "tue", "wed", "thu", "fri", "sat", "sun"};
    std::string numbers;
    for (std::string_view item : pieces(text, ',')) {
        int32_t number = 0;
        const auto name = std::find(names.begin(), names.end(), item);
        if (of_weekdays && name != names.end())
            number = static_cast<int32_t>(name - names.begin()) + 1;
        else if (!read_number(item, number) || number < low || number > high)
            refuse(item, of_weekdays
                             ? "is not a weekday: mon to sun, or 1 to 7"
                             : "is not a number from " + std::to_string(low) + " to " + std::to_string(high));
        numbers += std::to_string(number) + ',';
    }
    return wide(numbers);
}

wide_text weekdays(std::string_view text) {
    return list(text, 1, 7, true);
}
wide_text days(std::string_view text) {
    return list(text, -31, 31);
}

int32_t number(std::string_view text) {
    int32_t value = 0;
    if (!read_number(text, value))
        refuse(text, "is not a number");
    return value;
}

void read_number_and_weekdays(inputs& in, std::string_view first, std::string_view second) {
    in.number = number(first);
    in.on = weekdays(second);
}

// A kind of timer: how its rule is written, which exclusions it takes, and how it is read and made.
struct kind {
    std::string_view name;
    const char* form;
    size_t words;
    std::string_view exclusions;
    void (*read)(inputs& in, std::string_view first, std::string_view second);
    ZU_timer* (*make)(const inputs& in);
};

const kind kinds[] = {
    {"daily", "N", 1, "months days weekdays holidays",
     [](inputs& in, std::string_view first, std::string_view) { in.number = number(first); },
     [](const inputs& in) {
         return ZU_timer_new_daily(in.start.c_str(), in.end.c_str(), nullptr, in.number, in.months.c_str(),
                                   in.days.c_str(), in.weekdays.c_str(), in.holidays);
     }},
    {"interval", "HOURS:MINUTES:SECONDS", 1, "hours months days weekdays holidays",
     [](inputs& in, std::string_view first, std::string_view) {
         const auto parts = pieces(first, ':');
         if (parts.size() != 3)
             refuse(first, "is not HOURS:MINUTES:SECONDS");
         std::transform(parts.begin(), parts.end(), in.clock, number);
     },
     [](const inputs& in) {
         return ZU_timer_new_interval(in.start.c_str(), in.end.c_str(), nullptr, in.clock[0], in.clock[1],
                                      in.clock[2], in.hours.c_str(), in.months.c_str(), in.days.c_str(),
                                      in.weekdays.c_str(), in.holidays);
     }},
    {"weekly", "N WEEKDAYS", 2, "months days holidays", read_number_and_weekdays,
     [](const inputs& in) {
         return ZU_timer_new_weekly(in.start.c_str(), in.end.c_str(), nullptr, in.on.c_str(), in.number,
                                    in.months.c_str(), in.days.c_str(), in.holidays);
     }},
    {"monthly", "DAYS", 1, "months weekdays holidays",
     [](inputs& in, std::string_view first, std::string_view) { in.on = days(first); },
     [](const inputs& in) {
         return ZU_timer_new_monthly(in.start.c_str(), in.end.c_str(), nullptr, in.on.c_str(),
                                     in.months.c_str(), in.weekdays.c_str(), in.holidays);
     }},
    {"week-of-month", "N WEEKDAYS", 2, "months days holidays", read_number_and_weekdays,
     [](const inputs& in) {
         return ZU_timer_new_week_of_month(in.start.c_str(), in.end.c_str(), nullptr, in.number,
                                           in.on.c_str(), in.months.c_str(), in.days.c_str(), in.holidays);
     }},
    {"weekday-of-month", "N WEEKDAYS", 2, "months days holidays", read_number_and_weekdays,
     [](const inputs& in) {
         return ZU_timer_new_weekday_of_month(in.start.c_str(), in.end.c_str(), nullptr, in.number,
                                              in.on.c_str(), in.months.c_str(), in.days.c_str(), in.holidays);
     }},
};

// A date and a time. The library reads no further than that; here nothing may follow.
wide_text moment(std::string_view text, std::string_view what) {
    wide_text result = wide(text);
    if (words(text).size() > 2 || ZU_read_time_t(result.c_str()) == -1)
        refuse(text, "is not " + std::string(what) + ": YEAR-MONTH-DAY HOUR:MINUTE[:SECOND]");
    return result;
}

// "2024-01-01 09:00", or with an end: "2024-01-01 09:00 to 2030-12-31 23:59".
void read_span(inputs& in, std::string_view span) {
    const size_t to = span.find(" to ");
    in.start = moment(trimmed(span.substr(0, to)), "a start");
    if (to != span.npos)
        in.end = moment(trimmed(span.substr(to + 4)), "an end");
}

// Reads a list of holidays such as "12-25,01-01".
void read_holidays(ZU_timer_holidays* holidays, std::string_view text) {
    for (std::string_view item : pieces(text, ',')) {
        const auto parts = pieces(item, '-');
        int32_t month = 0, day = 0;
        if (parts.size() != 2 || !read_number(parts[0], month) || !read_number(parts[1], day) || month < 1
            || month > 12 || day < 1 || day > 31)
            refuse(item, "is not a holiday: MONTH-DAY");
        const ZU_holiday holiday{static_cast<uint32_t>(month), static_cast<uint32_t>(day)};
        ZU_timer_holidays_add(holidays, &holiday);
    }
}

// Pairs of words, such as "months 7,8 weekdays sat,sun".
void read_exclusions(inputs& in, const kind& of, std::string_view text) {
    const auto pairs = words(text), known = words(of.exclusions);
    for (size_t i = 0; i < pairs.size(); i += 2) {
        const std::string_view what = pairs[i];
        if (std::find(known.begin(), known.end(), what) == known.end())
            refuse(what, "is nothing that a " + std::string(of.name)
                             + " task can leave out: " + std::string(of.exclusions));
        if (i + 1 == pairs.size())
            refuse(what, "has no values");
        const std::string_view values = pairs[i + 1];
        if (what == "hours")
            in.hours += list(values, 0, 24);
        else if (what == "months")
            in.months += list(values, 1, 12);
        else if (what == "days")
            in.days += days(values);
        else if (what == "weekdays")
            in.weekdays += weekdays(values);
        else
            read_holidays(in.holidays, values);
    }
}

} // namespace

timer_ptr make_timer(std::string_view rule, std::string_view span, std::string_view exclusions,
                     calendar& holidays) {
    auto parts = words(rule);
    parts.resize(std::max<size_t>(parts.size(), 1));
    const auto* of = std::find_if(std::begin(kinds), std::end(kinds),
                                  [&](const kind& each) { return each.name == parts[0]; });
    if (of == std::end(kinds))
        refuse(parts[0], "is no kind of rule");
    if (parts.size() != of->words + 1)
        refuse(rule, "is not " + std::string(of->name) + ' ' + of->form);
    parts.resize(3);

    inputs in;
    in.holidays = holidays.record();
    of->read(in, parts[1], parts[2]);
    read_span(in, span);
    read_exclusions(in, *of, exclusions);
    timer_ptr timer(of->make(in));
    if (!timer)
        refuse(rule, "never comes");
    return timer;
}

void print_rules() {
    for (const kind& each : kinds)
        std::printf("  %-16s %-21s  without: %s\n", each.name.data(), each.form, each.exclusions.data());
}
