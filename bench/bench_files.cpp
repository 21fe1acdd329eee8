// Files: each function beside the bare system calls and what a C++ program would use instead. All in one directory
// below the temporary folder, warm in the page cache.
#include <dirent.h>
#include <fcntl.h>
#include <fnmatch.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include "zu/zu.h"

namespace {

namespace fs = std::filesystem;

constexpr size_t block_size = 4096, block_count = 1024;
constexpr int line_count = 20000, most_entries = 10000;

// The directory, made at the first use and removed at the end. Without a host directory, drive C: is /.
const std::string& place() {
    static const struct directory {
        std::string path = (fs::temp_directory_path() / "zu-bench-XXXXXX").string();
        directory() {
            setenv("ZU_HOST", "/nonexistent", 1);
            if (!mkdtemp(path.data()))
                std::abort();
        }
        ~directory() { fs::remove_all(path); }
    } made;
    return made.path;
}

std::string host_path(const std::string& name) {
    return place() + "/" + name;
}

std::u16string zu_path(const std::string& name) {
    std::u16string path = u"C:";
    for (char c : host_path(name))
        path += c == '/' ? u'\\' : static_cast<char16_t>(c);
    return path;
}

const std::string& file_of_blocks() {
    static const std::string name = [] {
        std::ofstream(host_path("blocks")) << std::string(block_size * block_count, 'x');
        return std::string("blocks");
    }();
    return name;
}

const std::string& file_of_lines() {
    static const std::string name = [] {
        std::ofstream out(host_path("lines"));
        for (int i = 0; i < line_count; ++i)
            out << std::string(static_cast<size_t>(20 + i % 80), 'x') << '\n';
        return std::string("lines");
    }();
    return name;
}

std::string directory_of_entries(int64_t count) {
    const std::string name = "entries-" + std::to_string(count);
    if (fs::create_directory(host_path(name))) {
        for (int64_t i = 0; i < count; ++i)
            std::ofstream(host_path(name + "/some-name-" + std::to_string(i) + ".txt")) << i;
    }
    return name;
}

struct zu_file {
    ZU_file* file;
    zu_file(const std::string& name, uint32_t flags)
        : file(ZU_open_file(zu_path(name).c_str(), flags, nullptr)) {
        if (!file)
            std::abort();
    }
    ~zu_file() { ZU_close_file(file); }
};

struct bare_file {
    int descriptor;
    bare_file(const std::string& name, int flags)
        : descriptor(open(host_path(name).c_str(), flags | O_CLOEXEC, 0666)) {}
    ~bare_file() { close(descriptor); }
};

constexpr uint32_t shared_reader =
    ZU_FILE_READ | ZU_FILE_OPEN_EXISTING | ZU_FILE_SHARE_READ | ZU_FILE_SHARE_WRITE;
constexpr uint32_t sole_reader = ZU_FILE_READ | ZU_FILE_OPEN_EXISTING | ZU_FILE_SHARE_READ;

// ---- Blocks of 4 KiB, one after the other ---------------------------------------------------------------------------

void count_blocks(benchmark::State& state) {
    state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(block_count));
}

void read_zu(benchmark::State& state, uint32_t flags) {
    const zu_file f(file_of_blocks(), flags);
    char block[block_size];
    for (auto _ : state) {
        ZU_seek_file(f.file, 0, nullptr, ZU_SEEK_BEGIN);
        for (uint32_t done = 1; done != 0;) {
            ZU_read_file(f.file, block, block_size, &done);
            benchmark::DoNotOptimize(block);
        }
    }
    count_blocks(state);
}
BENCHMARK_CAPTURE(read_zu, sharing_with_writers, shared_reader);
BENCHMARK_CAPTURE(read_zu, denying_writers, sole_reader);

void read_bare(benchmark::State& state) {
    const bare_file f(file_of_blocks(), O_RDONLY);
    char block[block_size];
    for (auto _ : state) {
        lseek(f.descriptor, 0, SEEK_SET);
        while (read(f.descriptor, block, block_size) > 0)
            benchmark::DoNotOptimize(block);
    }
    count_blocks(state);
}
BENCHMARK(read_bare);

