// Inside this folder: what the host says about the mount behind a drive, and what the platform would call that.
#pragma once

#include <string>

#include "platform/api/files.h"

namespace platform {

struct mount_facts {
    std::string file_system; // as /proc/self/mountinfo names it: ext4, nfs4, fuse.sshfs ...
    std::string source;      // what is mounted
    unsigned major = 0;      // of the device
    unsigned minor = 0;
    bool is_removable = false; // the device's medium is
    std::string label;
};

// DRIVE_REMOVABLE ... DRIVE_RAMDISK.
UINT drive_type_of(const mount_facts& facts);

bool is_floppy(const mount_facts& facts);

// \Device\Floppy0, \Device\CdRom0, \Device\HarddiskVolume1 ...: a name for the device behind a drive.
std::u16string device_name_of(const mount_facts& facts, char letter);

// Asks the host. False when there is no such directory.
bool read_mount_facts(const std::string& directory, mount_facts& out);

} // namespace platform
