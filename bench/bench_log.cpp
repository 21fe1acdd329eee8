// A log record: to nobody, to a hook, and to a file beside the same bare calls and the standard streams.
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
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

// What a record costs the host, with the line ready: status and attributes, open, the sharing claim, a look that the
// name still leads to that file, the size, the write, the claim given back, close.
void bare_calls(benchmark::State& state) {
    unlink(file_path);
    for (auto _ : state) {
        struct statx found;
        statx(AT_FDCWD, file_path, 0, STATX_ALL, &found);
        char names[512];
        listxattr(file_path, names, sizeof names);
        const int file = open(file_path, O_RDWR | O_CREAT | O_CLOEXEC, 0666);
        struct flock lock {};
        lock.l_whence = SEEK_SET;
        lock.l_start = int64_t{1} << 62;
        lock.l_len = 2;
        lock.l_type = F_WRLCK;
        fcntl(file, F_OFD_SETLK, &lock);
        struct stat status, named;
        fstat(file, &status);
        stat(file_path, &named);
        rlimit limit;
        getrlimit(RLIMIT_FSIZE, &limit);
        fstat(file, &status);
        benchmark::DoNotOptimize(pwrite(file, line, sizeof line - 1, status.st_size));
        lock.l_type = F_UNLCK;
        fcntl(file, F_OFD_SETLK, &lock);
        close(file);
    }
    unlink(file_path);
}
BENCHMARK(bare_calls);

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
