// Due tests, a scan, and the search for the next firing, beside the same work done by hand with the C library's
// localtime_r and mktime.
#include <cstdlib>
#include <ctime>
#include <vector>

#include <benchmark/benchmark.h>

#include "zu/zu.h"

namespace {

constexpr ZU_time_t noon = 1338984000; // 2012-06-06 12:00:00 UTC, a Wednesday

using maker = ZU_timer* (*)();

// None of them is due at noon, and all must look at the calendar to find out.
ZU_timer* daily() {
    return ZU_timer_new_daily(u"2012-01-02 08:00", u"", u"", 1, u"", u"", u"6,7", nullptr);
}
ZU_timer* interval() {
    return ZU_timer_new_interval(u"2012-01-02 08:07", u"", u"", 0, 45, 0, u"3", u"", u"", u"", nullptr);
}
ZU_timer* weekly() {
    return ZU_timer_new_weekly(u"2012-01-02 08:00", u"", u"", u"1,3,5", 2, u"", u"", nullptr);
}
ZU_timer* monthly() {
    return ZU_timer_new_monthly(u"2012-01-02 08:00", u"", u"", u"1,15,-1", u"", u"", nullptr);
}
ZU_timer* week_of_month() {
    return ZU_timer_new_week_of_month(u"2012-01-02 08:00", u"", u"", -1, u"1,3", u"", u"", nullptr);
}
ZU_timer* weekday_of_month() {
    return ZU_timer_new_weekday_of_month(u"2012-01-02 08:00", u"", u"", 2, u"3,5", u"", u"", nullptr);
}
constexpr maker kinds[] = {daily, interval, weekly, monthly, week_of_month, weekday_of_month};

// The way by hand: is it the start's time of day on a listed weekday, and not longer than a minute past it?
struct by_hand {
    std::tm start;
    unsigned weekdays;
    std::time_t last;

    bool due(std::time_t now) {
        std::tm local, begin = start;
        if (mktime(&begin) > now || !localtime_r(&now, &local) || !(weekdays >> local.tm_wday & 1))
            return false;
        local.tm_hour = start.tm_hour;
        local.tm_min = start.tm_min;
        local.tm_sec = start.tm_sec;
        local.tm_isdst = -1;
        const std::time_t scheduled = mktime(&local);
        if (scheduled > now || now - scheduled > 60 || scheduled <= last)
            return false;
        last = scheduled;
        return true;
    }
};

by_hand weekday_timer() {
    by_hand timer{};
    timer.start.tm_year = 112;
    timer.start.tm_mday = 2;
    timer.start.tm_hour = 8;
    timer.start.tm_isdst = -1;
    timer.weekdays = 0x2A;
    return timer;
}

void use_berlin() {
    setenv("TZ", "Europe/Berlin", 1);
    tzset();
}

void not_due(benchmark::State& state, maker make) {
    use_berlin();
    ZU_timer* timer = make();
    ZU_time_t now = noon;
    for (auto _ : state)
        benchmark::DoNotOptimize(timer->ops->due(timer, noon - 100000, now++));
    timer->ops->destroy(timer);
}
void not_due_by_hand(benchmark::State& state) {
    use_berlin();
    by_hand timer = weekday_timer();
    std::time_t now = noon;
    for (auto _ : state)
        benchmark::DoNotOptimize(timer.due(now++));
}

// The work of a timer set's scan over entries of all kinds: reading the time and a due test for each.
void scan(benchmark::State& state) {
    use_berlin();
    std::vector<ZU_timer*> timers;
    for (int i = 0; i < state.range(0); ++i)
        timers.push_back(kinds[i % 6]());
    for (auto _ : state) {
        for (ZU_timer* timer : timers)
            benchmark::DoNotOptimize(timer->ops->due(timer, noon - 100000, noon + ZU_time() % 100));
    }
    for (ZU_timer* timer : timers)
        timer->ops->destroy(timer);
}
void scan_by_hand(benchmark::State& state) {
    use_berlin();
    std::vector<by_hand> timers(static_cast<size_t>(state.range(0)), weekday_timer());
    for (auto _ : state) {
        for (by_hand& timer : timers)
            benchmark::DoNotOptimize(timer.due(noon + std::time(nullptr) % 100));
    }
}

// The least that a scan can do: the fields of the present local time against those of a schedule.
void scan_bare(benchmark::State& state) {
    use_berlin();
    std::vector<by_hand> timers(static_cast<size_t>(state.range(0)), weekday_timer());
    for (auto _ : state) {
        const std::time_t now = noon + std::time(nullptr) % 100;
        std::tm local;
        localtime_r(&now, &local);
        for (const by_hand& timer : timers)
            benchmark::DoNotOptimize((timer.weekdays >> local.tm_wday & 1)
                                     && timer.start.tm_hour == local.tm_hour
                                     && timer.start.tm_min == local.tm_min);
    }
}

// Ten years of days, none of which fits: the 30th in February. And the seconds of half a year, for an interval.
void next_firing(benchmark::State& state, ZU_timer* (*make)()) {
    use_berlin();
    ZU_timer* timer = make();
    for (auto _ : state)
        benchmark::DoNotOptimize(timer->ops->next(timer));
    timer->ops->destroy(timer);
}
ZU_timer* never() {
    return ZU_timer_new_monthly(u"2012-01-02 08:00", u"", u"", u"30", u"1,3,4,5,6,7,8,9,10,11,12", u"",
                                nullptr);
}
ZU_timer* never_by_seconds() {
    return ZU_timer_new_interval(u"2012-01-02 08:00", u"", u"", 0, 0, 1, u"", u"",
                                 u"1,2,3,4,5,6,7,8,9,10,11,12,13,14,15", u"1,2,3,4,5,6", nullptr);
}
void next_firing_by_hand(benchmark::State& state) {
    use_berlin();
    for (auto _ : state) {
        by_hand timer = weekday_timer();
        timer.weekdays = 0x80; // no day at all
        const std::time_t now = std::time(nullptr);
        for (int i = 0; i < 3651; ++i)
            benchmark::DoNotOptimize(timer.due(now + i * 86400));
    }
}

BENCHMARK_CAPTURE(not_due, daily, daily);
BENCHMARK_CAPTURE(not_due, interval, interval);
BENCHMARK_CAPTURE(not_due, weekly, weekly);
BENCHMARK_CAPTURE(not_due, monthly, monthly);
BENCHMARK_CAPTURE(not_due, week_of_month, week_of_month);
BENCHMARK_CAPTURE(not_due, weekday_of_month, weekday_of_month);
BENCHMARK(not_due_by_hand);
BENCHMARK(scan)->Arg(1000)->Arg(100000)->Unit(benchmark::kMillisecond);
BENCHMARK(scan_by_hand)->Arg(1000)->Arg(100000)->Unit(benchmark::kMillisecond);
BENCHMARK(scan_bare)->Arg(1000)->Arg(100000)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(next_firing, ten_years_of_days, never)->Unit(benchmark::kMicrosecond);
BENCHMARK(next_firing_by_hand)->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(next_firing, seconds, never_by_seconds)->Unit(benchmark::kMicrosecond);

} // namespace
