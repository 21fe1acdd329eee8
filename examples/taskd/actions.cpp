#include "actions.h"

#include <cstdio>

namespace {

std::string print(const std::string& text) {
    return text;
}

const action actions[] = {
    {"print", "TEXT  show the text", print},
};

} // namespace

const action* find_action(std::string_view name) {
    for (const action& each : actions) {
        if (each.name == name)
            return &each;
    }
    return nullptr;
}

void print_actions() {
    for (const action& each : actions)
        std::printf("  %s %s\n", each.name, each.help);
}
