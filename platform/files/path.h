// Inside this folder: from a path of the platform to the spelling of a path of the host.
//
// A long form (`\\?\`) is taken literally: `\` alone separates, and what no name can be is refused. Everything else
// is resolved lexically first, against the current directory where it is relative, and then taken the same way: so
// no path text leaves the drive that it names.
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
    std::string host;     // what the path spells on the host, from / on; no slash at its end
    size_t root_size = 0; // the bytes of `host` that are the drive's directory
    bool is_root = false; // nothing below the drive's directory
    bool is_network = false;
    bool ends_with_separator = false;
    bool is_volume = false; // `\\?\C:`, the drive itself and no directory
    std::u16string pattern; // a search's last component, when it is not an exact name; `host` ends before it
};

// 0, or the code of what is wrong with the text or of the missing drive (3) or share (53, 67).
DWORD parse_path(const WCHAR* path, path_use use, parsed_path& out);

// `nul` in any directory, in a path that is not in long form: the device that swallows everything.
bool is_null_device(wide_view path);

bool is_long_form(wide_view path);

} // namespace platform