void read_ifstream(benchmark::State& state) {
    std::ifstream f(host_path(file_of_blocks()), std::ios::binary);
    char block[block_size];
    for (auto _ : state) {
        f.clear();
        f.seekg(0);
        while (f.read(block, block_size))
            benchmark::DoNotOptimize(block);
    }
    count_blocks(state);
}
BENCHMARK(read_ifstream);

void write_zu(benchmark::State& state) {
    const zu_file f("written", ZU_FILE_WRITE | ZU_FILE_OPEN_ALWAYS | ZU_FILE_SHARE_READ);
    const std::string block(block_size, 'x');
    for (auto _ : state) {
        ZU_seek_file(f.file, 0, nullptr, ZU_SEEK_BEGIN);
        for (size_t i = 0; i < block_count; ++i) {
            uint32_t done;
            ZU_write_file(f.file, block.data(), block_size, &done);
        }
    }
    count_blocks(state);
}
BENCHMARK(write_zu);

void write_bare(benchmark::State& state) {
    const bare_file f("written", O_WRONLY | O_CREAT);
    const std::string block(block_size, 'x');
    for (auto _ : state) {
        lseek(f.descriptor, 0, SEEK_SET);
        for (size_t i = 0; i < block_count; ++i) {
            if (write(f.descriptor, block.data(), block_size) < 0)
                std::abort();
        }
    }
    count_blocks(state);
}
BENCHMARK(write_bare);

void append_zu(benchmark::State& state) {
    const zu_file f("appended", ZU_FILE_WRITE | ZU_FILE_CREATE_ALWAYS | ZU_FILE_SHARE_READ);
    const std::string block(block_size, 'x');
    for (auto _ : state) {
        ZU_seek_file(f.file, 0, nullptr, ZU_SEEK_BEGIN);
        ZU_set_end_of_file(f.file);
        for (size_t i = 0; i < block_count; ++i) {
            uint32_t done;
            ZU_write_file(f.file, block.data(), block_size, &done);
        }
    }
    count_blocks(state);
}
BENCHMARK(append_zu);

void append_bare(benchmark::State& state) {
    const bare_file f("appended", O_WRONLY | O_CREAT);
    const std::string block(block_size, 'x');
    for (auto _ : state) {
        lseek(f.descriptor, 0, SEEK_SET);
        if (ftruncate(f.descriptor, 0) != 0)
            std::abort();
        for (size_t i = 0; i < block_count; ++i) {
            if (write(f.descriptor, block.data(), block_size) < 0)
                std::abort();
        }
    }
    count_blocks(state);
}
BENCHMARK(append_bare);

// ---- Open and close -------------------------------------------------------------------------------------------------

void open_zu(benchmark::State& state) {
    const std::u16string path = zu_path(file_of_blocks());
    for (auto _ : state)
        ZU_close_file(ZU_open_file(path.c_str(), static_cast<uint32_t>(state.range(0)), nullptr));
}
BENCHMARK(open_zu)->Arg(shared_reader)->Arg(sole_reader)->Arg(0x92);

void open_bare(benchmark::State& state) {
    const std::string path = host_path(file_of_blocks());
    for (auto _ : state)
        close(open(path.c_str(), O_RDWR | O_CLOEXEC));
}
BENCHMARK(open_bare);

// The described steps: the opened file's status is read, and the share mode takes a lock.
void open_bare_with_status_and_lock(benchmark::State& state) {
    const std::string path = host_path(file_of_blocks());
    for (auto _ : state) {
        const int file = open(path.c_str(), O_RDWR | O_CLOEXEC);
        struct stat status;
        struct flock lock = {};
        lock.l_type = F_RDLCK;
        lock.l_start = INT64_MAX - 1;
        lock.l_len = 1;
        if (fstat(file, &status) != 0 || fcntl(file, F_OFD_SETLK, &lock) != 0)
            std::abort();
        close(file);
    }
}
BENCHMARK(open_bare_with_status_and_lock);

