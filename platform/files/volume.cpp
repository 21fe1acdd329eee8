// Kinds of drives, devices and volumes.
#include "platform/files/volume.h"

#include <dirent.h>
#include <fcntl.h>
#include <linux/fs.h>
#include <linux/magic.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string_view>

#include "platform/core/descriptor.h"
#include "platform/core/error.h"
#include "platform/core/retry.h"

namespace platform {

namespace {

constexpr unsigned floppy_major = 2;
constexpr unsigned scsi_cdrom_major = 11;

struct file_system_kind {
    uint32_t magic;
    medium kind;
};
constexpr file_system_kind file_systems[] = {
    {NFS_SUPER_MAGIC, medium::remote},  {SMB_SUPER_MAGIC, medium::remote},
    {CIFS_SUPER_MAGIC, medium::remote}, {SMB2_SUPER_MAGIC, medium::remote},
    {V9FS_MAGIC, medium::remote},       {AFS_SUPER_MAGIC, medium::remote},
    {AFS_FS_MAGIC, medium::remote},     {CEPH_SUPER_MAGIC, medium::remote},
    {CODA_SUPER_MAGIC, medium::remote}, {0x0BD00BD0, medium::remote}, // lustre
    {0x564C, medium::remote},                                         // ncpfs
    {ISOFS_SUPER_MAGIC, medium::disc},  {UDF_SUPER_MAGIC, medium::disc},
    {TMPFS_MAGIC, medium::memory},      {RAMFS_MAGIC, medium::memory},
};

// The file systems of FUSE share one number.
constexpr std::string_view remote_in_user_space[] = {"fuse.sshfs", "fuse.davfs"};

medium kind_of(uint32_t magic, unsigned major, unsigned minor) {
    for (const file_system_kind& row : file_systems)
        if (row.magic == magic)
            return row.kind;
    if (magic == FUSE_SUPER_MAGIC) {
        // A file system whose name cannot be told counts as local.
        std::string name;
        file_system_of(major, minor, name);
        for (const std::string_view remote : remote_in_user_space)
            if (name == remote)
                return medium::remote;
    }
    return medium::fixed;
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

// The label that the host's device manager has found on a device; unchanged for none. 0 or a code.
DWORD label_in_dev(dev_t device, std::string& label) {
    const std::unique_ptr<DIR, int (*)(DIR*)> labels(opendir("/dev/disk/by-label"), closedir);
    if (!labels)
        return errno == ENOENT ? DWORD{ERROR_SUCCESS} : code_of_errno(errno);
    for (;;) {
        errno = 0;
        const dirent* entry = readdir(labels.get());
        if (!entry)
            return code_of_errno(errno);
        struct stat status;
        if (fstatat(dirfd(labels.get()), entry->d_name, &status, 0) == 0 && S_ISBLK(status.st_mode)
            && status.st_rdev == device)
            label = unescape(entry->d_name);
    }
}

bool medium_is_removable(unsigned major, unsigned minor) {
    // The folder of a partition has no such file. The folder above it, the disk's, has one.
    const std::string device = "/sys/dev/block/" + std::to_string(major) + ':' + std::to_string(minor);
    return first_line(device + "/removable") == "1" || first_line(device + "/../removable") == "1";
}

} // namespace

bool is_floppy(const mount_facts& facts) {
    return facts.major == floppy_major;
}

UINT drive_type_of(const mount_facts& facts) {
    if (facts.kind == medium::remote)
        return DRIVE_REMOTE;
    if (facts.kind == medium::disc || facts.major == scsi_cdrom_major)
        return DRIVE_CDROM;
    if (facts.kind == medium::memory)
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

DWORD read_mount_facts(const std::string& directory, mount_facts& out) {
    struct stat status;
    struct statfs system;
    if (stat(directory.c_str(), &status) != 0
        || retried([&] { return statfs(directory.c_str(), &system); }) != 0)
        return errno == ENOENT ? DWORD{ERROR_PATH_NOT_FOUND} : code_of_errno(errno);
    if (!S_ISDIR(status.st_mode))
        return ERROR_PATH_NOT_FOUND;
    out.major = major(status.st_dev);
    out.minor = minor(status.st_dev);
    out.kind = kind_of(static_cast<uint32_t>(system.f_type), out.major, out.minor);
    // Major number 0 stands for no device: such a file system lies on no medium.
    out.is_removable = out.major != 0 && medium_is_removable(out.major, out.minor);
    return ERROR_SUCCESS;
}

DWORD file_system_of(unsigned major, unsigned minor, std::string& name) {
    FILE* records = std::fopen("/proc/self/mountinfo", "re");
    if (!records)
        return code_of_errno(errno);
    char* line = nullptr;
    size_t room = 0;
    while (getline(&line, &room, records) > 0) {
        unsigned record_major = 0, record_minor = 0;
        char found[64] = "";
        const char* after = std::strstr(line, " - ");
        if (after && std::sscanf(line, "%*d %*d %u:%u", &record_major, &record_minor) == 2
            && record_major == major && record_minor == minor && std::sscanf(after + 3, "%63s", found) == 1)
            name = found;
    }
    const int error = std::feof(records) ? 0 : errno;
    std::free(line);
    std::fclose(records);
    return code_of_errno(error);
}

DWORD volume_label(const std::string& directory, std::string& label) {
    char text[FSLABEL_MAX + 1] = "";
    const descriptor opened(open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!opened && errno != EACCES)
        return code_of_errno(errno);
    if (opened && ioctl(opened.get(), FS_IOC_GETFSLABEL, text) == 0) {
        label = text;
        return ERROR_SUCCESS;
    }
    struct stat status;
    if (stat(directory.c_str(), &status) != 0)
        return code_of_errno(errno);
    return label_in_dev(status.st_dev, label);
}

} // namespace platform
