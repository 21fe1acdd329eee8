// What a task can do when it fires. A new action is a function and a line in the table.
#pragma once

#include <string>
#include <string_view>

// Thrown by an action that could not be carried out: the reason, for the journal.
struct failed {
    std::string reason;
};

struct action {
    const char* name;
    const char* help;
    std::string (*run)(const std::string& text); // gives what the line of the firing says
};

// The action of that name, or null.
const action* find_action(std::string_view name);

void print_actions();
