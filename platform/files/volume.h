// Inside this folder: what the host says about the mount behind a drive, and what the platform would call that.
#pragma once

#include <string>

#include "platform/api/files.h"

namespace platform {

enum class medium {
    fixed,
    remote,
    disc,
    memory,
};

struct mount_facts {
    medium kind = medium::fixed; // of its file system
    unsigned major = 0;          // of the device
    unsigned minor = 0;
    bool is_removable = false; // the device's medium is
};

// DRIVE_REMOVABLE ... DRIVE_RAMDISK.
UINT drive_type_of(const mount_facts& facts);

bool is_floppy(const mount_facts& facts);

// \Device\Floppy0, \Device\CdRom0, \Device\HarddiskVolume1 ...: a name for the device behind a drive.
std::u16string device_name_of(const mount_facts& facts, char letter);

// Asks the host. 0, 3 where there is no such directory, or another code. A medium that cannot be asked about counts as
// one that stays.
DWORD read_mount_facts(const std::string& directory, mount_facts& out);

// What /proc/self/mountinfo names the file system of a device: ext4, nfs4, fuse.sshfs ... Empty where it cannot be
// told.
std::string file_system_of(unsigned major, unsigned minor);

// The label of the volume that a directory lies on; empty where it has none or none can be read.
std::string volume_label(const std::string& directory);

} // namespace platform
