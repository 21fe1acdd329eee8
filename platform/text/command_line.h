// Inside the layer: a command line taken apart.
#pragma once

#include <string>
#include <vector>

#include "platform/api/base.h"

namespace platform {

// The program is the first word, or what stands between quotes at the start. In the arguments, quotes hold a word
// together, and backslashes are plain characters but before a quote: an even number is half as many and the quote
// counts, after an odd number it is a character too.
struct command_line {
    explicit command_line(wide_view text);

    std::u16string program;
    std::vector<std::u16string> arguments;
};

} // namespace platform
