// Holiday calendar: a small set of days of the year, in the order in which they were added.
#include "zu/zu_support.h"

namespace {

constexpr uint32_t growth = 8;

// The position of a day, counted from 1; 0 if it is not there. The lock is held.
uint32_t search(const ZU_timer_holidays& holidays, const ZU_holiday& wanted) {
    for (uint32_t i = 0; i < holidays.count; ++i) {
        if (holidays.entries[i].month == wanted.month && holidays.entries[i].day == wanted.day)
            return i + 1;
    }
    return 0;
}

} // namespace

ZU_bool ZU_timer_holidays_init(ZU_timer_holidays* holidays) {
    *holidays = {};
    return ZU_lock_thread_init(&holidays->lock);
}

void ZU_timer_holidays_destroy(ZU_timer_holidays* holidays) {
    if (!holidays)
        return;
    ZU_free(holidays->entries);
    ZU_lock_thread_destroy(&holidays->lock);
    *holidays = {};
}

ZU_bool ZU_timer_holidays_add(ZU_timer_holidays* holidays, const ZU_holiday* holiday) {
    const zu::held lock(holidays->lock);
    if (search(*holidays, *holiday))
        return 0;
    if (holidays->count + 1 > holidays->capacity) {
        holidays->capacity += growth;
        const uint32_t bytes = holidays->capacity * static_cast<uint32_t>(sizeof(ZU_holiday));
        holidays->entries = static_cast<ZU_holiday*>(ZU_realloc(holidays->entries, bytes));
    }
    holidays->entries[holidays->count++] = *holiday;
    return 1;
}

ZU_bool ZU_timer_holidays_del(ZU_timer_holidays* holidays, const ZU_holiday* holiday) {
    const zu::held lock(holidays->lock);
    const uint32_t position = search(*holidays, *holiday);
    if (!position)
        return 0;
    ZU_holiday* found = holidays->entries + position - 1;
    std::memmove(found, found + 1, (holidays->count - position) * sizeof(ZU_holiday));
    --holidays->count;
    return 1;
}

ZU_bool ZU_timer_holidays_find(ZU_timer_holidays* holidays, const ZU_holiday* holiday) {
    const zu::held lock(holidays->lock);
    return search(*holidays, *holiday) != 0;
}

uint32_t ZU_timer_holidays_get_all(ZU_timer_holidays* holidays, ZU_holiday** entries) {
    const zu::held lock(holidays->lock);
    *entries = nullptr;
    if (!holidays->count)
        return 0;
    *entries = zu::allocate<ZU_holiday>(holidays->count);
    std::memcpy(*entries, holidays->entries, holidays->count * sizeof(ZU_holiday));
    return holidays->count;
}

int32_t ZU_timer_holidays_clear(ZU_timer_holidays* holidays) {
    const zu::held lock(holidays->lock);
    const uint32_t before = holidays->count;
    holidays->count = 0;
    return static_cast<int32_t>(before);
}

int32_t ZU_timer_holidays_count(ZU_timer_holidays* holidays) {
    const zu::held lock(holidays->lock);
    return static_cast<int32_t>(holidays->count);
}