// The file has been open elsewhere for a while.
void open_refused_zu(benchmark::State& state) {
    const zu_file holder(file_of_blocks(), 0x92);
    const std::u16string path = zu_path(file_of_blocks());
    for (auto _ : state) {
        if (ZU_open_file(path.c_str(), 0x92, nullptr))
            std::abort();
    }
}
BENCHMARK(open_refused_zu);

void open_ifstream(benchmark::State& state) {
    const std::string path = host_path(file_of_blocks());
    for (auto _ : state)
        benchmark::DoNotOptimize(std::ifstream(path));
}
BENCHMARK(open_ifstream);

// ---- Status ---------------------------------------------------------------------------------------------------------

void stat_zu(benchmark::State& state) {
    const std::u16string path = zu_path(file_of_blocks());
    ZU_stat status;
    for (auto _ : state)
        benchmark::DoNotOptimize(ZU_stat64(path.c_str(), &status));
}
BENCHMARK(stat_zu);

void stat_bare(benchmark::State& state) {
    const std::string path = host_path(file_of_blocks());
    struct stat status;
    for (auto _ : state)
        benchmark::DoNotOptimize(stat(path.c_str(), &status));
}
BENCHMARK(stat_bare);

// A name that the directory of 10,000 entries has in no spelling.
void missing_zu(benchmark::State& state) {
    const std::u16string path = zu_path(directory_of_entries(most_entries) + "/missing");
    for (auto _ : state)
        benchmark::DoNotOptimize(ZU_path_attributes(path.c_str()));
}
BENCHMARK(missing_zu);

void missing_bare(benchmark::State& state) {
    const std::string path = host_path(directory_of_entries(most_entries) + "/missing");
    struct stat status;
    for (auto _ : state)
        benchmark::DoNotOptimize(stat(path.c_str(), &status));
}
BENCHMARK(missing_bare);

// The record also holds the attributes, which take a call of their own.
void stat_bare_with_attributes(benchmark::State& state) {
    const std::string path = host_path(file_of_blocks());
    struct stat status;
    char names[512];
    for (auto _ : state) {
        benchmark::DoNotOptimize(stat(path.c_str(), &status));
        benchmark::DoNotOptimize(listxattr(path.c_str(), names, sizeof names));
    }
}
BENCHMARK(stat_bare_with_attributes);

void stat_std_filesystem(benchmark::State& state) {
    const fs::path path = host_path(file_of_blocks());
    for (auto _ : state) {
        benchmark::DoNotOptimize(fs::status(path));
        benchmark::DoNotOptimize(fs::file_size(path));
        benchmark::DoNotOptimize(fs::last_write_time(path));
    }
}
BENCHMARK(stat_std_filesystem);

// ---- Entries with sizes and times --------------------------------------------------------------------------------

