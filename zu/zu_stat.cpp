// File status: one record for a file, a directory or the root of a drive or a share.
#include "zu/zu_stat.h"

#include <algorithm>
#include <cerrno>

#include "zu/zu_path.h"

namespace {

constexpr int32_t root_year = 1980 - 1900; // every root has the time of this year's first day
constexpr uint32_t owner_to_group = 3, owner_to_others = 6, group_bits = 0x38, others_bits = 0x7;
constexpr size_t shortest_network_root = 11;
constexpr uint64_t file_time_units_per_second = 10'000'000;

uint64_t units_of(const platform::FILETIME& time) {
    return uint64_t{time.dwHighDateTime} << 32 | time.dwLowDateTime;
}

// An item as the platform reports it, before it becomes a status record.
struct item {
    platform::DWORD attributes;
    uint64_t size;
    zu::file_times times;
};

// Makes the long form of a path; "." and ".." stay in it. False for a path that must not reach a search.
bool make_absolute(const ZU_wchar* path, zu::scoped_string& absolute) {
    zu::text_view named(path);
    if (named.empty() || zu::begins_at_no_root(named))
        return zu::fail(ERROR_FILE_NOT_FOUND);
    if (zu::is_long_path(named))
        named.remove_prefix(zu::long_prefix.size());
    if (named.empty() || zu::has_wildcard(named))
        return zu::fail(ERROR_FILE_NOT_FOUND);
    zu::trimmed_long_path(path, absolute.address());
    if (absolute.length() == 0)
        return zu::fail(ERROR_FILE_NOT_FOUND);
    if (zu::is_long_path(absolute.view()))
        return true;

    zu::scoped_string directory;
    if (!ZU_get_current_dir_ex(directory.address()))
        return false;
    zu::trimmed_long_path(directory.text(), absolute.address());
    ZU_s_append_n(absolute.address(), ZU_W("\\"), 1);
    ZU_s_append_n(absolute.address(), path, static_cast<uint32_t>(zu::text_view(path).size()));
    ZU_s_trim_end_c(absolute.address(), '\\');
    return true;
}

// "\\?\UNC\" with a server and a share, and nothing deeper.
bool is_network_root(zu::text_view absolute) {
    if (absolute.size() < shortest_network_root || !zu::is_long_network_path(absolute))
        return false;
    absolute.remove_prefix(zu::long_network_prefix.size());
    return std::count(absolute.begin(), absolute.end(), '\\') == 1;
}

// A root has no directory entry, so no search finds it: its drive type tells whether it exists. For any other path the
// result is false, and the last-error code stays.
bool query_root(const zu::scoped_string& absolute, item& found) {
    zu::scoped_string root;
    if (!zu::is_long_drive(absolute.view()) && !is_network_root(absolute.view()))
        return false;
    zu::short_path(absolute.text(), root.address());
    ZU_s_append_n(root.address(), ZU_W("\\"), 1);
    const platform::UINT type = platform::GetDriveTypeW(root.text());
    if (type == DRIVE_UNKNOWN || type == DRIVE_NO_ROOT_DIR)
        return zu::fail(ERROR_PATH_NOT_FOUND);
    ZU_tm first_day = {};
    first_day.tm_year = root_year;
    first_day.tm_mday = 1;
    first_day.tm_isdst = -1;
    const ZU_time_t time = ZU_mktime(&first_day);
    found = {FILE_ATTRIBUTE_DIRECTORY, 0, {time, time, time}};
    return true;
}

bool query(const zu::scoped_string& absolute, item& result) {
    const platform::DWORD code_before = platform::GetLastError();
    platform::WIN32_FIND_DATAW found;
    const platform::HANDLE search = platform::FindFirstFileW(absolute.text(), &found);
    if (search == INVALID_HANDLE_VALUE) {
        if (!query_root(absolute, result))
            return false;
        platform::SetLastError(code_before);
        return true;
    }
    platform::FindClose(search);
    result = {found.dwFileAttributes, zu::size_of(found), zu::times_of(found)};
    return true;
}

bool is_program(zu::text_view absolute) {
    absolute.remove_prefix(absolute.rfind('\\') + 1);
    const size_t dot = absolute.rfind('.');
    if (dot == zu::text_view::npos)
        return false;
    for (const zu::text_view extension : {ZU_W(".exe"), ZU_W(".com"), ZU_W(".bat"), ZU_W(".cmd")}) {
        if (zu::equal_without_case(absolute.substr(dot), extension))
            return true;
    }
    return false;
}

uint16_t mode_of(platform::DWORD attributes, zu::text_view absolute) {
    const bool directory = attributes & FILE_ATTRIBUTE_DIRECTORY;
    uint32_t mode = ZU_S_IREAD | (directory ? ZU_S_IFDIR : ZU_S_IFREG);
    if (!(attributes & FILE_ATTRIBUTE_READONLY))
        mode |= ZU_S_IWRITE;
    if (directory || is_program(absolute))
        mode |= ZU_S_IEXEC;
    mode |= (mode >> owner_to_group) & group_bits;
    mode |= (mode >> owner_to_others) & others_bits;
    return static_cast<uint16_t>(mode);
}

uint32_t drive_number(zu::text_view absolute) {
    const zu::text_view rest = absolute.substr(std::min(absolute.size(), zu::long_prefix.size()));
    if (!zu::is_drive_path(rest))
        return 0;
    return static_cast<uint32_t>(rest[0] >= 'a' ? rest[0] - 'a' : rest[0] - 'A');
}

} // namespace

