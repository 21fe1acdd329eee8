// Service states, beside asking the host's files for the state of a process whose number is known.
#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include <benchmark/benchmark.h>

#include "platform/platform.h"
#include "zu/zu.h"

namespace {

// A running and a stopped service in a host directory of their own, for the length of the program.
class services {
public:
    services() {
        char path[] = "/tmp/zu-services-XXXXXX";
        if (!mkdtemp(path))
            std::abort();
        path_ = path;
        setenv("ZU_HOST", path, 1);
        setenv("ZU_HELPER", ZU_HELPER_PROGRAM, 1);
        for (const ZU_wchar* name : {ZU_W("running"), ZU_W("stopped")}) {
            ZU_NT_service_install(nullptr, name, nullptr, ZU_W("/bin/sleep 3600"), SERVICE_WIN32_OWN_PROCESS,
                                  SERVICE_DEMAND_START, nullptr);
        }
        if (!ZU_NT_service_start(nullptr, ZU_W("running")))
            std::fprintf(stderr, "the service did not start: code %u\n", GetLastError());
    }
    ~services() {
        for (const ZU_wchar* name : {ZU_W("running"), ZU_W("stopped")})
            ZU_NT_service_uninstall(nullptr, name);
        for (const char* file : {"/services/.lock", "/services", ""})
            std::remove((path_ + file).c_str());
    }

private:
    std::string path_;
};

void state(benchmark::State& state, const ZU_wchar* name, uint32_t expected) {
    static const services both;
    for (auto _ : state) {
        if (ZU_NT_service_get_state(nullptr, name) != expected)
            state.SkipWithError("another state");
    }
}

void query(benchmark::State& state) {
    platform::SC_HANDLE manager = platform::OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT);
    platform::SC_HANDLE service = platform::OpenServiceW(manager, ZU_W("running"), SERVICE_QUERY_STATUS);
    platform::SERVICE_STATUS status;
    for (auto _ : state) {
        if (!platform::QueryServiceStatus(service, &status) || status.dwCurrentState != SERVICE_RUNNING)
            state.SkipWithError("another state");
    }
    platform::CloseServiceHandle(service);
    platform::CloseServiceHandle(manager);
}

void read_process_state(benchmark::State& state) {
    char text[512];
    for (auto _ : state) {
        const int file = open("/proc/1/stat", O_RDONLY | O_CLOEXEC);
        const ssize_t size = read(file, text, sizeof text - 1);
        close(file);
        text[size > 0 ? size : 0] = 0;
        benchmark::DoNotOptimize(std::strchr(text, ')'));
    }
}

BENCHMARK_CAPTURE(state, running, ZU_W("running"), SERVICE_RUNNING);
BENCHMARK_CAPTURE(state, stopped, ZU_W("stopped"), SERVICE_STOPPED);
BENCHMARK(query);
BENCHMARK(read_process_state);

} // namespace
