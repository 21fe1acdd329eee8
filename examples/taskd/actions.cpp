#include "actions.h"

#include <cstdio>

#include "failed.h"
#include "file_actions.h"
#include "text.h"

namespace {

std::string print(const std::string& text) {
    return text;
}

// Tests a port. The text is ADDRESS PORT MS.
std::string probe(const std::string& text) {
    const auto parts = words(text);
    int32_t port = 0, timeout_ms = 0;
    if (parts.size() != 3 || !read_number(parts[1], port) || port < 1 || port > 65535
        || !read_number(parts[2], timeout_ms) || timeout_ms < 0)
        throw failed{'"' + text + "\" is not ADDRESS PORT MS"};
    switch (ZU_socket_test_port(wide(parts[0]).c_str(), static_cast<uint16_t>(port),
                                static_cast<uint32_t>(timeout_ms))) {
    case 0: return text + ": answers";
    case 1: throw failed{text + ": nobody answers there"};
    default: throw failed{text + ": no answer in time"};
    }
}

const action actions[] = {
    {"print", "TEXT  show the text", print},
    {"probe", "ADDRESS PORT MS  see whether a TCP port answers", probe},
    {"digest", "FILE  show the MD5 digest of a file, its size and time", digest},
    {"clean", "DIRECTORY PATTERN AGE  delete matching files older than AGE (90s, 15m, 12h, 30d)", clean},
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
