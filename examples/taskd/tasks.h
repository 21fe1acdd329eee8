// Tasks, the file that lists them, and the table of their next firings.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "actions.h"
#include "rules.h"

struct task {
    std::string name;
    std::string rule;
    calendar holidays; // stands before the timer, which refers to it
    timer_ptr timer;
    const action* does = nullptr;
    std::string text; // the action's argument
};

struct task_list {
    std::vector<std::unique_ptr<task>> tasks;
    bool is_complete = true; // false if a line was reported
};

// Throws `failed` when the file cannot be read.
task_list read_tasks(const std::string& path, void (*report)(const std::string&));

// The time of a timer's next firing; in words, if it does not fire.
std::string next_firing(ZU_timer* timer);

void print_next_firings(const task_list& list);
