// Kinds of drives, devices and volumes.
#include "platform/files/volume.h"

#include <dirent.h>
#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <string_view>

#include "platform/core/descriptor.h"

namespace platform {

namespace {

constexpr unsigned floppy_major = 2;
constexpr unsigned scsi_cdrom_major = 11;

constexpr std::string_view remote_file_systems[] = {"nfs",        "nfs4",  "cifs",  "smb3", "smbfs",
                                                    "9p",         "afs",   "ceph",  "coda", "fuse.sshfs",
                                                    "fuse.davfs", "ncpfs", "lustre"};
constexpr std::string_view disc_file_systems[] = {"iso9660", "udf"};
constexpr std::string_view memory_file_systems[] = {"tmpfs", "ramfs"};

template <size_t Count>
bool is_one_of(const std::string_view (&names)[Count], std::string_view name) {
    return std::find(std::begin(names), std::end(names), name) != std::end(names);
}

// Reads a file of one short line; empty when there is none.
std::string first_line(const std::string& path) {
    char line[256] = "";
    if (FILE* stream = std::fopen(path.c_str(), "re")) {
        if (!std::fgets(line, sizeof line, stream))
            line[0] = 0;
        std::fclose(stream);
    }
    return std::string(line, std::strcspn(line, "\n"));
}

// The record of the mount with this device: the file system and what is mounted, after " - ".
void read_mount_record(mount_facts& out) {
    FILE* records = std::fopen("/proc/self/mountinfo", "re");
    if (!records)
        return;
    char* line = nullptr;
    size_t room = 0;
    while (getline(&line, &room, records) > 0) {
        unsigned record_major = 0, record_minor = 0;
        char file_system[64] = "", source[512] = "";
        const char* after = std::strstr(line, " - ");
        if (std::sscanf(line, "%*d %*d %u:%u", &record_major, &record_minor) == 2 && record_major == out.major
            && record_minor == out.minor && after
            && std::sscanf(after + 3, "%63s %511s", file_system, source) == 2) {
            out.file_system = file_system;
            out.source = source;
        }
    }
    std::free(line);
    std::fclose(records);
}

// Names in /dev/disk/by-label write the odd characters of a label as \x20.
std::string unescape(std::string_view text) {
    std::string out;
    for (size_t i = 0; i < text.size(); ++i) {
        unsigned value = 0;
        if (text.substr(i).starts_with("\\x") && std::sscanf(text.data() + i + 2, "%2x", &value) == 1) {
            out += static_cast<char>(value);
            i += 3;
        } else {
            out += text[i];
        }
    }
    return out;
}

std::string label_in_dev(dev_t device) {
    std::string label;
    DIR* labels = opendir("/dev/disk/by-label");
    if (!labels)
        return label;
    while (const dirent* entry = readdir(labels)) {
        struct stat status;
        if (fstatat(dirfd(labels), entry->d_name, &status, 0) == 0 && S_ISBLK(status.st_mode)
            && status.st_rdev == device)
            label = unescape(entry->d_name);
    }
    closedir(labels);
    return label;
}

std::string label_of(const std::string& directory, dev_t device) {
    char label[FSLABEL_MAX + 1] = "";
    const descriptor opened(open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (opened && ioctl(opened.get(), FS_IOC_GETFSLABEL, label) == 0)
        return label;
    return label_in_dev(device);
}

bool medium_is_removable(unsigned major, unsigned minor) {
    // A partition has no such file; its disk, one folder up, has.
    const std::string device = "/sys/dev/block/" + std::to_string(major) + ':' + std::to_string(minor);
    return first_line(device + "/removable") == "1" || first_line(device + "/../removable") == "1";
}

} // namespace

bool is_floppy(const mount_facts& facts) {
    return facts.major == floppy_major;
}

UINT drive_type_of(const mount_facts& facts) {
    if (is_one_of(remote_file_systems, facts.file_system))
        return DRIVE_REMOTE;
    if (is_one_of(disc_file_systems, facts.file_system) || facts.major == scsi_cdrom_major)
        return DRIVE_CDROM;
    if (is_one_of(memory_file_systems, facts.file_system))
        return DRIVE_RAMDISK;
    return facts.is_removable || is_floppy(facts) ? DRIVE_REMOVABLE : DRIVE_FIXED;
}

std::u16string device_name_of(const mount_facts& facts, char letter) {
    std::string name;
    if (is_floppy(facts)) {
        name = "\\Device\\Floppy" + std::to_string(facts.minor);
    } else {
        switch (drive_type_of(facts)) {
        case DRIVE_REMOTE: name = std::string("\\Device\\LanmanRedirector\\") + letter + ':'; break;
        case DRIVE_CDROM: name = "\\Device\\CdRom" + std::to_string(facts.minor); break;
        case DRIVE_RAMDISK: name = std::string("\\Device\\Ramdisk") + letter; break;
        default: name = "\\Device\\HarddiskVolume" + std::to_string((letter | 0x20) - 'a' + 1); break;
        }
    }
    return std::u16string(name.begin(), name.end());
}

bool read_mount_facts(const std::string& directory, mount_facts& out) {
    struct stat status;
    if (stat(directory.c_str(), &status) != 0 || !S_ISDIR(status.st_mode))
        return false;
    out.major = major(status.st_dev);
    out.minor = minor(status.st_dev);
    read_mount_record(out);
    out.is_removable = medium_is_removable(out.major, out.minor);
    out.label = label_of(directory, status.st_dev);
    return true;
}

} // namespace platform