namespace zu {

uint32_t attribute_code(platform::DWORD bits) {
    if (bits == INVALID_FILE_ATTRIBUTES)
        return 0;
    uint32_t code = bits & FILE_ATTRIBUTE_DIRECTORY ? ZU_PATH_DIR : ZU_PATH_FILE;
    code |= bits & FILE_ATTRIBUTE_HIDDEN ? ZU_PATH_HIDDEN : 0;
    code |= bits & FILE_ATTRIBUTE_SYSTEM ? ZU_PATH_SYSTEM : 0;
    code |= bits & FILE_ATTRIBUTE_READONLY ? ZU_PATH_READONLY : 0;
    return code;
}

uint64_t size_of(const platform::WIN32_FIND_DATAW& found) {
    return uint64_t{found.nFileSizeHigh} << 32 | found.nFileSizeLow;
}

file_times times_of(const platform::WIN32_FIND_DATAW& found) {
    const ZU_time_t modification = ZU_FILETIME_2_time_t(&found.ftLastWriteTime);
    // The times of many files lie in one second, so that one conversion serves all three.
    const auto other = [&found, modification](const platform::FILETIME& time) {
        const uint64_t units = units_of(time);
        const bool same = units == 0
                          || units / file_time_units_per_second
                                 == units_of(found.ftLastWriteTime) / file_time_units_per_second;
        return same ? modification : ZU_FILETIME_2_time_t(&time);
    };
    return {other(found.ftCreationTime), modification, other(found.ftLastAccessTime)};
}

} // namespace zu

int32_t ZU_stat64(const ZU_wchar* path, ZU_stat* status) {
    std::memset(status, 0, sizeof *status);
    zu::scoped_string absolute;
    item found;
    if (!make_absolute(path, absolute) || !query(absolute, found)) {
        errno = ENOENT;
        return -1;
    }
    status->st_dev = status->st_rdev = drive_number(absolute.view());
    status->st_mode = mode_of(found.attributes, absolute.view());
    status->st_nlink = 1;
    status->st_size = static_cast<int64_t>(found.size);
    status->st_atime = found.times.access;
    status->st_mtime = found.times.modification;
    status->st_ctime = found.times.creation;
    return 0;
}
