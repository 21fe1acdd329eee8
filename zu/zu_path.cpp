// Path model: the four forms of a path, its long and short form, and the actual path of what exists.
#include "zu/zu_path.h"

#include <algorithm>

namespace {

constexpr uint32_t classic_path_size = 260; // the platform's fixed buffers, terminator included
constexpr uint32_t volume_label_size = 1024;
constexpr size_t not_found = zu::text_view::npos;

ZU_wchar ascii_upper(ZU_wchar c) {
    return c >= 'a' && c <= 'z' ? static_cast<ZU_wchar>(c - 'a' + 'A') : c;
}

void append(ZU_s* s, zu::text_view text) {
    ZU_s_append_n(s, text.data(), static_cast<uint32_t>(text.size()));
}

// Joins two texts, in new memory.
ZU_wchar* new_text(zu::text_view text, zu::text_view tail = {}) {
    auto* copy = zu::allocate<ZU_wchar>(static_cast<uint32_t>(text.size() + tail.size()) + 1);
    *std::copy(tail.begin(), tail.end(), std::copy(text.begin(), text.end(), copy)) = 0;
    return copy;
}

// Two backslashes, a server, a backslash and a share have at least five units.
bool is_network_path(zu::text_view path) {
    return path.size() >= 5 && path.starts_with(zu::two_backslashes);
}

} // namespace

namespace zu {

bool is_drive_letter(ZU_wchar c) {
    return ascii_upper(c) >= 'A' && ascii_upper(c) <= 'Z';
}

bool is_drive_path(text_view path) {
    return path.size() >= 2 && is_drive_letter(path[0]) && path[1] == ':';
}

bool is_long_path(text_view path) {
    return path.starts_with(long_prefix);
}

bool is_long_network_path(text_view path) {
    return equal_without_case(path.substr(0, long_network_prefix.size()), long_network_prefix);
}

bool is_long_drive(text_view path) {
    return path.size() == long_drive_length && is_long_path(path)
           && is_drive_path(path.substr(long_prefix.size()));
}

bool begins_at_no_root(text_view path) {
    return path.starts_with('/') || (path.starts_with('\\') && !path.starts_with(two_backslashes));
}

bool has_wildcard(text_view path) {
    return std::any_of(path.begin(), path.end(), [](ZU_wchar c) { return c == '?' || c == '*'; });
}

bool equal_without_case(text_view a, text_view b) {
    return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                      [](ZU_wchar x, ZU_wchar y) { return ascii_upper(x) == ascii_upper(y); });
}

void trimmed_long_path(const ZU_wchar* path, ZU_s* out) {
    ZU_long_path(path, out);
    ZU_s_trim_end_c(out, '\\');
}

void short_path(const ZU_wchar* path, ZU_s* out) {
    text_view rest(path);
    ZU_s_clear(out);
    ZU_s_reserve(out, static_cast<uint32_t>(rest.size()));
    if (is_long_network_path(rest)) {
        append(out, two_backslashes);
        rest.remove_prefix(long_network_prefix.size());
    } else if (is_long_path(rest) && is_drive_path(rest.substr(long_prefix.size()))) {
        rest.remove_prefix(long_prefix.size());
    }
    append(out, rest);
}

bool complete_root(ZU_s* long_path) {
    ZU_s_trim_end_c(long_path, '\\');
    if (!is_long_drive({ZU_s_text(*long_path), ZU_s_length(*long_path)}))
        return false;
    ZU_s_append_n(long_path, ZU_W("\\"), 1);
    return true;
}

} // namespace zu

void ZU_long_path(const ZU_wchar* path, ZU_s* out) {
    zu::text_view rest(path);
    ZU_s_clear(out);
    ZU_s_reserve(out, static_cast<uint32_t>(rest.size() + zu::long_network_prefix.size()));
    if (zu::is_long_path(rest)) {
        // It is in long form already.
    } else if (zu::is_drive_path(rest)) {
        append(out, zu::long_prefix);
    } else if (rest.starts_with(zu::two_backslashes)) {
        append(out, zu::long_network_prefix);
        rest.remove_prefix(zu::two_backslashes.size());
    }
    append(out, rest);
}

ZU_bool ZU_is_full_path(const ZU_wchar* path) {
    const zu::text_view view(path);
    // A long form begins with two backslashes as well.
    return view.starts_with(zu::two_backslashes) || zu::is_drive_path(view);
}

int32_t ZU_path_too_long(const ZU_wchar* path) {
    zu::text_view rest(path);
    size_t limit = ZU_PATH_MAX; // minus the units that the long form adds
    if (!zu::is_long_path(rest)) {
        if (zu::is_drive_path(rest))
            limit -= zu::long_prefix.size();
        else if (rest.starts_with(zu::two_backslashes))
            limit -= zu::long_network_prefix.size() - zu::two_backslashes.size();
    }
    if (rest.size() > limit)
        return 1;
    for (;;) {
        const size_t end = rest.find('\\');
        if (std::min(end, rest.size()) > ZU_PATH_COMPONENT_MAX)
            return 1;
        if (end == not_found)
            return 0;
        rest.remove_prefix(end + 1);
    }
}