void enumerate_zu(benchmark::State& state) {
    const std::u16string path = zu_path(directory_of_entries(state.range(0)));
    for (auto _ : state) {
        uint64_t bytes = 0;
        ZU_enum_dir* walk =
            ZU_enum_dir_begin(path.c_str(), ZU_ENUM_DIR_SIZE | ZU_ENUM_DIR_TIMES | ZU_ENUM_DIR_SKIP_DOTS);
        do {
            const ZU_enum_dir_entry* entry = ZU_enum_dir_get(walk);
            bytes += entry->size + static_cast<uint64_t>(entry->modification_time);
        } while (ZU_enum_dir_next(walk));
        ZU_enum_dir_end(walk);
        benchmark::DoNotOptimize(bytes);
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(enumerate_zu)->Arg(100)->Arg(most_entries)->Unit(benchmark::kMillisecond);

void enumerate_bare(benchmark::State& state, bool with_attributes) {
    const std::string path = host_path(directory_of_entries(state.range(0)));
    std::string entry_path;
    char names[512];
    for (auto _ : state) {
        uint64_t bytes = 0;
        DIR* directory = opendir(path.c_str());
        while (const dirent* entry = readdir(directory)) {
            struct statx status;
            statx(dirfd(directory), entry->d_name, AT_SYMLINK_NOFOLLOW, STATX_BASIC_STATS | STATX_BTIME,
                  &status);
            bytes += status.stx_size + static_cast<uint64_t>(status.stx_mtime.tv_sec);
            if (with_attributes) {
                entry_path.assign(path).append("/").append(entry->d_name);
                benchmark::DoNotOptimize(listxattr(entry_path.c_str(), names, sizeof names));
            }
        }
        closedir(directory);
        benchmark::DoNotOptimize(bytes);
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK_CAPTURE(enumerate_bare, status, false)->Arg(100)->Arg(most_entries)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(enumerate_bare, status_and_attributes, true)
    ->Arg(most_entries)
    ->Unit(benchmark::kMillisecond);

void enumerate_std_filesystem(benchmark::State& state) {
    const fs::path path = host_path(directory_of_entries(state.range(0)));
    for (auto _ : state) {
        uint64_t bytes = 0;
        for (const fs::directory_entry& entry : fs::directory_iterator(path))
            bytes +=
                entry.file_size() + static_cast<uint64_t>(entry.last_write_time().time_since_epoch().count());
        benchmark::DoNotOptimize(bytes);
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(enumerate_std_filesystem)->Arg(100)->Arg(most_entries)->Unit(benchmark::kMillisecond);

// ---- Lines of 20 to 99 bytes ----------------------------------------------------------------------------------------

void lines_zu(benchmark::State& state, uint32_t flags) {
    const zu_file f(file_of_lines(), flags);
    ZU_buf buffer = {};
    for (auto _ : state) {
        ZU_seek_file(f.file, 0, nullptr, ZU_SEEK_BEGIN);
        uint32_t length;
        ZU_bool short_read;
        while (const char* line = ZU_get_line_i(f.file, &buffer, &length, &short_read, ZU_GET_LINE_MAX))
            benchmark::DoNotOptimize(line);
    }
    ZU_buf_destroy(&buffer);
    state.SetItemsProcessed(state.iterations() * line_count);
}
BENCHMARK_CAPTURE(lines_zu, sharing_with_writers, shared_reader)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(lines_zu, denying_writers, sole_reader)->Unit(benchmark::kMillisecond);

// The reader's own chunk reads, and a search in each for the end of the line.
void lines_bare_chunks(benchmark::State& state) {
    const bare_file f(file_of_lines(), O_RDONLY);
    char chunk[128];
    for (auto _ : state) {
        off_t position = 0;
        for (ssize_t size; (size = pread(f.descriptor, chunk, sizeof chunk, position)) > 0;) {
            const void* end = std::memchr(chunk, '\n', static_cast<size_t>(size));
            benchmark::DoNotOptimize(chunk);
            position += end ? static_cast<const char*>(end) - chunk + 1 : size;
        }
    }
    state.SetItemsProcessed(state.iterations() * line_count);
}
BENCHMARK(lines_bare_chunks)->Unit(benchmark::kMillisecond);

// Lines copied out of blocks of 4 KiB: what a reader needs that keeps writers away.
void lines_bare_blocks(benchmark::State& state) {
    const bare_file f(file_of_lines(), O_RDONLY);
    char block[block_size], line[256];
    for (auto _ : state) {
        lseek(f.descriptor, 0, SEEK_SET);
        size_t kept = 0; // bytes of the line so far
        for (ssize_t size; (size = read(f.descriptor, block, sizeof block)) > 0;) {
            const char *at = block, *const end = block + size;
            while (const void* feed = std::memchr(at, '\n', static_cast<size_t>(end - at))) {
                const size_t length = static_cast<size_t>(static_cast<const char*>(feed) - at);
                std::memcpy(line + kept, at, length);
                benchmark::DoNotOptimize(line);
                at += length + 1;
                kept = 0;
            }
            std::memcpy(line + kept, at, static_cast<size_t>(end - at));
            kept += static_cast<size_t>(end - at);
        }
    }
    state.SetItemsProcessed(state.iterations() * line_count);
}
BENCHMARK(lines_bare_blocks)->Unit(benchmark::kMillisecond);

void lines_getline(benchmark::State& state) {
    std::ifstream f(host_path(file_of_lines()));
    std::string line;
    for (auto _ : state) {
        f.clear();
        f.seekg(0);
        while (std::getline(f, line))
            benchmark::DoNotOptimize(line);
    }
    state.SetItemsProcessed(state.iterations() * line_count);
}
BENCHMARK(lines_getline)->Unit(benchmark::kMillisecond);

// ---- Patterns -------------------------------------------------------------------------------------------------------

void wildcard_zu(benchmark::State& state) {
    const std::u16string name = u"some-name-4711.txt";
    for (auto _ : state)
        benchmark::DoNotOptimize(ZU_wildcard_match(u"*.txt", name.c_str()));
}
BENCHMARK(wildcard_zu);

void wildcard_fnmatch(benchmark::State& state) {
    const std::string name = "some-name-4711.txt";
    for (auto _ : state)
        benchmark::DoNotOptimize(fnmatch("*.txt", name.c_str(), 0));
}
BENCHMARK(wildcard_fnmatch);

// ---- Trees: 1,000 directories of 100 files --------------------------------------------------------------------------

constexpr int tree_directories = 1000, tree_files = 100;

void make_tree() {
    fs::create_directory(host_path("tree"));
    for (int d = 0; d < tree_directories; ++d) {
        const std::string directory = host_path("tree/directory-" + std::to_string(d));
        mkdir(directory.c_str(), 0777);
        for (int f = 0; f < tree_files; ++f)
            close(open((directory + "/file-" + std::to_string(f)).c_str(), O_CREAT | O_WRONLY | O_CLOEXEC,
                       0666));
    }
}

long peak_kb() {
    rusage usage;
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_maxrss;
}

void delete_tree_zu(benchmark::State& state) {
    const std::u16string path = zu_path("tree");
    for (auto _ : state) {
        state.PauseTiming();
        make_tree();
        const long before = peak_kb();
        state.ResumeTiming();
        if (!ZU_delete_dir_recursive(path.c_str()))
            state.SkipWithError("not removed");
        state.counters["peak_grew_kb"] = static_cast<double>(peak_kb() - before);
    }
}
BENCHMARK(delete_tree_zu)->Unit(benchmark::kMillisecond)->Iterations(1)->Repetitions(1);

// The described steps: a file that is open elsewhere stays, so each is opened and claimed, and must still be the one of
// its name.
void remove_bare(int directory, const char* name) {
    const int file = openat(directory, name, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
    struct flock lock = {};
    lock.l_start = INT64_MAX - 4;
    lock.l_len = 4;
    lock.l_type = F_RDLCK;
    const bool is_locked = fcntl(file, F_OFD_SETLK, &lock) == 0;
    lock.l_type = F_WRLCK;
    struct stat opened, named;
    if (!is_locked || fcntl(file, F_OFD_GETLK, &lock) != 0 || fstat(file, &opened) != 0
        || fstatat(directory, name, &named, AT_SYMLINK_NOFOLLOW) != 0 || opened.st_ino != named.st_ino
        || unlinkat(directory, name, 0) != 0)
        std::abort();
    close(file);
}

void delete_tree_bare(benchmark::State& state) {
    for (auto _ : state) {
        state.PauseTiming();
        make_tree();
        state.ResumeTiming();
        for (int d = 0; d < tree_directories; ++d) {
            const std::string path = host_path("tree/directory-" + std::to_string(d));
            DIR* directory = opendir(path.c_str());
            while (const dirent* entry = readdir(directory))
                if (entry->d_type == DT_REG)
                    remove_bare(dirfd(directory), entry->d_name);
            closedir(directory);
            rmdir(path.c_str());
        }
        rmdir(host_path("tree").c_str());
    }
}
BENCHMARK(delete_tree_bare)->Unit(benchmark::kMillisecond)->Iterations(1)->Repetitions(1);

void delete_tree_std_filesystem(benchmark::State& state) {
    const fs::path path = host_path("tree");
    for (auto _ : state) {
        state.PauseTiming();
        make_tree();
        state.ResumeTiming();
        fs::remove_all(path);
    }
}
BENCHMARK(delete_tree_std_filesystem)->Unit(benchmark::kMillisecond)->Iterations(1)->Repetitions(1);

} // namespace
