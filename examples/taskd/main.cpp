// taskd - runs the tasks of a file when they are due.
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>

#include "failed.h"
#include "options.h"
#include "port.h"
#include "reports.h"
#include "scheduler.h"
#include "service.h"
#include "settings.h"
#include "single.h"
#include "text.h"

namespace {

enum exit_status { fine = 0, failure = 1, usage_error = 2, runs_already = 3 };

volatile std::sig_atomic_t is_interrupted = 0;

std::string banner() {
    const std::string system = taken(ZU_get_os_desc());
    return "taskd " + narrow(ZU_version()) + (system.empty() ? "" : " on " + system);
}

void show_problem(const std::string& text) {
    std::fprintf(stderr, "%s\n", text.c_str());
}

void wait_for_the_end(int32_t seconds, const std::atomic<bool>& is_stopping) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
    while (!is_interrupted && !is_stopping && std::chrono::steady_clock::now() < end)
        ZU_sleep(50);
}

void serve(task_list list, const options& chosen) {
    service_reports manager;
    std::atomic<bool> is_stopping{false};
    scheduler tasks(std::move(list));
    status_port port(tasks, is_stopping);
    if (chosen.port != 0 && !port.open(static_cast<uint16_t>(chosen.port)))
        fail("port " + std::to_string(chosen.port));
    if (!tasks.start())
        fail("the scheduler does not start");
    manager.ready();
    wait_for_the_end(chosen.seconds, is_stopping);
    manager.ending();
}

exit_status show_and_serve(const options& chosen) {
    const std::string path = task_file(chosen.path);
    task_list list = read_tasks(path, complain);
    const bool is_complete = list.is_complete;
    tell("tasks of " + path + ": " + std::to_string(list.tasks.size()));
    print_next_firings(list);
    std::puts("");
    std::fflush(stdout);
    serve(std::move(list), chosen);
    return is_complete ? fine : failure;
}

exit_status run(const options& chosen) {
    const single_instance single(chosen.single);
    if (!single.is_held()) {
        show_problem("another taskd runs as \"" + chosen.single + '"');
        return runs_already;
    }
    const journal open(chosen.log);
    try {
        open.begin(banner());
        return show_and_serve(chosen);
    } catch (const failed& problem) {
        complain(problem.reason); // nobody reads a service's error stream
        return failure;
    }
}

exit_status show_next(const options& chosen) {
    const task_list list = read_tasks(task_file(chosen.path), show_problem);
    print_next_firings(list);
    return list.is_complete ? fine : failure;
}

exit_status carry_out(const options& chosen) {
    switch (chosen.what) {
    case mode::run: return run(chosen);
    case mode::next: return show_next(chosen);
    case mode::ask: std::fputs(ask(chosen.ask, chosen.command).c_str(), stdout); return fine;
    default: manage_service(chosen); return fine;
    }
}

} // namespace

int main(int count, char** arguments) {
    options chosen;
    if (!read_options(count, arguments, chosen)) {
        print_usage();
        return usage_error;
    }
    if (chosen.what == mode::help) {
        print_help();
        return fine;
    }
    std::signal(SIGINT, [](int) { is_interrupted = 1; });
    std::signal(SIGTERM, [](int) { is_interrupted = 1; });

    ZU_init();
    exit_status status = failure;
    try {
        status = carry_out(chosen);
    } catch (const failed& problem) {
        show_problem(problem.reason);
    }
    if (std::fflush(stdout) != 0 || std::ferror(stdout))
        status = status == fine ? failure : status;
    ZU_shutdown();
    return status;
}
