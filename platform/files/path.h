// Inside this folder: from a path of the platform to the spelling of a path of the host.
//
// A long form (`\\?\`) is taken literally: `\` alone separates, and components that no file can have as a name are
// refused. Any other path is made a literal one first: a relative path is added to the current directory, and "." and
// ".." are resolved in the text alone. So no path text leaves the drive that it names.
#pragma once

#include <string>

#include "platform/files/name_map.h"

namespace platform {

inline constexpr size_t longest_path = 32767; // units
inline constexpr size_t longest_component = 255;

enum class path_use {
    exact,
    search, // the last component may hold wildcards, or be "." or ".."
};

struct parsed_path {
    std::string host;     // the path of the host that the text spells, from / on; no slash at its end
    size_t root_size = 0; // how many bytes of `host` are the drive's directory
    bool is_root = false; // the path is the drive's directory itself
    bool is_network = false;
    bool ends_with_separator = false;
    bool is_volume = false; // `\\?\C:`, the drive itself and no directory
    std::u16string pattern; // a search's last component, when it is not an exact name; `host` ends before it
};

// 0 or a code: that of a fault in the text, 3 (ERROR_PATH_NOT_FOUND) for a missing drive, 53 (ERROR_BAD_NETPATH) or 67
// (ERROR_BAD_NET_NAME) for a missing share.
DWORD parse_path(const WCHAR* path, path_use use, parsed_path& out);

// Whether a path means the null device: `nul` in any directory, unless the path is in long form.
bool is_null_device(wide_view path);

bool is_long_form(wide_view path);

} // namespace platform
