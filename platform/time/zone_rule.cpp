// A zone's rule: its text, and the changes that it makes in each year.
#include "platform/time/zone_rule.h"

#include <algorithm>

#include "platform/time/civil.h"

namespace platform {

namespace {

constexpr int32_t hour = 3600;

// Takes the parts of a rule from the front of its text. Text that does not fit leaves `failed` set.
class rule_reader {
public:
    explicit rule_reader(std::string_view text) : rest_(text) {}

    bool failed() const { return failed_; }
    bool at_end() const { return rest_.empty(); }

    bool next_is(char wanted) const { return !rest_.empty() && rest_[0] == wanted; }

    bool take(char wanted) {
        if (!next_is(wanted))
            return false;
        rest_.remove_prefix(1);
        return true;
    }

    void expect(char wanted) { failed_ = !take(wanted) || failed_; }

    int32_t number(int32_t low, int32_t high) {
        int32_t value = 0;
        size_t digits = 0;
        while (digits < rest_.size() && digits < 3 && rest_[digits] >= '0' && rest_[digits] <= '9')
            value = value * 10 + (rest_[digits++] - '0');
        rest_.remove_prefix(digits);
        failed_ = failed_ || digits == 0 || value < low || value > high;
        return value;
    }

    // Three letters or more, or such a name between < and >, which may hold digits and signs.
    void name() {
        const bool quoted = take('<');
        const auto is_letter = [&](char c) {
            return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z')
                   || (quoted && ((c >= '0' && c <= '9') || c == '+' || c == '-'));
        };
        const auto end = std::find_if_not(rest_.begin(), rest_.end(), is_letter);
        const size_t length = static_cast<size_t>(end - rest_.begin());
        failed_ = failed_ || length < 3;
        rest_.remove_prefix(length);
        if (quoted)
            expect('>');
    }

    // [+-]hours[:minutes[:seconds]], in seconds.
    int32_t time(int32_t most_hours) {
        const bool negative = take('-');
        if (!negative)
            take('+');
        int32_t seconds = number(0, most_hours) * hour;
        if (take(':')) {
            seconds += number(0, 59) * 60;
            if (take(':'))
                seconds += number(0, 59);
        }
        return negative ? -seconds : seconds;
    }

    yearly_change change() {
        constexpr int32_t two_o_clock = 2 * hour, a_week = 167;
        yearly_change read{};
        expect(',');
        expect('M');
        read.month = number(1, 12);
        expect('.');
        read.week = number(1, 5);
        expect('.');
        read.weekday = number(0, 6);
        read.seconds = take('/') ? time(a_week) : two_o_clock;
        return read;
    }

private:
    std::string_view rest_;
    bool failed_ = false;
};

// The moment of a change in a year. The rule tells it on a clock that is `offset` ahead of UTC.
int64_t instant_of(const yearly_change& change, int64_t year, int32_t offset) {
    const int64_t first_day = civil::days_of(year, change.month, 1);
    const int to_weekday = (change.weekday - civil::weekday_of(first_day) + 7) % 7;
    int64_t day = first_day + to_weekday + 7 * (change.week - 1);
    if (day >= first_day + civil::days_in_month(year, change.month))
        day -= 7; // the month has no fifth such weekday: the last one counts
    return day * civil::seconds_per_day + change.seconds - offset;
}

} // namespace

std::optional<zone_rule> read_rule(std::string_view text) {
    constexpr int32_t a_day = 24;
    rule_reader reader(text);
    zone_rule rule{};
    reader.name();
    rule.standard_offset = -reader.time(a_day);
    if (!reader.at_end() && !reader.failed()) {
        rule.has_daylight = true;
        reader.name();
        rule.daylight_offset = reader.next_is(',') ? rule.standard_offset + hour : -reader.time(a_day);
        rule.to_daylight = reader.change();
        rule.to_standard = reader.change();
    }
    if (reader.failed() || !reader.at_end())
        return std::nullopt;
    return rule;
}

// A year is one of UTC here, as it is to the C library.
void add_spans(const zone_rule& rule, int64_t begin, int64_t end, std::vector<zone_span>& spans) {
    if (!rule.has_daylight)
        return add_span({begin, end, rule.standard_offset, false}, spans);
    const int64_t first_year = civil::date_of(civil::floor_divide(begin, civil::seconds_per_day)).year;
    for (int64_t year = first_year;; ++year) {
        const int64_t year_begin = std::max(begin, civil::days_before_year(year) * civil::seconds_per_day);
        const int64_t year_end = std::min(end, civil::days_before_year(year + 1) * civil::seconds_per_day);
        if (year_begin >= end)
            return;
        const int64_t to_daylight = instant_of(rule.to_daylight, year, rule.standard_offset);
        const int64_t to_standard = instant_of(rule.to_standard, year, rule.daylight_offset);
        const bool ends_with_daylight = to_daylight > to_standard; // the southern half of the world
        const int64_t first = std::clamp(std::min(to_daylight, to_standard), year_begin, year_end);
        const int64_t second = std::clamp(std::max(to_daylight, to_standard), year_begin, year_end);
        const zone_span standard{0, 0, rule.standard_offset, false},
            daylight{0, 0, rule.daylight_offset, true};
        const auto add = [&](zone_span span, int64_t from, int64_t to) {
            span.begin = from;
            span.end = to;
            add_span(span, spans);
        };
        add(ends_with_daylight ? daylight : standard, year_begin, first);
        add(ends_with_daylight ? standard : daylight, first, second);
        add(ends_with_daylight ? daylight : standard, second, year_end);
    }
}

} // namespace platform
