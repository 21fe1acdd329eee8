// What the subcommands of `zu` share: their arguments, their output, and the one way to fail.
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

// Thrown; main() writes it to standard error.
struct failure {
    int status;
    std::string text;
};

[[noreturn]] void fail(std::string text);
[[noreturn]] void fail(const std::string& what, platform::DWORD code); // with the code in words
[[noreturn]] void misuse(std::string text);

// Fails unless the code is 0.
void check(platform::DWORD code, const std::string& what);

// What stands behind a subcommand: words, and options that begin with --.
struct arguments {
    std::vector<std::string> words;
    std::vector<std::string> options;
    bool as_json = false;

    bool has(std::string_view option) const;
    std::string value_of(std::string_view option) const; // of --option=value; empty without
    void expect(size_t least, size_t most) const;        // words
    void allow(std::initializer_list<std::string_view> known) const;
};

struct cell {
    cell(std::string value) : text(std::move(value)) {}
    cell(const char* value) : text(value) {}
    cell(uint64_t number) : text(std::to_string(number)), is_bare(true) {}
    cell(bool truth) : text(truth ? "true" : "false"), is_bare(true) {}

    std::string text;
    bool is_bare = false; // of quotation marks, in JSON
};

// Rows of the same columns, for people, or for programs a list of objects.
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

// A few facts, one a line, or for programs one object.
class facts {
public:
    void add(std::string name, cell value) { rows_.emplace_back(std::move(name), std::move(value)); }
    void print(const arguments& given) const;

private:
    std::vector<std::pair<std::string, cell>> rows_;
};

// Control characters of what others have named, so that they do not reach the terminal.
std::string shown(std::string_view text);

// The text of a code, without its line end.
std::string words_of(platform::DWORD code);

// What an argument names: a path of the platform as it is, or one of the host as the path that leads there.
std::u16string wide_path(const std::string& argument);
bool is_host_path(std::string_view argument);
std::string absolute(const std::string& host_path); // lexically

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
