// Inside the layer: names of files, between the platform's wide text and the host's bytes.
//
// Each name of the host has exactly one wide spelling and comes back from it byte by byte:
//   - a character in UTF-8 is itself;
//   - a byte that is no part of UTF-8 is U+DC00 + byte (U+DC80 ... U+DCFF, halves of a pair that no text has alone);
//   - a character that the platform forbids in names (\ : * ? " < > | and 1 ... 31) is U+F000 + character;
//   - the UTF-8 of such a U+F0xx itself is taken byte by byte, as bytes that are no part of UTF-8 are.
// Wide text outside that (an unpaired surrogate of another value, a forbidden character, escaped bytes that together
// would be UTF-8) names no file of the host.
#pragma once

#include <array>
#include <cstddef>
#include <string>
#include <string_view>

#include "platform/api/base.h"

namespace platform {

// Writes the wide spelling of a host name and gives its length: never more units than the name has bytes.
size_t wide_name(std::string_view host, WCHAR* out);

// Whether a unit of wide text is itself in names of the host: ASCII that the platform permits.
inline constexpr std::array<bool, 128> plain_units = [] {
    std::array<bool, 128> table{};
    for (size_t unit = 0x20; unit < table.size(); ++unit)
        table[unit] = std::string_view("\"*/:<>?\\|").find(static_cast<char>(unit)) == std::string_view::npos;
    return table;
}();
inline bool is_plain_unit(WCHAR unit) {
    return unit < plain_units.size() && plain_units[unit];
}

// Adds the wide spelling of a host name to a text.
void append_wide_name(std::string_view host, std::u16string& out);

// Adds the host's spelling of one component; false, with `out` unchanged, when no file can have that name.
bool append_host_name(wide_view name, std::string& out);

// Takes the first character off a host name, for case folding; a byte that is no part of UTF-8 counts as
// a character of its own.
char32_t take_character(std::string_view& host);

// Whether two names differ in the case of letters alone, or not at all.
bool same_name(std::string_view host, std::string_view other);

} // namespace platform
