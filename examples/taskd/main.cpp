// taskd - runs the tasks of a file when they are due.
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <limits>

#include "tasks.h"
#include "text.h"

namespace {

constexpr int usage_error = 2;

volatile std::sig_atomic_t is_stopping = 0;

struct options {
    const char* path = "tasks.txt";
    int32_t seconds = std::numeric_limits<int32_t>::max();
    bool only_next = false;
    bool help = false;
};

bool read_options(int count, char** arguments, options& result) {
    for (int i = 1; i < count; ++i) {
        const std::string_view argument = arguments[i];
        if (argument == "--help")
            result.help = true;
        else if (argument == "--next")
            result.only_next = true;
        else if (argument == "--for" && i + 1 < count && read_number(arguments[i + 1], result.seconds))
            ++i;
        else if (argument.starts_with("-"))
            return false;
        else
            result.path = arguments[i];
    }
    return true;
}

void print_help() {
    std::puts("usage: taskd [--for SECONDS] [--next] [--help] [FILE]\n"
              "\n"
              "Shows when each task of FILE (tasks.txt) comes next, then runs the tasks when they are due.\n"
              "\n"
              "  --for SECONDS  stop after so many seconds; without it, an interrupt stops taskd\n"
              "  --next         show the next firings and stop\n"
              "\n"
              "One task a line, # comments:\n"
              "  name | rule | start [to end] | exclusions | action text\n"
              "\n"
              "Rules, and what each may leave out:");
    print_rules();
    std::puts("Actions:");
    print_actions();
    std::puts(
        "Exit status: 0; 1 when a line was not understood or the scheduler did not start; 2 for wrong usage.");
}

// Runs on the timer set's thread.
void fire(void* user_data, ZU_timer* timer) {
    const auto* due = static_cast<const task*>(user_data);
    std::printf("%s  %s  %s\n", local_time(timer->last).c_str(), due->name.c_str(),
                due->does->run(due->text).c_str());
    std::fflush(stdout);
}

bool run(task_list& list, int32_t seconds) {
    ZU_timer_set set;
    ZU_timer_set_init(&set, 1, nullptr, nullptr);
    for (auto& each : list.tasks)
        ZU_timer_set_add(&set, each->timer.release(), each.get(), fire);
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
    const bool started = ZU_timer_set_startup(&set);
    while (started && !is_stopping && std::chrono::steady_clock::now() < end)
        ZU_sleep(50);
    ZU_timer_set_destroy(&set);
    return started;
}

} // namespace

int main(int count, char** arguments) {
    options chosen;
    if (!read_options(count, arguments, chosen)) {
        std::fputs("usage: taskd [--for SECONDS] [--next] [--help] [FILE]\n", stderr);
        return usage_error;
    }
    if (chosen.help) {
        print_help();
        return 0;
    }
    std::signal(SIGINT, [](int) { is_stopping = 1; });
    std::signal(SIGTERM, [](int) { is_stopping = 1; });

    ZU_init();
    task_list list = read_tasks(chosen.path);
    print_next_firings(list);
    bool is_fine = list.is_complete;
    if (!chosen.only_next) {
        std::puts("");
        std::fflush(stdout);
        is_fine &= run(list, chosen.seconds);
    }
    ZU_shutdown();
    return is_fine ? 0 : 1;
}
