// Inside this folder: the local zone, as spans of time in which its offset is constant.
#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "platform/api/time.h"
#include "platform/core/thread_own.h"

namespace platform {

inline constexpr int64_t last_time = 0x7FFFFFFF; // 2038-01-19 03:14:07 UTC

// The C library is asked for this much of a zone at a time, in seconds.
inline constexpr int64_t zone_block = int64_t{72} * 3600;

struct zone_span {
    int64_t begin;
    int64_t end;    // not included
    int32_t offset; // seconds east of UTC
    bool daylight;

    bool contains(int64_t time) const { return begin <= time && time < end; }
    bool continues(const zone_span& next) const {
        return end == next.begin && offset == next.offset && daylight == next.daylight;
    }
};

// The setting of a zone: the text of TZ, or without one the identity of the system's file. Equal settings are one zone.
struct zone_setting {
    bool from_system = false;
    std::string text;
    uint64_t file[5] = {}; // device, inode, size and both parts of the time of the last change

    static zone_setting now();
    bool operator==(const zone_setting&) const = default;
};

// One zone, as one thread knows it: the spans of its file, read once in a process. Of a zone without a file that can be
// read here, the C library is asked for a block of days when a time in it is wanted for the first time. After that, both
// ways are arithmetic.
class zone {
public:
    // The zone that was set at the first call after expect_change. The calling thread's own, and valid until the next
    // such call.
    static zone& of_thread() {
        zone* known = thread_own<zone>::known();
        return known && known->is_checked_ ? *known : checked(known);
    }

    // Has the setting looked at when the calling thread uses its zone the next time. It is not looked at here, since many
    // callers of _tzset do not use the zone afterwards.
    static void expect_change() {
        if (zone* known = thread_own<zone>::known())
            known->is_checked_ = false;
    }

    explicit zone(zone_setting setting);

    // A number that no other zone object of this process has. Never 0.
    uint32_t number() const { return number_; }

    // The time that was broken down last. The next one is mostly the same or of the same day, and breaking a day down
    // costs more than the rest.
    struct shown_time {
        int32_t time = -1;
        int64_t days = 0; // the day whose fields `local` holds; at first a Thursday, 1970-01-01
        tm local{0, 0, 0, 1, 0, 70, 4, 0, 0};
    };
    shown_time& latest_shown() { return latest_shown_; }

    // The span around a time. The reference is valid until the next call.
    const zone_span& at(int64_t time) {
        const zone_span& span = spans_[latest_];
        return span.contains(time) ? span : find(time);
    }

    // The time of a local time, given as seconds since 1970-01-01 00:00:00 on the local clock; a daylight flag below
    // 0 lets the zone decide.
    int64_t time_of_local(int64_t local, int daylight_flag);

private:
    class question;

    // A time range without any span of this daylight flag, and the offsets of the nearest such spans on both sides.
    struct absence {
        int64_t begin, end;
        bool known_before, known_after;
        int32_t offset_before, offset_after;
    };

    // The index has an entry for each 2^24 seconds, 194 days. The first and the last entry stand for all earlier and
    // later times as well.
    static constexpr int index_shift = 24;
    static constexpr int64_t index_size = (last_time >> index_shift) + 1;

    static size_t entry_of(int64_t time) {
        return static_cast<size_t>(std::clamp(time >> index_shift, int64_t{0}, index_size - 1));
    }

    static zone& checked(zone* known);
    void read();
    bool is_set_now();
    bool is_variable_unchanged() const;
    const char* find_variable();
    const zone_span& find(int64_t time);
    void fill(int64_t block_begin);
    void add(const zone_span& span);
    void make_index();
    int64_t time_near_change(int64_t local, int daylight_flag);
    int64_t time_with_other_flag(int64_t local, const zone_span& span, bool daylight);
    const absence& absence_around(int64_t time, bool daylight);
    absence look_around(int64_t time, bool daylight);
    int64_t nearest_day(int64_t time, int64_t step, bool daylight);

    shown_time latest_shown_;
    const uint32_t number_;
    const zone_setting setting_;
    const std::string variable_;   // as it stands in the environment; without meaning for the system's zone
    char** environment_ = nullptr; // TZ was found in this one, at this index
    size_t variable_index_ = 0;
    bool is_checked_ = true;       // false: a change is expected
    bool usable_ = true;           // false: it serves the present call and is then forgotten
    bool is_read_ = false;         // its file or its rule was read, so the C library need not be asked
    int64_t next_check_ms_ = 0;    // when to look at the system's file again
    std::vector<zone_span> spans_; // ascending, not overlapping, with holes where nothing was asked yet
    // For each entry, the first span that may hold a time of its 194 days.
    std::array<uint16_t, index_size> index_{};
    size_t latest_ = 0;                // the span that was asked for last
    std::vector<absence> absences_[2]; // by daylight flag; ascending
};

} // namespace platform