ZU_bool ZU_get_current_dir_ex(ZU_s* out) {
    uint32_t size = classic_path_size;
    auto* buffer = zu::allocate<ZU_wchar>(size);
    uint32_t answer;
    // The directory may change between two questions, so one growth step need not be enough.
    while ((answer = platform::GetCurrentDirectoryW(size, buffer)) >= size) {
        size = answer + 1;
        buffer = static_cast<ZU_wchar*>(ZU_realloc(buffer, size * static_cast<uint32_t>(sizeof(ZU_wchar))));
    }
    const zu::owned<ZU_wchar> directory(buffer);
    if (answer == 0) {
        ZU_s_destroy(out);
        return false;
    }
    zu::short_path(directory.get(), out);
    ZU_s_trim_end_c(out, '\\');
    return true;
}

ZU_wchar* ZU_get_current_dir() {
    zu::scoped_string directory;
    return ZU_get_current_dir_ex(directory.address()) ? ZU_strdup(directory.text()) : nullptr;
}

namespace {

// A path on its way to its actual form.
struct resolution {
    zu::scoped_string absolute; // the path to resolve
    zu::text_view rest;         // the part of `absolute` that is not resolved yet
    zu::scoped_string actual;   // the part that is resolved, in long form
    size_t root_length = 0;     // ".." never shortens `actual` below this
};

// Makes `absolute` a full path, without slashes and without backslashes at its end.
bool make_absolute(const ZU_wchar* path, zu::scoped_string& absolute) {
    if (*path == 0 || zu::begins_at_no_root(path))
        return zu::fail(ERROR_FILE_NOT_FOUND);
    zu::short_path(path, absolute.address());
    ZU_s_replace_c(absolute.address(), '/', '\\');
    ZU_s_trim_end_c(absolute.address(), '\\');
    if (absolute.length() == 0 || zu::has_wildcard(absolute.view()))
        return zu::fail(ERROR_FILE_NOT_FOUND);
    if (zu::is_drive_path(absolute.view()) || is_network_path(absolute.view()))
        return true;

    if (!ZU_get_current_dir_ex(absolute.address()))
        return false;
    append(absolute.address(), ZU_W("\\"));
    append(absolute.address(), path);
    ZU_s_replace_c(absolute.address(), '/', '\\');
    ZU_s_trim_end_c(absolute.address(), '\\');
    return true;
}

void begin_at_drive(resolution& r) {
    const ZU_wchar drive[] = {ascii_upper(r.absolute.text()[0]), ':'};
    append(r.actual.address(), zu::long_prefix);
    append(r.actual.address(), {drive, 2});
    r.root_length = r.actual.length();
    r.rest = r.absolute.view().substr(2);
}

// The share must exist. Still, ".." may remove it and leave the server.
bool begin_at_share(resolution& r) {
    const zu::text_view path = r.absolute.view().substr(zu::two_backslashes.size());
    const zu::text_view server = path.substr(0, path.find('\\'));
    const size_t share_at = path.find_first_not_of('\\', server.size());
    if (server.empty() || share_at == not_found)
        return zu::fail(ERROR_FILE_NOT_FOUND);
    append(r.actual.address(), zu::long_network_prefix);
    append(r.actual.address(), server);
    r.root_length = r.actual.length();

    const zu::text_view share = path.substr(share_at, path.find('\\', share_at) - share_at);
    append(r.actual.address(), ZU_W("\\"));
    append(r.actual.address(), share);
    r.rest = path.substr(share_at + share.size());
    return true;
}

bool begin_at_root(resolution& r) {
    ZU_s_reserve(r.actual.address(), r.absolute.length() + 10);
    if (zu::is_drive_path(r.absolute.view()))
        begin_at_drive(r);
    else if (!is_network_path(r.absolute.view()))
        return zu::fail(ERROR_FILE_NOT_FOUND); // the current directory itself has neither form
    else if (!begin_at_share(r))
        return false;

    append(r.actual.address(), ZU_W("\\"));
    const bool exists = platform::GetFileAttributesW(r.actual.text()) != INVALID_FILE_ATTRIBUTES;
    ZU_s_trim_end_c(r.actual.address(), '\\');
    return exists;
}

bool step_up(resolution& r) {
    const size_t last = r.actual.view().rfind('\\');
    if (last == not_found || last < r.root_length)
        return zu::fail(ERROR_FILE_NOT_FOUND);
    ZU_s_resize(r.actual.address(), static_cast<uint32_t>(last));
    return true;
}

// Appends the component as the file system spells it.
bool step_down(resolution& r, zu::text_view component) {
    append(r.actual.address(), ZU_W("\\"));
    const uint32_t parent_length = r.actual.length();
    append(r.actual.address(), component);
    platform::WIN32_FIND_DATAW found;
    const platform::HANDLE search = platform::FindFirstFileW(r.actual.text(), &found);
    if (search == INVALID_HANDLE_VALUE)
        return false;
    platform::FindClose(search);
    ZU_s_resize(r.actual.address(), parent_length);
    append(r.actual.address(), found.cFileName);
    return true;
}

bool walk_to_the_end(resolution& r) {
    while (!r.rest.empty()) {
        const zu::text_view component = r.rest.substr(0, r.rest.find('\\'));
        r.rest.remove_prefix(std::min(component.size() + 1, r.rest.size()));
        if (component.empty() || component == ZU_W("."))
            continue;
        if (component == ZU_W("..") ? !step_up(r) : !step_down(r, component))
            return false;
    }
    return true;
}

} // namespace

