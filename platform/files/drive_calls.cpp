// GetDriveTypeW, QueryDosDeviceW, GetVolumeInformationW.
#include <cstring>
#include <string>

#include "platform/api/files.h"
#include "platform/core/error.h"
#include "platform/files/drives.h"
#include "platform/files/name_map.h"
#include "platform/files/place.h"
#include "platform/files/volume.h"

namespace platform {

namespace {

constexpr DWORD name_flags = 0x2 | 0x4; // case is preserved; names are Unicode
constexpr DWORD component_units = 255;

bool is_bare_drive(wide_view text) {
    return text.size() == 2 && is_drive_letter(text[0]) && text[1] == u':';
}

bool copy_text(const std::u16string& text, WCHAR* out, DWORD size) {
    if (size <= text.size())
        return false;
    std::memcpy(out, text.c_str(), (text.size() + 1) * sizeof(WCHAR));
    return true;
}

std::u16string wide_of(const std::string& host) {
    std::u16string text;
    append_wide_name(host, text);
    return text;
}

// Finds the root that a text names. 0, or the code for a text that names no root.
DWORD find_root(const WCHAR* root, place& where) {
    const wide_view text = root ? wide_view(root) : wide_view(u"\\");
    if (text.empty())
        return ERROR_PATH_NOT_FOUND;
    const bool ends_well = text.back() == u'\\' || text.back() == u'/';
    const bool is_network = text.starts_with(u"\\\\") && !is_long_form(text);
    if (!ends_well && !is_bare_drive(text) && !is_network && !is_long_form(text))
        return ERROR_INVALID_NAME;
    if (const DWORD code = where.set(text.data()))
        return code;
    if (where.is_volume())
        return ERROR_DIR_NOT_ROOT;
    if (where.is_root())
        return ERROR_SUCCESS;
    if (is_bare_drive(text))
        return ERROR_INVALID_NAME; // C: is the drive's current directory, and that is no root
    return where.find() ? ERROR_DIR_NOT_ROOT : where.code_of(errno);
}

// The kind of a root that gave a code: what could not be looked up, or may not be, is unknown and not missing.
UINT drive_type_without_facts(DWORD code) {
    const bool is_unknown =
        code == ERROR_TOO_MANY_OPEN_FILES || code == ERROR_NOT_ENOUGH_MEMORY || code == ERROR_ACCESS_DENIED;
    return is_unknown ? DRIVE_UNKNOWN : DRIVE_NO_ROOT_DIR;
}

} // namespace

UINT GetDriveTypeW(const WCHAR* root) {
    std::u16string text = root ? root : u"\\";
    if (is_bare_drive(text))
        text += u'\\'; // C: alone would be the drive's current directory
    place where;
    if (const DWORD code = where.set(text.c_str()))
        return drive_type_without_facts(code);
    if (where.is_volume())
        return DRIVE_UNKNOWN;
    if (!where.is_root() && !where.ends_with_separator())
        return DRIVE_NO_ROOT_DIR;
    mount_facts facts;
    if (!where.find())
        return drive_type_without_facts(where.code_of(errno));
    if (const DWORD code = read_mount_facts(where.whole_name(), facts))
        return drive_type_without_facts(code);
    return where.is_network() ? DRIVE_REMOTE : drive_type_of(facts);
}

DWORD QueryDosDeviceW(const WCHAR* device, WCHAR* target, DWORD size) {
    const wide_view text = device ? wide_view(device) : wide_view();
    if (!is_bare_drive(text))
        return fail<DWORD>(ERROR_FILE_NOT_FOUND);
    std::string directory;
    if (const DWORD code = append_drive_directory(static_cast<char>(text[0]), directory))
        return fail<DWORD>(code == ERROR_PATH_NOT_FOUND ? DWORD{ERROR_FILE_NOT_FOUND} : code);
    mount_facts facts;
    if (const DWORD code = read_mount_facts(directory.empty() ? "/" : directory, facts))
        return fail<DWORD>(code == ERROR_PATH_NOT_FOUND ? DWORD{ERROR_FILE_NOT_FOUND} : code);
    const std::u16string name = device_name_of(facts, static_cast<char>(text[0] & ~0x20));
    const size_t needed = name.size() + 2; // a list of names, ended by an empty one
    if (!target || size < needed)
        return fail(ERROR_INSUFFICIENT_BUFFER);
    std::memcpy(target, name.c_str(), (name.size() + 1) * sizeof(WCHAR));
    target[name.size() + 1] = 0;
    return static_cast<DWORD>(needed);
}

BOOL GetVolumeInformationW(const WCHAR* root, WCHAR* label, DWORD label_size, DWORD* serial,
                           DWORD* component_length, DWORD* flags, WCHAR* file_system,
                           DWORD file_system_size) {
    place where;
    if (const DWORD code = find_root(root, where))
        return fail(code);
    const std::string directory = where.whole_name();
    mount_facts facts;
    if (const DWORD code = read_mount_facts(directory, facts))
        return fail(code);
    std::string found_label, found_system;
    if (label)
        if (const DWORD code = volume_label(directory, found_label))
            return fail(code);
    if (file_system)
        if (const DWORD code = file_system_of(facts.major, facts.minor, found_system))
            return fail(code);
    if ((label && !copy_text(wide_of(found_label), label, label_size))
        || (file_system && !copy_text(wide_of(found_system), file_system, file_system_size)))
        return fail(ERROR_MORE_DATA);
    if (serial)
        *serial = facts.major << 20 | facts.minor;
    if (component_length)
        *component_length = component_units;
    if (flags)
        *flags = name_flags;
    return TRUE;
}

} // namespace platform
