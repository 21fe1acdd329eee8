// Inside the layer: a command line taken apart.
#pragma once

#include <string>
#include <vector>

#include "platform/api/base.h"

namespace platform {

// The program is the quoted text at the start, or the first word. A path with spaces may have no quotes, so where no
// program has that name, the platform tries each longer text that ends at a space. In the arguments, quotes hold a word
// together. Backslashes are plain characters except before a quote: there each pair gives one backslash, and one that
// is left over makes the quote a plain character.
class command_line {
public:
    explicit command_line(wide_view text); // the text must outlive this

    const std::u16string& program() const { return program_; }
    std::vector<std::u16string> arguments() const;

    // Takes the next word into the program. False when it had quotes or there is no other word.
    bool lengthen_program();

private:
    std::u16string program_;
    wide_view rest_; // after the program
    bool is_quoted_ = false;
};

} // namespace platform
