// Inside this folder: the registry as it stands in its file, keys by name within keys.
#pragma once

#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "platform/api/base.h"

namespace platform {

inline constexpr size_t longest_key_name = 255; // units
inline constexpr size_t deepest_key = 512;      // levels

struct registry_value {
    DWORD type;
    std::vector<BYTE> data;
};

// Names are folded, since case does not tell them apart.
struct registry_node {
    std::map<std::u16string, std::unique_ptr<registry_node>, std::less<>> keys;
    std::map<std::u16string, registry_value, std::less<>> values;

    // The key that backslashes lead to, doubled ones and one at the end counting once; null when there is none.
    const registry_node* find(wide_view path) const;
};

std::u16string folded_name(wide_view name);

// Takes the name up to the next backslash off the front of a path; empty at its end.
wide_view take_key_name(wide_view& path);

// Reads a file in the platform's export format, UTF-16 with a byte-order mark or else UTF-8. The node holds the roots
// by their names. A line that means nothing is skipped.
void read_registry_text(std::string_view file, registry_node& roots);

} // namespace platform
