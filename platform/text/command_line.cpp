// Taking a command line apart, by the platform's rules.
#include "platform/text/command_line.h"

#include <algorithm>

namespace platform {

namespace {

constexpr wide_view spaces = u" \t";

bool is_space(WCHAR c) {
    return c == u' ' || c == u'\t';
}

void skip_spaces(wide_view& text) {
    text.remove_prefix(std::min(text.find_first_not_of(spaces), text.size()));
}

std::u16string take_argument(wide_view& text) {
    std::u16string argument;
    bool quoted = false;
    size_t at = 0;
    while (at < text.size() && (quoted || !is_space(text[at]))) {
        const size_t after = std::min(text.find_first_not_of(u'\\', at), text.size());
        const size_t backslashes = after - at;
        at = after;
        if (at == text.size() || text[at] != u'"') {
            argument.append(backslashes, u'\\');
            if (backslashes == 0)
                argument += text[at++];
            continue;
        }
        argument.append(backslashes / 2, u'\\');
        ++at;
        if (backslashes % 2 != 0) {
            argument += u'"';
        } else if (quoted && at < text.size() && text[at] == u'"') {
            // A doubled quote inside quotes is one quote, and the quoting goes on.
            argument += u'"';
            ++at;
        } else {
            quoted = !quoted;
        }
    }
    text.remove_prefix(at);
    return argument;
}

} // namespace

command_line::command_line(wide_view text) {
    skip_spaces(text);
    is_quoted_ = text.starts_with(u'"');
    if (is_quoted_)
        text.remove_prefix(1);
    const size_t end = is_quoted_ ? text.find(u'"') : text.find_first_of(spaces);
    program_ = text.substr(0, end);
    rest_ = text.substr(std::min(text.size(), program_.size() + is_quoted_));
}

bool command_line::lengthen_program() {
    const size_t word = rest_.find_first_not_of(spaces);
    if (is_quoted_ || word == wide_view::npos)
        return false;
    const size_t end = std::min(rest_.find_first_of(spaces, word), rest_.size());
    program_ += rest_.substr(0, end);
    rest_.remove_prefix(end);
    return true;
}

std::vector<std::u16string> command_line::arguments() const {
    std::vector<std::u16string> words;
    wide_view text = rest_;
    for (skip_spaces(text); !text.empty(); skip_spaces(text))
        words.push_back(take_argument(text));
    return words;
}

} // namespace platform
