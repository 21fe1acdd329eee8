// Inside the layer: drive letters and network shares, kept as symbolic links in the host directory.
//
//     drives/c:               a link to the drive's directory; without it C: is /, and when C: is elsewhere, Z: is /
//     drives/unc/srv/share    likewise for \\srv\share
//
// Each thread remembers what it has read for a second, so that a path costs no call for its drive; a letter or share
// that is not known is always looked up anew. A failed look-up never counts as "there is no such drive": the thread
// goes on with what it has read before, and when it has read nothing, the call fails with the host's code.
#pragma once

#include <string>
#include <string_view>

#include "platform/files/name_map.h"

namespace platform {

// Adds the host path of the drive's directory, without a slash at its end (nothing for /). 0, 3 (ERROR_PATH_NOT_FOUND)
// for no such drive, or the code of the failure that kept it from being looked up.
DWORD append_drive_directory(char letter, std::string& out);

// Likewise for a share: 53 (ERROR_BAD_NETPATH) for an unknown server, 67 (ERROR_BAD_NET_NAME) for a share that the
// server does not have.
DWORD append_share_directory(wide_view server, wide_view share, std::string& out);

// The drive path (C:\dir) of a host path: of all drives, the one whose directory is the longest prefix. Where no drive
// leads, the network path (\\srv\share\dir) by the share whose directory is. 0, 3 where neither leads, or another code.
DWORD path_of_host_path(std::string_view host_path, std::u16string& out);

inline bool is_drive_letter(WCHAR unit) {
    return (unit | 0x20u) - 'a' < 26u;
}

} // namespace platform
