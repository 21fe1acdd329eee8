// Inside the layer: drive letters and network shares, kept as symbolic links in the host directory.
//
//     drives/c:               a link to the drive's directory; without it C: is /, and when C: is elsewhere, Z: is /
//     drives/unc/srv/share    likewise for \\srv\share
//
// Each thread remembers what it has read for a second, so that a path costs no call for its drive; a letter or share
// that is not known is always looked up anew.
#pragma once

#include <string>
#include <string_view>

#include "platform/files/name_map.h"

namespace platform {

// Adds the host path of the drive's directory, without a slash at its end (nothing for /); false: no such drive.
bool append_drive_directory(char letter, std::string& out);

// Likewise for a share: 0, or 53 for an unknown server, 67 for a share that the server does not have.
DWORD append_share_directory(wide_view server, wide_view share, std::string& out);

// The drive path (C:\dir) of a host path: of all drives, the one whose directory is the longest prefix. Empty when
// no drive leads there.
std::u16string drive_path_of(std::string_view host_path);

// The host's working directory as a drive path, without a separator at its end but that of a root; empty, with the
// code set, when it is gone or on no drive.
std::u16string current_directory();

inline bool is_drive_letter(WCHAR unit) {
    return (unit | 0x20u) - 'a' < 26u;
}

} // namespace platform
