// Inside this folder: the registry as it stands in its files, keys by name within keys.
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

inline constexpr wide_view current_user_root = u"hkey_current_user";

// The text of a file in the platform's export format, which is UTF-16 with a byte-order mark, or of the older format
// ("REGEDIT4"), which is in the host's character set, or else UTF-8. 0, or a code.
struct registry_text {
    std::u16string text;
    bool is_older = false;

    DWORD decode(std::string_view file);
};

// Lines that mean nothing are skipped, and counted here.
struct skipped_lines {
    size_t count = 0;
    size_t first = 0; // counted from 1
};

// Adds what a text says to the roots, which the node holds by their names; below one root alone where `only` names it.
skipped_lines read_registry_text(const registry_text& text, registry_node& roots, wide_view only = {});

// What the files said at some time.
struct registry_state {
    registry_node roots;
    DWORD user_code = 0; // why the user's own file could not be read, or 0
};
using state_pointer = std::shared_ptr<const registry_state>;

// What the files say now: registry.reg of the host directory, and what ~/.config/zu/registry.reg adds below
// HKEY_CURRENT_USER. 0, or a code; the user's own file matters only to who asks for it.
DWORD current_registry(bool for_user, state_pointer& result);

} // namespace platform
