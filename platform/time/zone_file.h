// Inside this folder: the spans of a zone, read once from its file or its rule.
#pragma once

#include <vector>

#include "platform/time/zone.h"

namespace platform {

inline constexpr char system_zone_file[] = "/etc/localtime";

// The spans cover the times that convert, and some days around them for their local times.
inline constexpr int64_t table_begin = -2 * zone_block;
inline constexpr int64_t table_end = (last_time / zone_block + 3) * zone_block;

// Gives the spans of the zone that a setting means; none where its meaning is left to the C library: leap seconds, a
// form of rule that is not read here, no such zone. False when the file cannot be read at present: for want of a
// descriptor or of memory.
bool read_spans(const zone_setting& setting, std::vector<zone_span>& spans);

} // namespace platform
