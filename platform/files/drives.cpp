// Drive letters and network shares.
#include "platform/files/drives.h"

#include <fcntl.h>
#include <limits.h>
#include <time.h>

#include <array>
#include <cstdlib>
#include <optional>
#include <vector>

#include "platform/core/error.h"
#include "platform/core/host_dir.h"
#include "platform/core/thread_own.h"
#include "platform/files/directory_scan.h"

namespace platform {

namespace {

using host_target = std::optional<std::string>;

constexpr size_t letter_count = 26;
constexpr int64_t memory_seconds = 1;

struct known_share {
    std::u16string server;
    std::u16string share;
    std::string target;
};

// What the thread has read of the host directory.
struct drive_memory {
    std::string host_directory;
    timespec read_at{};
    std::array<host_target, letter_count> drives;
    std::array<host_target, letter_count> real_drives; // without links, for the way back from a host path
    bool has_real_drives = false;
    std::vector<known_share> shares;
};

size_t index_of(char letter) {
    return static_cast<size_t>((letter | 0x20) - 'a');
}

// The directory that an entry of the host directory stands for: a link's text is taken as it is, so that a drive
// costs no look at the file system behind it.
std::string target_of(int at, const char* entry, const std::string& folder) {
    char text[PATH_MAX];
    const ssize_t size = readlinkat(at, entry, text, sizeof text);
    std::string target = size > 0 ? std::string(text, static_cast<size_t>(size)) : entry;
    if (target[0] != '/')
        target = folder + '/' + target;
    while (!target.empty() && target.back() == '/')
        target.pop_back();
    return target;
}

void load(drive_memory& memory) {
    memory.drives.fill(std::nullopt);
    memory.has_real_drives = false;
    memory.shares.clear();
    const std::string folder = memory.host_directory + "/drives";
    directory_reader reader(open_directory(AT_FDCWD, folder.c_str()));
    while (reader.directory() >= 0 && reader.fill()) {
        for (directory_reader::entry entry; reader.take(entry);) {
            if (entry.name.size() == 2 && entry.name[1] == ':'
                && is_drive_letter(static_cast<unsigned char>(entry.name[0])))
                memory.drives[index_of(entry.name[0])] =
                    target_of(reader.directory(), entry.name.data(), folder);
        }
    }
    host_target& system = memory.drives[index_of('c')];
    host_target& whole = memory.drives[index_of('z')];
    if (!system)
        system = "";
    else if (!system->empty() && !whole)
        whole = "";
}

// The thread's memory, read anew when it is old or the host directory is another one.
drive_memory& memory(bool read_anew = false) {
    drive_memory& mine = thread_own<drive_memory>::get();
    const char* host = host_directory();
    timespec now;
    clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
    if (read_anew || mine.host_directory != host || now.tv_sec - mine.read_at.tv_sec >= memory_seconds) {
        mine.host_directory = host;
        mine.read_at = now;
        load(mine);
    }
    return mine;
}

void load_real_drives(drive_memory& drives) {
    for (size_t i = 0; i < letter_count; ++i) {
        drives.real_drives[i] = drives.drives[i];
        if (!drives.drives[i] || drives.drives[i]->empty())
            continue;
        char* real = realpath(drives.drives[i]->c_str(), nullptr);
        drives.real_drives[i] = real ? host_target(real) : std::nullopt;
        std::free(real);
    }
    drives.has_real_drives = true;
}

bool lies_in(std::string_view path, std::string_view directory) {
    return path.starts_with(directory) && (path.size() == directory.size() || path[directory.size()] == '/');
}

// 0, 53 or 67, and the share's directory.
DWORD find_share(const drive_memory& drives, wide_view server, wide_view share, std::string& target) {
    const std::string folder = drives.host_directory + "/drives/unc";
    std::string server_name, share_name;
    if (!append_host_name(server, server_name) || server_name.empty())
        return ERROR_BAD_NETPATH;
    server_name = find_in_directory(open_directory(AT_FDCWD, folder.c_str()), server_name);
    if (server_name.empty())
        return ERROR_BAD_NETPATH;
    const std::string server_folder = folder + '/' + server_name;
    if (!append_host_name(share, share_name) || share_name.empty())
        return ERROR_BAD_NET_NAME;
    share_name = find_in_directory(open_directory(AT_FDCWD, server_folder.c_str()), share_name);
    if (share_name.empty())
        return ERROR_BAD_NET_NAME;
    const descriptor server_directory = open_directory(AT_FDCWD, server_folder.c_str());
    target = target_of(server_directory.get(), share_name.c_str(), server_folder);
    return ERROR_SUCCESS;
}

} // namespace

bool append_drive_directory(char letter, std::string& out) {
    const size_t index = index_of(letter);
    const host_target* target = &memory().drives[index];
    if (!*target)
        target = &memory(true).drives[index];
    if (!*target)
        return false;
    out += **target;
    return true;
}

DWORD append_share_directory(wide_view server, wide_view share, std::string& out) {
    drive_memory& drives = memory();
    for (const known_share& known : drives.shares) {
        if (known.server == server && known.share == share) {
            out += known.target;
            return ERROR_SUCCESS;
        }
    }
    std::string target;
    const DWORD code = find_share(drives, server, share, target);
    if (code != ERROR_SUCCESS)
        return code;
    out += target;
    drives.shares.push_back({std::u16string(server), std::u16string(share), std::move(target)});
    return ERROR_SUCCESS;
}

std::u16string drive_path_of(std::string_view host_path) {
    drive_memory& drives = memory();
    if (!drives.has_real_drives)
        load_real_drives(drives);
    const std::string* longest = nullptr;
    size_t letter = 0;
    for (size_t i = 0; i < letter_count; ++i) {
        const host_target& real = drives.real_drives[i];
        if (real && lies_in(host_path, *real) && (!longest || real->size() > longest->size())) {
            longest = &*real;
            letter = i;
        }
    }
    std::u16string path;
    if (!longest)
        return path;
    path = {static_cast<WCHAR>(u'A' + letter), u':'};
    host_path.remove_prefix(longest->size());
    while (!host_path.empty()) {
        host_path.remove_prefix(1);
        const std::string_view component = host_path.substr(0, host_path.find('/'));
        path += u'\\';
        append_wide_name(component, path);
        host_path.remove_prefix(component.size());
    }
    if (path.size() == 2)
        path += u'\\';
    return path;
}

std::u16string current_directory() {
    char* host = getcwd(nullptr, 0);
    if (!host) {
        set_last_error_from_errno();
        return {};
    }
    // A directory outside the process's root has no path that starts at it.
    std::u16string path = host[0] == '/' ? drive_path_of(host) : std::u16string();
    std::free(host);
    if (path.empty())
        SetLastError(ERROR_PATH_NOT_FOUND);
    return path;
}

} // namespace platform
