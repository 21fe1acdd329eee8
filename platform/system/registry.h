// Inside the layer: the registry as its files hold it, a tree of keys.
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

// Names are stored case-folded, since two names that differ in case alone are one.
struct registry_node {
    std::map<std::u16string, std::unique_ptr<registry_node>, std::less<>> keys;
    std::map<std::u16string, registry_value, std::less<>> values;

    // The key at the end of a path, or null. Backslashes separate the names. Doubled ones count once, and one at the end
    // is ignored.
    const registry_node* find(wide_view path) const;
};

std::u16string folded_name(wide_view name);

// Takes the first name off a path; empty at the path's end.
wide_view take_key_name(wide_view& path);

inline constexpr wide_view current_user_root = u"hkey_current_user";

// The text of a file in the platform's export format, which is UTF-16 with a byte-order mark, or of the older format
// ("REGEDIT4"), which is in the host's character set, or else UTF-8. 0, or a code.
struct registry_text {
    std::u16string text;
    bool is_older = false;

    DWORD decode(std::string_view file);
};

// The lines that have no meaning. They are skipped and counted here.
struct skipped_lines {
    size_t count = 0;
    size_t first = 0; // counted from 1
};

// A range of lines, counted from 0. `end` is the line behind the last one.
struct line_range {
    size_t first, end;
};

// Is called for each key and value while a text is read, with the names as the text spells them.
class registry_listener {
public:
    virtual ~registry_listener() = default;
    virtual void on_key(wide_view path, bool removes, line_range lines) = 0;
    // A value of the key that was read last.
    virtual void on_value(wide_view name, bool removes, line_range lines) = 0;
};

// Adds the keys and values of a text to `roots`, whose children are the roots by name. If `only` is given, everything
// below other roots is left out.
skipped_lines read_registry_text(const registry_text& text, registry_node& roots, wide_view only = {},
                                 registry_listener* listener = nullptr);

// The paths of the machine's file and of the calling user's. The latter is empty for a user without a home; its result
// is 0, or a code.
std::string machine_registry_file();
DWORD user_registry_file(std::string& path);

// The registry as the files held it at some time.
struct registry_state {
    registry_node roots;
    DWORD user_code = 0; // why the user's own file could not be read, or 0
};
using state_pointer = std::shared_ptr<const registry_state>;

// The registry as the files hold it now: registry.reg of the host directory, and ~/.config/zu/registry.reg, which adds
// to HKEY_CURRENT_USER. The result is 0, or a code. The user's own file can fail a call only if `for_user` is true.
DWORD current_registry(bool for_user, state_pointer& result);

} // namespace platform