ZU_bool ZU_get_actual_full_path_ex(const ZU_wchar* path, ZU_s* out) {
    resolution r;
    if (make_absolute(path, r.absolute) && begin_at_root(r) && walk_to_the_end(r)) {
        zu::short_path(r.actual.text(), out);
        return true;
    }
    ZU_s_destroy(out);
    return false;
}

ZU_wchar* ZU_get_actual_full_path(const ZU_wchar* path) {
    zu::scoped_string actual;
    return ZU_get_actual_full_path_ex(path, actual.address()) ? ZU_strdup(actual.text()) : nullptr;
}

ZU_wchar* ZU_get_exe_path() {
    ZU_wchar path[classic_path_size];
    const uint32_t length = platform::GetModuleFileNameW(nullptr, path, classic_path_size);
    if (length == 0 || length >= classic_path_size)
        return nullptr;
    return new_text({path, length});
}

ZU_wchar* ZU_generate_local_path(const ZU_wchar* file_name) {
    const zu::owned<ZU_wchar> program(ZU_get_exe_path());
    if (!program)
        return nullptr;
    const zu::text_view path(program.get());
    const size_t last = path.rfind('\\');
    if (last == not_found)
        return nullptr;
    return new_text(path.substr(0, last + 1), file_name);
}

ZU_wchar* ZU_get_path(const ZU_wchar* path) {
    if (!path)
        return nullptr;
    const zu::text_view view(path);
    const size_t last = view.rfind('\\');
    if (last != not_found)
        return new_text(view.substr(0, std::max<size_t>(last, 1)));
    return view.size() == 2 && view[1] == ':' ? new_text(view) : nullptr;
}

ZU_wchar* ZU_get_filename(const ZU_wchar* path) {
    zu::owned<ZU_wchar> trimmed(ZU_strdup(path));
    ZU_trim_end_path_symbol(trimmed.get());
    const zu::text_view view(trimmed.get());
    const size_t last = view.rfind('\\');
    if (last != not_found)
        return new_text(view.substr(last + 1));

    const zu::keep_last_error kept; // a volume without a label is no failure
    ZU_wchar label[volume_label_size];
    if (platform::GetVolumeInformationW(path, label, volume_label_size, nullptr, nullptr, nullptr, nullptr, 0)
        && !zu::is_empty(label))
        return ZU_strdup(label);
    return trimmed.release();
}

ZU_wchar* ZU_get_actual_file_name(const ZU_wchar* path) {
    zu::scoped_string long_path;
    zu::trimmed_long_path(path, long_path.address());
    if (zu::is_long_drive(long_path.view())) {
        const ZU_wchar drive[] = {ascii_upper(long_path.text()[zu::long_prefix.size()]), ':', 0};
        return ZU_strdup(drive);
    }
    platform::WIN32_FIND_DATAW found;
    const platform::HANDLE search = platform::FindFirstFileW(long_path.text(), &found);
    if (search == INVALID_HANDLE_VALUE)
        return nullptr;
    platform::FindClose(search);
    return ZU_strdup(found.cFileName);
}

ZU_bool ZU_make_actual_file_name(ZU_wchar* path) {
    const zu::owned<ZU_wchar> actual(ZU_get_actual_file_name(path));
    if (!actual)
        return false;
    const zu::owned<ZU_wchar> trimmed(ZU_strdup(path));
    ZU_trim_end_path_symbol(trimmed.get());
    const size_t kept = zu::text_view(trimmed.get()).rfind('\\') + 1; // 0 when there is no backslash
    const zu::text_view name(actual.get());
    std::copy_n(name.data(), name.size() + 1, path + kept);
    return true;
}

ZU_bool ZU_is_floppy_drive(const ZU_wchar* path) {
    if (!zu::is_drive_path(path))
        return false;
    const zu::keep_last_error kept;
    const ZU_wchar root[] = {path[0], ':', '\\', 0};
    if (platform::GetDriveTypeW(root) != DRIVE_REMOVABLE)
        return false;
    const ZU_wchar drive[] = {path[0], ':', 0};
    ZU_wchar device[classic_path_size];
    if (platform::QueryDosDeviceW(drive, device, classic_path_size) == 0)
        return false;
    constexpr zu::text_view floppy = ZU_W("\\Device\\Floppy");
    return zu::equal_without_case(zu::text_view(device).substr(0, floppy.size()), floppy);
}
