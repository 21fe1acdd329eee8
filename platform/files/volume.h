// Inside this folder: the host's facts about the mount behind a drive, and the platform's names for them.
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
    medium kind = medium::fixed; // told by the file system
    unsigned major = 0;          // the device's numbers
    unsigned minor = 0;
    bool is_removable = false; // told by the device
};

// The kind of a drive: DRIVE_REMOVABLE ... DRIVE_RAMDISK.
UINT drive_type_of(const mount_facts& facts);

bool is_floppy(const mount_facts& facts);

// A name for the device behind a drive: \Device\Floppy0, \Device\CdRom0, \Device\HarddiskVolume1 ...
std::u16string device_name_of(const mount_facts& facts, char letter);

// Asks the host about the mount of a directory. 0, 3 when there is no such directory, or another code. For want of
// descriptors a medium counts as local and not removable: a drive that exists must not seem to be missing.
DWORD read_mount_facts(const std::string& directory, mount_facts& out);

// The name of a device's file system, as /proc/self/mountinfo has it: ext4, nfs4, fuse.sshfs ... Unchanged when it is
// not mounted here. 0 or a code.
DWORD file_system_of(unsigned major, unsigned minor, std::string& name);

// The label of the volume that a directory lies on; unchanged where it has none. 0 or a code.
DWORD volume_label(const std::string& directory, std::string& label);

} // namespace platform
