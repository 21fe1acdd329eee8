#include "tasks.h"

#include <algorithm>
#include <cstdio>

#include "failed.h"
#include "text.h"

namespace {

// Reads a line: name | rule | start [to end] | exclusions | action text.
std::unique_ptr<task> read_task(std::string_view line) {
    const auto fields = pieces(line, '|', 5);
    if (fields.size() != 5)
        throw misunderstood{"a task is: name | rule | start [to end] | exclusions | action text"};
    auto result = std::make_unique<task>();
    result->name = fields[0];
    result->rule = fields[1];
    result->timer = make_timer(fields[1], fields[2], fields[3], result->holidays);
    const std::string_view name = fields[4].substr(0, fields[4].find(' '));
    result->does = find_action(name);
    if (!result->does)
        throw misunderstood{'"' + std::string(name) + "\" is no action"};
    result->text = trimmed(fields[4].substr(name.size()));
    return result;
}

// The width of a text on a screen: a character of several bytes counts once.
int width(const std::string& utf8) {
    return static_cast<int>(std::count_if(
        utf8.begin(), utf8.end(), [](char c) { return (static_cast<unsigned char>(c) & 0xC0) != 0x80; }));
}

void print_padded(const std::string& text, int columns) {
    std::printf("%s%*s", text.c_str(), columns - width(text) + 2, "");
}

} // namespace

namespace {

// The lines of a file, one after another.
class line_reader {
public:
    explicit line_reader(const std::string& path)
        : file_(ZU_open_file(library_path(path).c_str(),
                             ZU_FILE_READ | ZU_FILE_OPEN_EXISTING | ZU_FILE_SHARE_READ | ZU_FILE_SHARE_WRITE,
                             nullptr)) {}
    ~line_reader() {
        ZU_close_file(file_);
        ZU_buf_destroy(&buffer_);
    }
    line_reader(const line_reader&) = delete;
    line_reader& operator=(const line_reader&) = delete;

    bool is_open() const { return file_ != nullptr; }
    bool next(std::string_view& line) { // false at the end, or when reading fails
        constexpr uint32_t whole = UINT32_MAX;
        uint32_t length = 0;
        ZU_bool is_short = 0;
        const char* text = ZU_get_line_i(file_, &buffer_, &length, &is_short, whole);
        has_failed_ = !text && !is_short;
        line = text ? std::string_view(text, length) : std::string_view();
        return text != nullptr;
    }
    bool has_failed() const { return has_failed_; }

private:
    ZU_file* file_;
    ZU_buf buffer_{};
    bool has_failed_ = false;
};

} // namespace

task_list read_tasks(const std::string& path, void (*report)(const std::string&)) {
    task_list result;
    line_reader file(path);
    if (!file.is_open())
        fail(path);
    std::string_view text;
    for (int number = 1; file.next(text); ++number) {
        if (number == 1 && text.starts_with("\xEF\xBB\xBF"))
            text.remove_prefix(3);
        text = trimmed(text);
        if (text.empty() || text[0] == '#')
            continue;
        try {
            result.tasks.push_back(read_task(text));
        } catch (const misunderstood& problem) {
            report(path + ':' + std::to_string(number) + ": " + problem.reason);
            result.is_complete = false;
        }
    }
    if (file.has_failed())
        fail(path);
    return result;
}

std::string next_firing(ZU_timer* timer) {
    const ZU_time_t next = timer->ops->next(timer);
    return next == -1 ? "never again" : next == -2 ? "not in sight" : local_time(next);
}

void print_next_firings(const task_list& list) {
    int name_columns = 4, rule_columns = 4;
    for (const auto& each : list.tasks) {
        name_columns = std::max(name_columns, width(each->name));
        rule_columns = std::max(rule_columns, width(each->rule));
    }
    std::printf("%-*s  %-*s  next firing\n", name_columns, "task", rule_columns, "rule");
    for (const auto& each : list.tasks) {
        print_padded(each->name, name_columns);
        print_padded(each->rule, rule_columns);
        std::printf("%s\n", next_firing(each->timer.get()).c_str());
    }
}
