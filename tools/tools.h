// Arguments, output and failures, which the subcommands of `zu` share.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/api/base.h"

namespace zu_tools {

enum exit_status {
    done = 0,
    failed = 1, // it could not be done, or the answer is no
    misused = 2
};

// The exception of a failure. main() writes it to standard error.
struct failure {
    int status;
    std::string text;
};

[[noreturn]] void fail(std::string text);
[[noreturn]] void fail(const std::string& what, platform::DWORD code); // adds the code in words
[[noreturn]] void misuse(std::string text);

// Fails unless the code is 0.
void check(platform::DWORD code, const std::string& what);

// The arguments of a subcommand: words, and options that begin with --.
struct arguments {
    std::vector<std::string> words;
    std::vector<std::string> options;
    bool as_json = false;

    bool has(std::string_view option) const;
    std::string value_of(std::string_view option) const; // the value in --option=value; empty without
    void expect(size_t least, size_t most) const;        // fails for another count of words
    void allow(std::initializer_list<std::string_view> known) const;
};

struct cell {
    cell(std::string value) : text(std::move(value)) {}
    cell(const char* value) : text(value) {}
    cell(uint64_t number) : text(std::to_string(number)), is_bare(true) {}
    cell(bool truth) : text(truth ? "true" : "false"), is_bare(true) {}

    std::string text;
    bool is_bare = false; // without quotation marks in JSON
};

// Rows of the same columns. Programs get them as a list of JSON objects.
class table {
public:
    explicit table(std::vector<std::string> columns) : columns_(std::move(columns)) {}

    void add(std::vector<cell> row) { rows_.push_back(std::move(row)); }
    bool is_empty() const { return rows_.empty(); }
    void print(const arguments& given) const;

private:
    std::vector<std::string> columns_;
    std::vector<std::vector<cell>> rows_;
};

// A few facts, one a line. Programs get them as one JSON object.
class facts {
public:
    void add(std::string name, cell value) { rows_.emplace_back(std::move(name), std::move(value)); }
    void print(const arguments& given) const;

private:
    std::vector<std::pair<std::string, cell>> rows_;
};

// A text with its control characters replaced, since a name that others chose must not control the terminal.
std::string shown(std::string_view text);

// The text of a code, without its line end.
std::string words_of(platform::DWORD code);

// The path of the platform that an argument means. A path of the host becomes the one that leads there.
std::u16string wide_path(const std::string& argument);
bool is_host_path(std::string_view argument);
std::string absolute(const std::string& host_path); // lexically

// Runs the order that the first word names; misuse if it is none of them.
struct order {
    const char* name;
    int (*run)(const arguments&);
};
int run_order(const arguments& given, std::initializer_list<order> orders);

struct command {
    const char* name;
    const char* help; // the first line is the summary
    int (*run)(const arguments&);
};
extern const command commands[];
extern const size_t command_count;

int path(const arguments& given);
int drive(const arguments& given);
int registry(const arguments& given);
int service(const arguments& given);
int open_file(const arguments& given);
int lock(const arguments& given);
int info(const arguments& given);

} // namespace zu_tools
