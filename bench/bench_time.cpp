// Calendar time beside the C library's. Each pair does the same work in the same run; the zone has daylight time.
#include <cstdlib>
#include <ctime>
#include <random>
#include <vector>

#include <benchmark/benchmark.h>

#include "zu/zu.h"

namespace {

constexpr ZU_time_t now = 1785578400; // a summer day of 2026

// Times within a day, as a log or a scheduler meets them, and times over all years.
std::vector<ZU_time_t> times(bool all_years) {
    std::mt19937 random(1);
    std::vector<ZU_time_t> values(4096);
    for (ZU_time_t& value : values)
        value = all_years ? static_cast<ZU_time_t>(random() & 0x7FFFFFFF)
                          : now + static_cast<ZU_time_t>(random() % 86400);
    return values;
}

void set_zone() {
    setenv("TZ", "Europe/Berlin", 1);
    tzset();
}

template <bool all_years>
void localtime_of_zu(benchmark::State& state) {
    set_zone();
    const std::vector<ZU_time_t> values = times(all_years);
    size_t i = 0;
    ZU_tm local;
    for (auto _ : state) {
        ZU_localtime(values[i++ % values.size()], &local);
        benchmark::DoNotOptimize(local);
    }
}

template <bool all_years>
void localtime_of_c(benchmark::State& state) {
    set_zone();
    const std::vector<ZU_time_t> values = times(all_years);
    size_t i = 0;
    tm local;
    for (auto _ : state) {
        const time_t value = values[i++ % values.size()];
        tzset(); // sees a changed zone
        localtime_r(&value, &local);
        benchmark::DoNotOptimize(local);
    }
}

template <bool all_years>
void mktime_of_zu(benchmark::State& state) {
    set_zone();
    std::vector<ZU_tm> fields;
    for (ZU_time_t value : times(all_years)) {
        ZU_tm local;
        ZU_localtime(value, &local);
        fields.push_back(local);
    }
    size_t i = 0;
    for (auto _ : state) {
        ZU_tm local = fields[i++ % fields.size()];
        local.tm_isdst = -1;
        benchmark::DoNotOptimize(ZU_mktime(&local));
    }
}

template <bool all_years>
void mktime_of_c(benchmark::State& state) {
    set_zone();
    std::vector<tm> fields;
    for (ZU_time_t value : times(all_years)) {
        const time_t wide = value;
        tm local;
        localtime_r(&wide, &local);
        fields.push_back(local);
    }
    size_t i = 0;
    for (auto _ : state) {
        tm local = fields[i++ % fields.size()];
        local.tm_isdst = -1;
        benchmark::DoNotOptimize(mktime(&local));
    }
}

void time_of_zu(benchmark::State& state) {
    set_zone();
    for (auto _ : state)
        benchmark::DoNotOptimize(ZU_time());
}

void time_of_c(benchmark::State& state) {
    for (auto _ : state) {
        timespec now_exact;
        clock_gettime(CLOCK_REALTIME, &now_exact);
        benchmark::DoNotOptimize(now_exact);
    }
}

void read_by_zu(benchmark::State& state) {
    set_zone();
    for (auto _ : state)
        benchmark::DoNotOptimize(ZU_read_time_t(ZU_W("2026-08-01 10:50:42")));
}

void read_by_c(benchmark::State& state) {
    set_zone();
    for (auto _ : state) {
        tm local{};
        strptime("2026-08-01 10:50:42", "%Y-%m-%d %H:%M:%S", &local);
        local.tm_isdst = -1;
        benchmark::DoNotOptimize(mktime(&local));
    }
}

void write_by_zu(benchmark::State& state) {
    set_zone();
    ZU_wchar buffer[20];
    for (auto _ : state) {
        ZU_write_time_t(now, buffer);
        benchmark::DoNotOptimize(buffer);
    }
}

void write_by_c(benchmark::State& state) {
    set_zone();
    char buffer[20];
    for (auto _ : state) {
        const time_t value = now;
        tm local;
        tzset();
        localtime_r(&value, &local);
        strftime(buffer, sizeof buffer, "%Y-%m-%d %H:%M:%S", &local);
        benchmark::DoNotOptimize(buffer);
    }
}

// Both ways in the system's zone.
void both_ways_of_zu(benchmark::State& state) {
    unsetenv("TZ");
    ZU_time_t time = now;
    ZU_tm local;
    for (auto _ : state) {
        ZU_localtime(++time, &local);
        local.tm_isdst = -1;
        benchmark::DoNotOptimize(ZU_mktime(&local));
    }
}

void both_ways_of_c(benchmark::State& state) {
    unsetenv("TZ");
    time_t time = now;
    tm local;
    for (auto _ : state) {
        ++time;
        tzset();
        localtime_r(&time, &local);
        local.tm_isdst = -1;
        benchmark::DoNotOptimize(mktime(&local));
    }
}

// A zone that the process meets for the first time, and a thousand times of thirty years in it.
void thousand_new_times(benchmark::State& state) {
    std::mt19937 random(1);
    std::vector<ZU_time_t> values(1000);
    for (ZU_time_t& value : values)
        value = static_cast<ZU_time_t>(now - random() % (30u * 365 * 86400));
    const char* const zones[] = {"Europe/Berlin", "Europe/Paris", "Europe/Rome", "Europe/Madrid",
                                 "Europe/Vienna"};
    size_t zone = 0;
    ZU_tm local;
    for (auto _ : state) {
        setenv("TZ", zones[zone++ % 5], 1); // five zones, one more than a process remembers
        for (const ZU_time_t value : values) {
            ZU_localtime(value, &local);
            benchmark::DoNotOptimize(local);
        }
    }
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * values.size()));
}

// The first local time of a day in a thread, and the first one in a zone.
void first_local_time(benchmark::State& state) {
    ZU_tm local;
    bool one = false;
    for (auto _ : state) {
        setenv("TZ", (one = !one) ? "Europe/Berlin" : "Europe/Paris", 1);
        ZU_localtime(now, &local);
        benchmark::DoNotOptimize(local);
    }
}

BENCHMARK(localtime_of_zu<false>)->Name("ZU_localtime/one_day");
BENCHMARK(localtime_of_c<false>)->Name("localtime_r/one_day");
BENCHMARK(localtime_of_zu<true>)->Name("ZU_localtime/all_years");
BENCHMARK(localtime_of_c<true>)->Name("localtime_r/all_years");
BENCHMARK(mktime_of_zu<false>)->Name("ZU_mktime/one_day");
BENCHMARK(mktime_of_c<false>)->Name("mktime/one_day");
BENCHMARK(mktime_of_zu<true>)->Name("ZU_mktime/all_years");
BENCHMARK(mktime_of_c<true>)->Name("mktime/all_years");
BENCHMARK(time_of_zu)->Name("ZU_time");
BENCHMARK(time_of_c)->Name("clock_gettime");
BENCHMARK(read_by_zu)->Name("ZU_read_time_t");
BENCHMARK(read_by_c)->Name("strptime+mktime");
BENCHMARK(write_by_zu)->Name("ZU_write_time_t");
BENCHMARK(write_by_c)->Name("localtime_r+strftime");
BENCHMARK(both_ways_of_zu)->Name("ZU_localtime+ZU_mktime/no_TZ");
BENCHMARK(both_ways_of_c)->Name("localtime_r+mktime/no_TZ");
BENCHMARK(thousand_new_times)->Name("ZU_localtime/thousand_new")->Unit(benchmark::kMicrosecond);
BENCHMARK(first_local_time)->Name("ZU_localtime/new_zone");

} // namespace
