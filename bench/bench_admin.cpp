// Registry reads of a file that is kept, beside reading and searching a small file of settings each time; and looking
// up an entry point beside the host's own call.
#include <dlfcn.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>

#include <benchmark/benchmark.h>

#include "zu/zu.h"

namespace {

constexpr int keys = 1000;

// A host directory with a registry of its own, old enough to be kept.
const std::string& host_directory() {
    static const std::string made = [] {
        char path[] = "/tmp/zu-bench-XXXXXX";
        const std::string directory = mkdtemp(path);
        std::ofstream registry(directory + "/registry.reg");
        std::ofstream settings(directory + "/settings");
        for (int i = 0; i < keys; ++i) {
            registry << "[HKEY_LOCAL_MACHINE\\Software\\Vendor\\Product\\Key" << i << "]\n"
                     << "\"number\"=dword:" << i % 10 << "\n\"text\"=\"some text of a setting\"\n";
            settings << "Key" << i << ".number=" << i % 10 << "\n";
        }
        registry.close();
        setenv("ZU_HOST", directory.c_str(), 1);
        sleep(4);
        std::atexit([] {
            const std::string name = std::getenv("ZU_HOST");
            for (const char* file : {"/registry.reg", "/settings"})
                unlink((name + file).c_str());
            rmdir(name.c_str());
        });
        return directory;
    }();
    return made;
}

void registry_number(benchmark::State& state) {
    host_directory();
    uint32_t number = 0;
    for (auto _ : state) {
        if (!ZU_registry_get_uint32(HKEY_LOCAL_MACHINE, ZU_W("Software\\Vendor\\Product\\Key777"),
                                    ZU_W("number"), &number))
            state.SkipWithError("not read");
        benchmark::DoNotOptimize(number);
    }
}

void registry_text(benchmark::State& state) {
    host_directory();
    for (auto _ : state)
        ZU_free(
            ZU_registry_get_str(HKEY_LOCAL_MACHINE, ZU_W("Software\\Vendor\\Product\\Key777"), ZU_W("text")));
}

void settings_file(benchmark::State& state) {
    const std::string path = host_directory() + "/settings";
    for (auto _ : state) {
        std::ifstream file(path);
        int number = -1;
        for (std::string line; std::getline(file, line);) {
            if (line.starts_with("Key777.number="))
                number = std::atoi(line.c_str() + 14);
        }
        benchmark::DoNotOptimize(number);
    }
}

void entry_point(benchmark::State& state) {
    HMODULE module = ZU_dll_load(ZU_W("libm.so.6"));
    for (auto _ : state)
        benchmark::DoNotOptimize(ZU_dll_get_proc(module, "cos"));
    ZU_dll_unload(module);
}

void entry_point_of_host(benchmark::State& state) {
    void* module = dlopen("libm.so.6", RTLD_NOW);
    for (auto _ : state)
        benchmark::DoNotOptimize(dlsym(module, "cos"));
    dlclose(module);
}

void description(benchmark::State& state) {
    for (auto _ : state)
        ZU_free(ZU_get_os_desc());
}

BENCHMARK(registry_number)->Name("ZU_registry_get_uint32");
BENCHMARK(registry_text)->Name("ZU_registry_get_str");
BENCHMARK(settings_file)->Name("settings file, read and searched");
BENCHMARK(entry_point)->Name("ZU_dll_get_proc");
BENCHMARK(entry_point_of_host)->Name("dlsym");
BENCHMARK(description)->Name("ZU_get_os_desc");

} // namespace
