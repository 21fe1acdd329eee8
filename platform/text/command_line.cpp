// Taking a command line apart, by the platform's rules.
#include "platform/text/command_line.h"

#include <algorithm>

namespace platform {

namespace {

bool is_space(WCHAR c) {
    return c == u' ' || c == u'\t';
}

void skip_spaces(wide_view& text) {
    text.remove_prefix(
        static_cast<size_t>(std::find_if_not(text.begin(), text.end(), is_space) - text.begin()));
}

std::u16string take_program(wide_view& text) {
    const bool quoted = !text.empty() && text[0] == u'"';
    if (quoted)
        text.remove_prefix(1);
    const auto is_end = [quoted](WCHAR c) { return quoted ? c == u'"' : is_space(c); };
    const auto end = std::find_if(text.begin(), text.end(), is_end);
    std::u16string program(text.begin(), end);
    text.remove_prefix(std::min(text.size(), program.size() + quoted));
    return program;
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
        } else if (quoted && at < text.size()
                   && text[at] == u'"') { // a doubled quote is one, and goes on quoting
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
    program = take_program(text);
    for (skip_spaces(text); !text.empty(); skip_spaces(text))
        arguments.push_back(take_argument(text));
}

} // namespace platform
