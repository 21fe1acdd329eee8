// The files of systemd's units.
#include "platform/services/unit_files.h"

#include <dirent.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <memory>

#include "platform/api/services.h"
#include "platform/core/error.h"
#include "platform/services/systemd.h"
#include "platform/text/case_fold.h"
#include "platform/text/utf8.h"

namespace platform {

namespace {

constexpr std::string_view suffix = ".service";

// Where systemd looks, in its order.
constexpr const char* folders[] = {
    "/etc/systemd/system.control",   "/run/systemd/system.control",  "/run/systemd/transient",
    "/run/systemd/generator.early",  "/etc/systemd/system",          "/etc/systemd/system.attached",
    "/run/systemd/system",           "/run/systemd/system.attached", "/run/systemd/generator",
    "/usr/local/lib/systemd/system", "/usr/lib/systemd/system",      "/lib/systemd/system",
    "/run/systemd/generator.late"};

bool is_unit_character(char c) {
    return (c >= '0' && c <= '9') || ((c | 0x20) >= 'a' && (c | 0x20) <= 'z')
           || std::string_view(":-_.@").find(c) != std::string_view::npos;
}

// Looks for a file of this very name. A file of no content, or a link to a device, masks the unit.
DWORD find_exactly(const std::string& name, unit_file& out) {
    for (const char* folder : folders) {
        struct stat found;
        const bool is_there = stat((std::string(folder) + '/' + name).c_str(), &found) == 0;
        if (!is_there && errno != ENOENT && errno != ENOTDIR && errno != ELOOP)
            return code_of_errno(errno);
        if (!is_there || S_ISDIR(found.st_mode)) // systemd passes over directories
            continue;
        out = {name, S_ISCHR(found.st_mode) || found.st_size == 0};
        return ERROR_SUCCESS;
    }
    return ERROR_SERVICE_DOES_NOT_EXIST;
}

// Looks for the spelling that a file has.
DWORD find_spelling(const std::string& name, std::string& out) {
    const std::u16string wanted = wide_from(name);
    for (const char* folder : folders) {
        const std::unique_ptr<DIR, int (*)(DIR*)> files(opendir(folder), closedir);
        if (!files && errno != ENOENT)
            return code_of_errno(errno);
        errno = 0;
        while (const dirent* entry = files ? readdir(files.get()) : nullptr) {
            const std::string_view file = entry->d_name;
            if (entry->d_type != DT_DIR && file.size() == name.size()
                && equal_without_case(wide_from(file), wanted)) {
                out = file;
                return ERROR_SUCCESS;
            }
        }
        if (files && errno != 0)
            return code_of_errno(errno);
    }
    return ERROR_SERVICE_DOES_NOT_EXIST;
}

DWORD find_file(const std::string& name, unit_file& out) {
    DWORD code = find_exactly(name, out);
    std::string spelled;
    if (code == ERROR_SERVICE_DOES_NOT_EXIST)
        code = find_spelling(name, spelled);
    return spelled.empty() ? code : find_exactly(spelled, out);
}

} // namespace

DWORD find_unit_file(wide_view service_name, unit_file& out) {
    const std::string name = utf8_of(service_name);
    const size_t at = name.find('@');
    const bool can_be_unit = std::all_of(name.begin(), name.end(), is_unit_character)
                             && name.size() + suffix.size() <= longest_unit && at != 0
                             && at + 1 != name.size()
                             && !equal_without_case(service_name.substr(0, 3), u"zu@");
    if (!can_be_unit)
        return ERROR_SERVICE_DOES_NOT_EXIST;
    DWORD code = find_file(name + std::string(suffix), out);
    if (code != ERROR_SERVICE_DOES_NOT_EXIST || at == std::string::npos)
        return code;
    code = find_file(name.substr(0, at + 1) + std::string(suffix), out);
    if (code == ERROR_SUCCESS)
        out.unit.insert(at + 1, name.substr(at + 1));
    return code;
}

} // namespace platform
