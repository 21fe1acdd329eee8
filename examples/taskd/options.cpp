#include "options.h"

#include <cstdio>
#include <string_view>

#include "actions.h"
#include "rules.h"
#include "text.h"

namespace {

constexpr const char* usage = "usage: taskd [OPTIONS] [FILE]\n"
                              "       taskd --ask HOST:PORT COMMAND\n";

bool read_count(const char* text, int32_t& number) {
    return read_number(text, number) && number >= 0;
}

// Takes the option that begins with `name`; `value` is the word behind it, or null.
bool read_valued(std::string_view name, const char* value, options& result) {
    if (!value)
        return false;
    if (name == "--for")
        return read_count(value, result.seconds);
    if (name == "--port")
        return read_count(value, result.port) && result.port <= 65535;
    if (name == "--log-size")
        return read_count(value, result.log.max_bytes);
    if (name == "--log-keep")
        return read_count(value, result.log.keep);
    if (name == "--log")
        result.log.file = value;
    else if (name == "--ask")
        result.ask = value;
    else
        return false;
    return true;
}

} // namespace

bool read_options(int count, char** arguments, options& result) {
    for (int i = 1; i < count; ++i) {
        const std::string_view argument = arguments[i];
        if (argument == "--help")
            result.help = true;
        else if (argument == "--next")
            result.only_next = true;
        else if (argument == "--trace")
            result.log.is_tracing = true;
        else if (!argument.starts_with("-"))
            result.path = arguments[i];
        else if (read_valued(argument, i + 1 < count ? arguments[i + 1] : nullptr, result))
            ++i;
        else
            return false;
    }
    return true;
}

void print_usage() {
    std::fputs(usage, stderr);
}

void print_help() {
    std::fputs(usage, stdout);
    std::puts("\n"
              "Shows when each task of FILE (tasks.txt) comes next, then runs the tasks when they are due.\n"
              "\n"
              "  --for SECONDS     stop after so many seconds; without it, an interrupt stops taskd\n"
              "  --next            show the next firings and stop\n"
              "  --log FILE        keep a log in FILE, and its errors in FILE.errors as well\n"
              "  --log-size BYTES  begin a new file at this size (1048576)\n"
              "  --log-keep FILES  how many files to keep, the live one included (5)\n"
              "  --trace           log the way through the program, too\n"
              "  --port PORT       answer commands on this TCP port: status, run NAME, stop\n"
              "  --ask HOST:PORT   send COMMAND to a taskd that runs, and show its answer\n"
              "\n"
              "One task a line, # comments:\n"
              "  name | rule | start [to end] | exclusions | action text\n"
              "\n"
              "Rules, and what each may leave out:");
    print_rules();
    std::puts("Actions:");
    print_actions();
    std::puts("Exit status: 0; 1 when a line was not understood, the scheduler or the port did not start,\n"
              "or nobody answered; 2 for wrong usage.");
}
