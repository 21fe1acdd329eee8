// zu drive: letters and shares, which are symbolic links in the host directory.
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <memory>

#include "platform/api/files.h"
#include "platform/core/error.h"
#include "platform/core/host_dir.h"
#include "platform/files/drives.h"
#include "platform/text/utf8.h"
#include "tools/tools.h"

namespace zu_tools {

namespace {

[[noreturn]] void fail_by_errno(const std::string& what) {
    fail(what, platform::code_of_errno(errno));
}

const char* kind_name(platform::UINT kind) {
    switch (kind) {
    case 1: return "missing";
    case 2: return "removable";
    case 3: return "fixed";
    case 4: return "remote";
    case 5: return "disc";
    case 6: return "memory";
    default: return "unknown";
    }
}

std::string readable_size(uint64_t bytes) {
    const char* unit = "BKMGTPE";
    auto size = static_cast<double>(bytes);
    while (size >= 1024 && unit[1]) {
        size /= 1024;
        ++unit;
    }
    char text[32];
    std::snprintf(text, sizeof text, *unit == 'B' || size >= 100 ? "%.0f %c" : "%.1f %c", size, *unit);
    return text;
}

void add_row(const arguments& given, const std::u16string& root, const std::string& directory, table& rows) {
    const std::u16string top = root + u'\\';
    platform::WCHAR label[256] = {};
    platform::GetVolumeInformationW(top.c_str(), label, 256, nullptr, nullptr, nullptr, nullptr, 0);
    struct statvfs space {};
    const bool is_there = statvfs(directory.empty() ? "/" : directory.c_str(), &space) == 0;
    const uint64_t bytes = uint64_t{space.f_bavail} * space.f_frsize;
    const cell free = !is_there ? cell("") : given.as_json ? cell(bytes) : cell(readable_size(bytes));
    rows.add({platform::utf8_of(root), directory.empty() ? "/" : directory,
              kind_name(platform::GetDriveTypeW(top.c_str())), platform::utf8_of(label), free});
}

// The names in a folder; none when it is missing.
std::vector<std::string> names_in(const std::string& folder) {
    std::vector<std::string> names;
    const std::unique_ptr<DIR, int (*)(DIR*)> reader(opendir(folder.c_str()), closedir);
    if (!reader && errno != ENOENT && errno != ENOTDIR)
        fail_by_errno(folder);
    while (const dirent* entry = reader ? readdir(reader.get()) : nullptr) {
        if (entry->d_name[0] != '.')
            names.emplace_back(entry->d_name);
    }
    return names;
}

int list(const arguments& given) {
    given.expect(1, 1);
    table rows({"root", "directory", "kind", "label", "free"});
    for (char letter = 'A'; letter <= 'Z'; ++letter) {
        std::string directory;
        const platform::DWORD code = platform::append_drive_directory(letter, directory);
        if (code == ERROR_PATH_NOT_FOUND)
            continue;
        check(code, std::string(1, letter) + ':');
        add_row(given, {static_cast<platform::WCHAR>(letter), u':'}, directory, rows);
    }
    const std::string shares = platform::in_host_directory("drives/unc");
    for (const std::string& server : names_in(shares)) {
        std::string server_folder = shares;
        server_folder.append("/").append(server);
        for (const std::string& share : names_in(server_folder)) {
            std::u16string root = u"\\\\", name;
            platform::append_wide_name(server, root);
            platform::append_wide_name(share, name);
            std::string directory;
            if (platform::append_share_directory(root.substr(2), name, directory) == ERROR_SUCCESS)
                add_row(given, root.append(u"\\").append(name), directory, rows);
        }
    }
    rows.print(given);
    return done;
}

// The path of the link for D: or \\server\share in the host directory.
std::string entry_of(const std::string& root) {
    std::string path = platform::in_host_directory("drives");
    if (root.size() == 2 && root[1] == ':' && platform::is_drive_letter(root[0]))
        return path + '/' + static_cast<char>(root[0] | 0x20) + ':';
    const size_t share = root.find('\\', 2);
    if (!root.starts_with("\\\\") || share == std::string::npos || share == 2)
        misuse("neither a drive (D:) nor a share (\\\\server\\share): " + root);
    path += "/unc/";
    const bool named = platform::append_host_name(platform::wide_from(root.substr(2, share - 2)), path);
    path += '/';
    if (!named || !platform::append_host_name(platform::wide_from(root.substr(share + 1)), path))
        misuse("no server or share can have that name: " + root);
    return path;
}

void make_folders(const std::string& entry) {
    for (size_t end = entry.find('/', 1); end != std::string::npos; end = entry.find('/', end + 1)) {
        const std::string folder = entry.substr(0, end);
        if (mkdir(folder.c_str(), 0755) != 0 && errno != EEXIST)
            fail_by_errno(folder);
    }
}

int map(const arguments& given) {
    given.expect(3, 3);
    const std::string entry = entry_of(given.words[1]), directory = absolute(given.words[2]);
    struct stat status;
    if (stat(directory.c_str(), &status) != 0)
        fail_by_errno(directory);
    if (!S_ISDIR(status.st_mode))
        fail(directory + " is no directory");
    make_folders(entry);
    // A new link takes the place of the old one, so that the drive is never missing.
    const std::string made = entry.substr(0, entry.rfind('/')) + "/.new" + std::to_string(getpid());
    if (symlink(directory.c_str(), made.c_str()) != 0)
        fail_by_errno(made);
    if (rename(made.c_str(), entry.c_str()) != 0) {
        const int error = errno;
        unlink(made.c_str());
        errno = error;
        fail_by_errno(entry);
    }
    return done;
}

int unmap(const arguments& given) {
    given.expect(2, 2);
    std::string entry = entry_of(given.words[1]);
    if (faccessat(AT_FDCWD, entry.c_str(), F_OK, AT_SYMLINK_NOFOLLOW) != 0
        && entry.ends_with(':')) // a link in upper case was made by hand
        entry[entry.size() - 2] = static_cast<char>(entry[entry.size() - 2] & ~0x20);
    if (unlink(entry.c_str()) != 0)
        errno == ENOENT ? fail(given.words[1] + " is not mapped") : fail_by_errno(entry);
    if (const size_t folder = entry.rfind("/unc/"); folder != std::string::npos)
        rmdir(entry.substr(0, entry.rfind('/')).c_str()); // removes the server's folder if it is empty
    return done;
}

} // namespace

int drive(const arguments& given) {
    given.allow({"--json"});
    return run_order(given, {{"list", list}, {"map", map}, {"unmap", unmap}});
}

} // namespace zu_tools
