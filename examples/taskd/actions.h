// The actions that a task can do when it fires. A new action is a function and a line in the table.
#pragma once

#include <string>
#include <string_view>

struct action {
    const char* name;
    const char* help;
    std::string (*run)(const std::string& text); // gives the text for the firing's line, or throws `failed`
};

// The action of that name, or null.
const action* find_action(std::string_view name);

void print_actions();
