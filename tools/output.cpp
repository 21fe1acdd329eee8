// Arguments, output and failures of the subcommands.
#include <algorithm>
#include <cstdio>

#include <unistd.h>

#include "platform/core/error.h"
#include "platform/text/utf8.h"
#include "tools/tools.h"

namespace zu_tools {

void fail(std::string text) {
    throw failure{failed, std::move(text)};
}

void fail(const std::string& what, platform::DWORD code) {
    throw failure{failed, what + ": " + words_of(code) + " (" + std::to_string(code) + ')'};
}

void misuse(std::string text) {
    throw failure{misused, std::move(text)};
}

void check(platform::DWORD code, const std::string& what) {
    if (code != ERROR_SUCCESS)
        fail(what, code);
}

bool arguments::has(std::string_view option) const {
    return std::find(options.begin(), options.end(), option) != options.end();
}

std::string arguments::value_of(std::string_view option) const {
    for (const std::string& given : options) {
        if (given.starts_with(option) && given.size() > option.size() && given[option.size()] == '=')
            return given.substr(option.size() + 1);
    }
    return {};
}

void arguments::expect(size_t least, size_t most) const {
    if (words.size() < least)
        misuse("an argument is missing");
    if (words.size() > most)
        misuse("too many arguments: " + words[most]);
}

void arguments::allow(std::initializer_list<std::string_view> known) const {
    for (const std::string& option : options) {
        if (std::find(known.begin(), known.end(), option.substr(0, option.find('='))) == known.end())
            misuse("there is no option " + option);
    }
}

int run_order(const arguments& given, std::initializer_list<order> orders) {
    std::string names;
    for (const order& known : orders) {
        if (!given.words.empty() && given.words[0] == known.name)
            return known.run(given);
        names += (names.empty() ? "" : &known + 1 == orders.end() ? " or " : ", ") + std::string(known.name);
    }
    misuse(names + '?');
}

std::string words_of(platform::DWORD code) {
    const platform::error_text* const end = platform::error_texts + platform::error_text_count;
    const auto row = std::find_if(platform::error_texts, end,
                                  [&](const platform::error_text& text) { return text.code == code; });
    const platform::wide_view words = row == end ? u"Unknown error" : row->text;
    return platform::utf8_of(words.substr(0, words.find_last_not_of(u"\r\n.") + 1));
}

std::string shown(std::string_view text) {
    std::string result;
    for (const char c : text) {
        char escaped[8];
        const auto byte = static_cast<unsigned char>(c);
        std::snprintf(escaped, sizeof escaped, byte < 0x20 || byte == 0x7F ? "\\x%02x" : "%c", byte);
        result += byte == 0 ? "\\x00" : escaped;
    }
    return result;
}

namespace {

std::string json(const cell& value) {
    if (value.is_bare)
        return value.text;
    std::string result = "\"";
    // Programs get well-formed UTF-8, also for a file name whose bytes are none.
    for (const char c : platform::utf8_of(platform::wide_from(value.text))) {
        char escaped[8];
        const auto byte = static_cast<unsigned char>(c);
        if (c == '"' || c == '\\')
            result += '\\';
        std::snprintf(escaped, sizeof escaped, byte < 0x20 ? "\\u%04x" : "%c", byte);
        result += byte == 0 ? "\\u0000" : escaped;
    }
    return result + '"';
}

size_t width_of(const std::string& text) {
    return static_cast<size_t>(
        std::count_if(text.begin(), text.end(), [](char c) { return (c & 0xC0) != 0x80; }));
}

std::string padded(std::string text, size_t width) {
    const size_t has = width_of(text);
    return text.append(width > has ? width - has : 0, ' ');
}

} // namespace

void table::print(const arguments& given) const {
    if (given.as_json) {
        std::string text = "[";
        for (const auto& row : rows_) {
            text += text.size() > 1 ? ",\n {" : "{";
            for (size_t i = 0; i < row.size(); ++i)
                text += (i ? ", " : "") + json(columns_[i]) + ": " + json(row[i]);
            text += '}';
        }
        std::printf("%s]\n", text.c_str());
        return;
    }
    std::vector<std::vector<std::string>> lines{columns_};
    for (const auto& row : rows_) {
        lines.emplace_back();
        for (const cell& value : row)
            lines.back().push_back(shown(value.text));
    }
    std::vector<size_t> widths(columns_.size());
    for (const auto& line : lines) {
        for (size_t i = 0; i < line.size(); ++i)
            widths[i] = std::max(widths[i], width_of(line[i]));
    }
    for (const auto& line : lines) {
        std::string text;
        for (size_t i = 0; i < line.size(); ++i)
            text += i + 1 < line.size() ? padded(line[i], widths[i] + 2) : line[i];
        std::printf("%s\n", text.c_str());
    }
}

void facts::print(const arguments& given) const {
    std::string text;
    size_t width = 0;
    for (const auto& [name, value] : rows_)
        width = std::max(width, width_of(name));
    for (const auto& [name, value] : rows_) {
        if (given.as_json)
            text += (text.empty() ? "{" : ",\n ") + json(name) + ": " + json(value);
        else
            text += padded(name, width + 2) + shown(value.text) + '\n';
    }
    std::printf("%s", given.as_json ? (text + "}\n").c_str() : text.c_str());
}

} // namespace zu_tools
