// A log record without output, to a hook, and to a file, beside the same bare calls and the standard streams.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>

#include <benchmark/benchmark.h>

#include "zu/zu.h"

extern "C" void* __libc_malloc(size_t bytes);
extern "C" void* __libc_realloc(void* block, size_t bytes);
extern "C" void* __libc_calloc(size_t count, size_t size);

namespace {
std::atomic<long> allocations{0};
}

// Counts every allocation of the process.
extern "C" void* malloc(size_t bytes) {
    allocations.fetch_add(1, std::memory_order_relaxed);
    return __libc_malloc(bytes);
}
extern "C" void* realloc(void* block, size_t bytes) {
    allocations.fetch_add(1, std::memory_order_relaxed);
    return __libc_realloc(block, bytes);
}
extern "C" void* calloc(size_t count, size_t size) {
    allocations.fetch_add(1, std::memory_order_relaxed);
    return __libc_calloc(count, size);
}

namespace {

const char* const file_path = "/tmp/zu-bench.log";
const char line[] =
    "|D:2026-03-07 14:05:09|P: 1234|T:  567|L:W|O:Windows| request 42 served in 17 ms for client\r\n";

struct logging {
    explicit logging(uint32_t outputs) {
        ZU_init();
        ZU_log_set_level(0x38);
        ZU_log_set_output(outputs);
        ZU_log_set_log_file_ex(ZU_W("C:\\tmp\\zu-bench.log"), 0, ZU_ENCODING_UTF8, UINT32_MAX, 3, nullptr,
                               nullptr);
        unlink(file_path);
    }
    ~logging() {
        ZU_shutdown();
        unlink(file_path);
    }
};

ZU_bool take(void*, const ZU_log_record*) {
    return 1;
}

uint32_t write_one() {
    return ZU_log_write(ZU_LOG_WARNING, ZU_W("request %d served in %d ms for %s"), 42, 17, ZU_W("client"));
}

void count_allocations(benchmark::State& state, long before) {
    state.counters["allocations"] =
        benchmark::Counter(static_cast<double>(allocations - before), benchmark::Counter::kAvgIterations);
}

void record_disabled(benchmark::State& state) {
    const logging log(ZU_LOG_OUT_FILE);
    for (auto _ : state)
        benchmark::DoNotOptimize(ZU_log_write(ZU_LOG_DEBUG, ZU_W("%d"), 1));
}
BENCHMARK(record_disabled);

void record_to_hook(benchmark::State& state) {
    const logging log(ZU_LOG_OUT_HOOK);
    ZU_log_add_hook(take, nullptr);
    write_one();
    const long before = allocations;
    for (auto _ : state)
        benchmark::DoNotOptimize(write_one());
    count_allocations(state, before);
}
BENCHMARK(record_to_hook);

void record_to_file(benchmark::State& state) {
    const logging log(ZU_LOG_OUT_FILE);
    write_one();
    const long before = allocations;
    for (auto _ : state)
        if (write_one() != ZU_LOG_OUT_FILE)
            state.SkipWithError("not written");
    count_allocations(state, before);
}
BENCHMARK(record_to_file);

// The line of write_one, formatted by hand.
int format_line(char (&out)[256]) {
    const time_t now = time(nullptr);
    tm local;
    localtime_r(&now, &local);
    return std::snprintf(
        out, sizeof out,
        "|D:%04d-%02d-%02d %02d:%02d:%02d|P:%5d|T:%5d|L:%s|O:%s| request %d served in %d ms for %s\r\n",
        local.tm_year + 1900, local.tm_mon + 1, local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec,
        getpid(), gettid(), "W", "Windows", 42, 17, "client");
}

// The steps of a record with nothing around them: format, status, open, claim, end, write, close.
void described_steps(benchmark::State& state) {
    unlink(file_path);
    for (auto _ : state) {
        char text[256];
        const int length = format_line(text);
        struct stat status;
        stat(file_path, &status);
        const int file = open(file_path, O_WRONLY | O_CREAT | O_CLOEXEC, 0666);
        struct flock lock {};
        lock.l_whence = SEEK_SET;
        lock.l_start = int64_t{1} << 62;
        lock.l_len = 2;
        lock.l_type = F_WRLCK;
        fcntl(file, F_OFD_SETLK, &lock);
        lseek(file, 0, SEEK_END);
        benchmark::DoNotOptimize(write(file, text, static_cast<size_t>(length)));
        close(file);
    }
    unlink(file_path);
}
BENCHMARK(described_steps);

// The choice of a program that rotates nothing and shares its file with nobody: it keeps the file open.
void stream_kept_open(benchmark::State& state) {
    unlink(file_path);
    FILE* file = std::fopen(file_path, "a");
    for (auto _ : state) {
        char text[256];
        std::fwrite(text, 1, static_cast<size_t>(format_line(text)), file);
        std::fflush(file);
    }
    std::fclose(file);
    unlink(file_path);
}
BENCHMARK(stream_kept_open);

// The least that can append a line without a stream.
void open_write_close(benchmark::State& state) {
    unlink(file_path);
    for (auto _ : state) {
        const int file = open(file_path, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0666);
        benchmark::DoNotOptimize(write(file, line, sizeof line - 1));
        close(file);
    }
    unlink(file_path);
}
BENCHMARK(open_write_close);

void stream_per_record(benchmark::State& state) {
    unlink(file_path);
    for (auto _ : state) {
        FILE* file = std::fopen(file_path, "a");
        std::fputs(line, file);
        std::fclose(file);
    }
    unlink(file_path);
}
BENCHMARK(stream_per_record);

} // namespace
