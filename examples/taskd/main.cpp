// taskd - runs the tasks of a file when they are due.
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>

#include "options.h"
#include "port.h"
#include "scheduler.h"
#include "text.h"

namespace {

constexpr int usage_error = 2;

volatile std::sig_atomic_t is_interrupted = 0;

bool run(task_list list, const options& chosen) {
    const journal open(chosen.log);
    std::atomic<bool> is_stopping{false};
    scheduler tasks(std::move(list));
    status_port port(tasks, is_stopping);
    if (chosen.port != 0 && !port.open(static_cast<uint16_t>(chosen.port))) {
        complain("port " + std::to_string(chosen.port) + ": " + error_text(GetLastError()));
        return false;
    }
    if (!tasks.start()) {
        complain("the scheduler does not start: " + error_text(GetLastError()));
        return false;
    }
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(chosen.seconds);
    while (!is_interrupted && !is_stopping && std::chrono::steady_clock::now() < end)
        ZU_sleep(50);
    return true;
}

int ask_another(const options& chosen) {
    try {
        std::fputs(ask(chosen.ask, chosen.path).c_str(), stdout);
        return 0;
    } catch (const failed& problem) {
        std::fprintf(stderr, "%s\n", problem.reason.c_str());
        return 1;
    }
}

int show_and_run(const options& chosen) {
    task_list list = read_tasks(chosen.path.c_str());
    print_next_firings(list);
    bool is_fine = list.is_complete;
    if (!chosen.only_next) {
        std::puts("");
        std::fflush(stdout);
        is_fine &= run(std::move(list), chosen);
    }
    return is_fine ? 0 : 1;
}

} // namespace

int main(int count, char** arguments) {
    options chosen;
    if (!read_options(count, arguments, chosen)) {
        print_usage();
        return usage_error;
    }
    if (chosen.help) {
        print_help();
        return 0;
    }
    std::signal(SIGINT, [](int) { is_interrupted = 1; });
    std::signal(SIGTERM, [](int) { is_interrupted = 1; });

    ZU_init();
    const int status = chosen.ask.empty() ? show_and_run(chosen) : ask_another(chosen);
    ZU_shutdown();
    return status;
}
