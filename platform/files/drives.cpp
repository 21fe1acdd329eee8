// Drive letters and network shares.
#include "platform/files/drives.h"

#include <fcntl.h>
#include <limits.h>
#include <time.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <vector>

#include "platform/core/error.h"
#include "platform/core/host_dir.h"
#include "platform/core/retry.h"
#include "platform/core/thread_own.h"
#include "platform/files/directory_scan.h"
#include "platform/files/spelling.h"

namespace platform {

namespace {

constexpr size_t letter_count = 26;
constexpr size_t system_drive = 'c' - 'a';
constexpr size_t whole_drive = 'z' - 'a';

constexpr time_t never = -1;
constexpr time_t memory_seconds = 1;
constexpr size_t shares_remembered_at_most = 64;

struct known_drive {
    time_t read_at = never;
    std::string directory; // without a slash at its end: empty for /
};

struct known_share {
    std::u16string server;
    std::u16string share;
    time_t read_at;
    std::string directory;
};

// A directory, by a path without links, and the drive or share that leads there.
struct way_back {
    std::string directory;
    std::u16string root; // C: or \\srv\share
};

// The part of the host directory that a thread has read.
struct drive_memory {
    host_directory_watch watch;
    std::string host_directory;
    std::array<known_drive, letter_count> drives;
    std::vector<known_share> shares;
    time_t drive_ways_read_at = never;
    std::vector<way_back> drive_ways;
    time_t share_ways_read_at = never;
    std::vector<way_back> share_ways;
};

time_t seconds_now() {
    timespec now;
    clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
    return now.tv_sec;
}

bool is_fresh(time_t read_at, time_t now) {
    return read_at != never && now - read_at < memory_seconds;
}

// The thread's memory, empty when the host directory is another one than before.
drive_memory& memory() {
    drive_memory& mine = thread_own<drive_memory>::get();
    if (mine.watch.may_have_changed() && mine.host_directory != host_directory()) {
        mine = {};
        mine.watch.may_have_changed();
        mine.host_directory = host_directory();
    }
    return mine;
}

bool is_absence(int error) {
    return error == ENOENT || error == ENOTDIR;
}

// The directory that an entry of the host directory stands for: a link's text is taken as it is, so that a drive
// costs neither a descriptor nor a look at the file system behind it. 0, 2 (ERROR_FILE_NOT_FOUND) for no such entry, or
// another code.
DWORD read_entry(const std::string& folder, std::string_view entry, std::string& directory) {
    const std::string path = folder + '/' + std::string(entry);
    char text[PATH_MAX];
    const ssize_t size = readlink(path.c_str(), text, sizeof text);
    if (size < 0 && errno != EINVAL) // EINVAL: a directory, not a link
        return is_absence(errno) ? DWORD{ERROR_FILE_NOT_FOUND} : code_of_errno(errno);
    directory = size < 0 ? path : std::string(text, static_cast<size_t>(size));
    if (directory[0] != '/')
        directory = folder + '/' + directory;
    while (!directory.empty() && directory.back() == '/')
        directory.pop_back();
    return ERROR_SUCCESS;
}

// ---- Drives ----------------------------------------------------------------------------------------------------

// The directory of a letter's own entry, in either case.
DWORD read_letter(const std::string& folder, size_t letter, std::string& directory) {
    const char lower[] = {static_cast<char>('a' + letter), ':', 0},
               upper[] = {static_cast<char>('A' + letter), ':', 0};
    const DWORD code = read_entry(folder, lower, directory);
    return code == ERROR_FILE_NOT_FOUND ? read_entry(folder, upper, directory) : code;
}

DWORD read_drive(const std::string& host_directory, size_t letter, std::string& directory) {
    const std::string folder = host_directory + "/drives";
    const DWORD code = read_letter(folder, letter, directory);
    if (code != ERROR_FILE_NOT_FOUND || (letter != system_drive && letter != whole_drive))
        return code;
    // Without entries, C: is /, and Z: is / when C: is elsewhere.
    std::string system;
    if (letter == whole_drive)
        if (const DWORD system_code = read_letter(folder, system_drive, system))
            return system_code;
    if (letter == whole_drive && system.empty())
        return ERROR_FILE_NOT_FOUND;
    directory.clear();
    return ERROR_SUCCESS;
}

// Makes sure that the letter's directory is known: 0, 2 for no such drive, or another code.
DWORD find_drive(drive_memory& drives, size_t letter, time_t now) {
    known_drive& drive = drives.drives[letter];
    if (is_fresh(drive.read_at, now))
        return ERROR_SUCCESS;
    std::string directory;
    const DWORD code = read_drive(drives.host_directory, letter, directory);
    if (code == ERROR_SUCCESS)
        drive = {now, std::move(directory)};
    else if (code == ERROR_FILE_NOT_FOUND)
        drive.read_at = never;
    else if (drive.read_at != never)
        return ERROR_SUCCESS;
    return code;
}

// ---- Shares ----------------------------------------------------------------------------------------------------

// Gives the stored spelling of a folder's entry. 0, `missing`, or another code.
DWORD find_entry(const std::string& folder, wide_view name, DWORD missing, std::string& entry) {
    if (!append_host_name(name, entry) || entry.empty())
        return missing;
    descriptor opened(open_to_list(AT_FDCWD, folder.c_str()));
    if (opened)
        entry = find_spelling_in(std::move(opened), entry);
    else
        entry.clear();
    return !entry.empty() ? DWORD{ERROR_SUCCESS} : is_absence(errno) ? missing : code_of_errno(errno);
}

DWORD read_share(const std::string& host_directory, wide_view server, wide_view share,
                 std::string& directory) {
    std::string folder = host_directory + "/drives/unc", entry;
    if (const DWORD code = find_entry(folder, server, ERROR_BAD_NETPATH, entry))
        return code;
    folder += '/' + entry;
    entry.clear();
    if (const DWORD code = find_entry(folder, share, ERROR_BAD_NET_NAME, entry))
        return code;
    const DWORD code = read_entry(folder, entry, directory);
    return code == ERROR_FILE_NOT_FOUND ? DWORD{ERROR_BAD_NET_NAME} : code;
}

// ---- From the host's paths -------------------------------------------------------------------------------------

// Adds the way back from a directory, by the path that it has without links. A directory that does not exist, or that
// the user may not enter, needs none. 0 or a code.
DWORD add_way(const std::string& directory, std::u16string root, std::vector<way_back>& ways) {
    char* real = directory.empty() ? nullptr : realpath(directory.c_str(), nullptr);
    if (!real && !directory.empty()) {
        const bool leads_nowhere =
            is_absence(errno) || errno == ELOOP || errno == EACCES || errno == ENAMETOOLONG;
        return leads_nowhere ? DWORD{ERROR_SUCCESS} : code_of_errno(errno);
    }
    const std::string_view path = real ? real : "";
    ways.push_back({path == "/" ? std::string() : std::string(path), std::move(root)});
    std::free(real);
    return ERROR_SUCCESS;
}

DWORD read_drive_ways(drive_memory& drives, time_t now) {
    std::vector<way_back> ways;
    for (size_t letter = 0; letter < letter_count; ++letter) {
        DWORD code = find_drive(drives, letter, now);
        if (code == ERROR_SUCCESS)
            code = add_way(drives.drives[letter].directory, {static_cast<WCHAR>(u'A' + letter), u':'}, ways);
        if (code != ERROR_SUCCESS && code != ERROR_FILE_NOT_FOUND)
            return code;
    }
    drives.drive_ways = std::move(ways);
    drives.drive_ways_read_at = now;
    return ERROR_SUCCESS;
}

// Lists the names in a folder; none for a folder that does not exist. 0 or a code.
DWORD list_folder(const std::string& folder, std::vector<std::string>& names) {
    directory_reader reader(descriptor(open_to_list(AT_FDCWD, folder.c_str())));
    if (reader.directory() < 0)
        return is_absence(errno) ? DWORD{ERROR_SUCCESS} : code_of_errno(errno);
    while (reader.fill())
        for (directory_reader::entry entry; reader.take(entry);)
            names.emplace_back(entry.name);
    return code_of_errno(errno);
}

DWORD read_share_ways(drive_memory& drives, time_t now) {
    const std::string folder = drives.host_directory + "/drives/unc";
    std::vector<way_back> ways;
    std::vector<std::string> servers;
    DWORD code = list_folder(folder, servers);
    for (const std::string& server : servers) {
        std::vector<std::string> shares;
        std::string server_folder = folder;
        server_folder.append("/").append(server);
        if (code == ERROR_SUCCESS)
            code = list_folder(server_folder, shares);
        for (const std::string& share : shares) {
            std::string directory;
            std::u16string root = u"\\\\";
            append_wide_name(server, root);
            append_wide_name(share, root += u'\\');
            if (code == ERROR_SUCCESS)
                code = read_entry(server_folder, share, directory);
            if (code == ERROR_SUCCESS)
                code = add_way(directory, std::move(root), ways);
            else if (code == ERROR_FILE_NOT_FOUND || code == ERROR_ACCESS_DENIED)
                code = ERROR_SUCCESS; // it has just been removed, or the user may not enter
        }
    }
    if (code != ERROR_SUCCESS)
        return code;
    drives.share_ways = std::move(ways);
    drives.share_ways_read_at = now;
    return ERROR_SUCCESS;
}

bool lies_in(std::string_view path, std::string_view directory) {
    return path.starts_with(directory) && (path.size() == directory.size() || path[directory.size()] == '/');
}

const way_back* longest_way(const std::vector<way_back>& ways, std::string_view path) {
    const way_back* longest = nullptr;
    for (const way_back& way : ways) {
        if (lies_in(path, way.directory) && (!longest || way.directory.size() > longest->directory.size()))
            longest = &way;
    }
    return longest;
}

} // namespace

DWORD append_drive_directory(char letter, std::string& out) {
    drive_memory& drives = memory();
    const auto index = static_cast<size_t>((letter | 0x20) - 'a');
    const DWORD code = find_drive(drives, index, seconds_now());
    if (code != ERROR_SUCCESS)
        return code == ERROR_FILE_NOT_FOUND ? DWORD{ERROR_PATH_NOT_FOUND} : code;
    out += drives.drives[index].directory;
    return ERROR_SUCCESS;
}

DWORD append_share_directory(wide_view server, wide_view share, std::string& out) {
    drive_memory& drives = memory();
    const time_t now = seconds_now();
    const auto is_it = [&](const known_share& known) {
        return known.server == server && known.share == share;
    };
    const auto known = std::find_if(drives.shares.begin(), drives.shares.end(), is_it);
    const bool is_known = known != drives.shares.end();
    if (is_known && is_fresh(known->read_at, now)) {
        out += known->directory;
        return ERROR_SUCCESS;
    }
    std::string directory;
    const DWORD code = read_share(drives.host_directory, server, share, directory);
    const bool is_missing = code == ERROR_BAD_NETPATH || code == ERROR_BAD_NET_NAME;
    if (code != ERROR_SUCCESS && !is_missing && is_known) {
        out += known->directory;
        return ERROR_SUCCESS;
    }
    if (is_known)
        drives.shares.erase(known);
    if (code != ERROR_SUCCESS)
        return code;
    out += directory;
    if (drives.shares.size() == shares_remembered_at_most)
        drives.shares.clear();
    drives.shares.push_back({std::u16string(server), std::u16string(share), now, std::move(directory)});
    return ERROR_SUCCESS;
}

DWORD path_of_host_path(std::string_view host_path, std::u16string& out) {
    drive_memory& drives = memory();
    const time_t now = seconds_now();
    if (!is_fresh(drives.drive_ways_read_at, now))
        if (const DWORD code = read_drive_ways(drives, now); code && drives.drive_ways_read_at == never)
            return code;
    const way_back* way = longest_way(drives.drive_ways, host_path);
    if (!way) {
        if (!is_fresh(drives.share_ways_read_at, now))
            if (const DWORD code = read_share_ways(drives, now); code && drives.share_ways_read_at == never)
                return code;
        way = longest_way(drives.share_ways, host_path);
    }
    if (!way)
        return ERROR_PATH_NOT_FOUND;
    out = way->root;
    host_path.remove_prefix(way->directory.size());
    while (!host_path.empty()) {
        host_path.remove_prefix(1);
        const std::string_view component = host_path.substr(0, host_path.find('/'));
        out += u'\\';
        append_wide_name(component, out);
        host_path.remove_prefix(component.size());
    }
    if (out.size() == 2)
        out += u'\\';
    return ERROR_SUCCESS;
}

} // namespace platform
