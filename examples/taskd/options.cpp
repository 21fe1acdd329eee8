#include "options.h"

#include <algorithm>
#include <cstdio>
#include <iterator>
#include <string_view>

#include "actions.h"
#include "rules.h"
#include "settings.h"
#include "text.h"

namespace {

constexpr const char* usage = "usage: taskd [OPTIONS] [FILE]\n"
                              "       taskd --ask HOST:PORT COMMAND\n"
                              "       taskd --install [--name SERVICE] [OPTIONS] [FILE]\n"
                              "       taskd --start|--stop|--state|--uninstall [--name SERVICE]\n";

constexpr unsigned bit(mode what) {
    return 1u << static_cast<unsigned>(what);
}
constexpr unsigned to_run = bit(mode::run) | bit(mode::install);
constexpr unsigned to_manage =
    bit(mode::install) | bit(mode::uninstall) | bit(mode::start) | bit(mode::stop) | bit(mode::state);
constexpr unsigned with_file = to_run | bit(mode::next);

// Chooses a mode. There is one at most.
template <mode what>
bool choose(const char*, options& result) {
    const bool is_first = result.what == mode::run;
    result.what = what;
    return is_first;
}

bool read_count(const char* text, int32_t& number) {
    return read_number(text, number) && number >= 0;
}

bool read_text(const char* text, std::string& result) {
    result = text;
    return !result.empty();
}

struct option {
    std::string_view name;
    std::string_view value; // the name of the word behind it, FILE for a path; empty: no word
    unsigned modes;         // the modes that it goes with
    bool (*take)(const char* value, options& result);
    const char* help;
};

// clang-format off
const option known[] = {
    {"--for", "SECONDS", to_run,
     [](const char* value, options& result) { return read_count(value, result.seconds); },
     "stop after so many seconds; without it, an interrupt stops taskd"},
    {"--single", "NAME", to_run,
     [](const char* value, options& result) { return read_text(value, result.single); },
     "end at once if another taskd runs under this name"},
    {"--log", "FILE", to_run,
     [](const char* value, options& result) { return read_text(value, result.log.file); },
     "keep a log in FILE, and errors in FILE.errors"},
    {"--log-size", "BYTES", to_run,
     [](const char* value, options& result) { return read_count(value, result.log.max_bytes); },
     "begin a new file at this size (1048576)"},
    {"--log-keep", "FILES", to_run,
     [](const char* value, options& result) { return read_count(value, result.log.keep); },
     "how many files to keep, the live one included (5)"},
    {"--trace", "", to_run,
     [](const char*, options& result) { return result.log.is_tracing = true; },
     "log the way through the program, too"},
    {"--port", "PORT", to_run,
     [](const char* value, options& result) { return read_count(value, result.port) && result.port <= 65535; },
     "answer commands on this TCP port: status, run NAME, stop"},
    {"--next", "", bit(mode::next), choose<mode::next>, "show the next firings and stop"},
    {"--ask", "HOST:PORT", bit(mode::ask),
     [](const char* value, options& result) {
         return choose<mode::ask>(value, result) && read_text(value, result.ask);
     },
     "send COMMAND to a taskd that runs, and show its answer"},
    {"--install", "", bit(mode::install), choose<mode::install>,
     "install a service that runs taskd with the options above and FILE"},
    {"--start", "", bit(mode::start), choose<mode::start>, "start the service, and wait until it runs"},
    {"--stop", "", bit(mode::stop), choose<mode::stop>, "stop it, and wait until it has ended"},
    {"--state", "", bit(mode::state), choose<mode::state>, "show whether it runs"},
    {"--uninstall", "", bit(mode::uninstall), choose<mode::uninstall>, "stop and remove it"},
    {"--name", "SERVICE", to_manage,
     [](const char* value, options& result) { return read_text(value, result.service); },
     "the service's name (taskd)"},
};
// clang-format on

const option* find_option(std::string_view name) {
    const auto found = std::find_if(std::begin(known), std::end(known),
                                    [name](const option& each) { return each.name == name; });
    return found == std::end(known) ? nullptr : found;
}

// The arguments one after another, and the modes that all of them go with.
class option_reader {
public:
    option_reader(int count, char** arguments, options& result)
        : next_(arguments + 1), end_(arguments + count), result_(result) {}

    bool read() {
        while (next_ != end_) {
            const char* const argument = *next_++;
            if (!(*argument == '-' ? take_option(argument) : take_operand(argument)))
                return false;
        }
        const bool is_asked = result_.what != mode::ask || !result_.command.empty();
        return (modes_ & bit(result_.what)) && is_asked;
    }

private:
    bool take_option(const char* name) {
        const option* const found = find_option(name);
        const bool has_value = found && !found->value.empty();
        if (!found || (has_value && next_ == end_))
            return false;
        const char* const value = has_value ? *next_++ : nullptr;
        modes_ &= found->modes;
        if (found->modes == to_run) {
            result_.run_words.push_back({name, false});
            if (value)
                result_.run_words.push_back({value, found->value == "FILE"});
        }
        return found->take(value, result_);
    }

    // Takes a word that is no option: the task file, or the command to ask for.
    bool take_operand(const char* text) {
        const bool is_command = result_.what == mode::ask;
        std::string& operand = is_command ? result_.command : result_.path;
        if (!operand.empty())
            return false;
        operand = text;
        modes_ &= is_command ? bit(mode::ask) : with_file;
        result_.run_words.push_back({text, true});
        return !operand.empty();
    }

    char** next_;
    char** const end_;
    options& result_;
    unsigned modes_ = ~0u;
};

void print_options() {
    for (const option& each : known) {
        const std::string form = std::string(each.name) + ' ' + std::string(each.value);
        std::printf("  %-16s  %s\n", form.c_str(), each.help);
    }
}

} // namespace

bool read_options(int count, char** arguments, options& result) {
    const bool is_for_help = std::any_of(arguments + 1, arguments + count, [](const char* argument) {
        return std::string_view(argument) == "--help";
    });
    if (is_for_help) {
        result.what = mode::help;
        return true;
    }
    return option_reader(count, arguments, result).read();
}

void print_usage() {
    std::fputs(usage, stderr);
}

void print_help() {
    std::fputs(usage, stdout);
    std::printf(
        "\n"
        "Shows when each task of FILE comes next, then runs the tasks when they are due. Without FILE, the\n"
        "registry names it (HKEY_LOCAL_MACHINE\\%s, value %s), or else it is tasks.txt.\n"
        "The look ahead goes in whole days from a task's start: in a zone with daylight saving, give a start in the\n"
        "present season, or a season is left out of what is shown.\n"
        "\n",
        settings_key, task_file_value);
    print_options();
    std::puts("\n"
              "One task a line, # comments:\n"
              "  name | rule | start [to end] | exclusions | action text\n"
              "\n"
              "Rules, and what each may leave out:");
    print_rules();
    std::puts("Actions:");
    print_actions();
    std::puts("Exit status: 0; 1 when a line was not understood, or something failed; 2 for wrong usage;\n"
              "3 when another taskd runs under the name of --single.");
}
