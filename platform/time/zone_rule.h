// Inside this folder: a zone's rule for all years, as TZ spells it, and the last line of a zone file.
#pragma once

#include <optional>
#include <string_view>
#include <vector>

#include "platform/time/zone.h"

namespace platform {

// The n-th weekday of a month, 5 for the last, and a time of that day on the clock before the change. That time
// may lie days away from the day.
struct yearly_change {
    int month;   // 1 to 12
    int week;    // 1 to 5
    int weekday; // Sunday = 0
    int32_t seconds;
};

struct zone_rule {
    int32_t standard_offset; // seconds east of UTC
    bool has_daylight;
    int32_t daylight_offset;
    yearly_change to_daylight, to_standard;
};

// Reads "CET-1" or "CET-1CEST,M3.5.0,M10.5.0/3". Nothing for any other form, which is left to the C library.
std::optional<zone_rule> read_rule(std::string_view text);

// Adds the spans that the rule gives from `begin` to `end`. The first is joined with the last one added, where it goes
// on.
void add_spans(const zone_rule& rule, int64_t begin, int64_t end, std::vector<zone_span>& spans);

// Adds a span that begins where the last one ends, or makes the last one longer. Nothing for an empty one.
inline void add_span(const zone_span& span, std::vector<zone_span>& spans) {
    if (span.begin >= span.end)
        return;
    if (!spans.empty() && spans.back().continues(span))
        spans.back().end = span.end;
    else
        spans.push_back(span);
}

} // namespace platform
