// Directory enumeration: a walk over one directory that hands out an entry at a time.
#include "zu/zu_path.h"
#include "zu/zu_stat.h"

struct ZU_enum_dir {
    uint32_t flags;
    ZU_s pattern; // the search's pattern, in long form
    ZU_s path;    // the directory in the caller's form, then the name of the current entry
    uint32_t prefix_length;
    ZU_enum_dir_entry entry;
    platform::HANDLE search;
};

namespace {

constexpr zu::text_view every_name = ZU_W("*.*");
constexpr uint32_t room_for_names = 50;

void append(ZU_s* s, zu::text_view text) {
    ZU_s_append_n(s, text.data(), static_cast<uint32_t>(text.size()));
}

void fill_entry(ZU_enum_dir* walk) {
    ZU_enum_dir_entry& entry = walk->entry;
    const platform::WIN32_FIND_DATAW& found = *entry.find_data;
    ZU_s_resize(&walk->path, walk->prefix_length);
    append(&walk->path, found.cFileName);
    entry.name = found.cFileName;
    entry.path = ZU_s_text(walk->path);
    entry.attributes = zu::attribute_code(found.dwFileAttributes);
    entry.size = walk->flags & ZU_ENUM_DIR_SIZE ? zu::size_of(found) : 0;
    const zu::file_times times =
        walk->flags & ZU_ENUM_DIR_TIMES ? zu::times_of(found) : zu::file_times{-1, -1, -1};
    entry.creation_time = times.creation;
    entry.modification_time = times.modification;
    entry.access_time = times.access;
}

bool is_dots(zu::text_view name) {
    return name == ZU_W(".") || name == ZU_W("..");
}

// Steps from the entry just read to the first acceptable one, which may be the same.
bool advance(ZU_enum_dir* walk) {
    while ((walk->flags & ZU_ENUM_DIR_SKIP_DOTS) && is_dots(walk->entry.find_data->cFileName)) {
        if (!platform::FindNextFileW(walk->search, walk->entry.find_data))
            return false;
    }
    fill_entry(walk);
    return true;
}

// The pattern is the long form and "\*.*"; the prefix of the entries' paths is its short form without "*.*".
void set_directory(ZU_enum_dir* walk, const ZU_wchar* path) {
    zu::trimmed_long_path(path, &walk->pattern);
    append(&walk->pattern, ZU_W("\\"));
    append(&walk->pattern, every_name);
    zu::text_view prefix(ZU_s_text(walk->pattern), ZU_s_length(walk->pattern));
    ZU_s_reserve(&walk->path, static_cast<uint32_t>(prefix.size()) + room_for_names);
    if (zu::is_long_network_path(prefix)) {
        append(&walk->path, zu::two_backslashes);
        prefix.remove_prefix(zu::long_network_prefix.size());
    } else if (zu::is_long_path(prefix)) {
        prefix.remove_prefix(zu::long_prefix.size());
    }
    prefix.remove_suffix(every_name.size());
    append(&walk->path, prefix);
    walk->prefix_length = ZU_s_length(walk->path);
}

} // namespace

ZU_enum_dir* ZU_enum_dir_begin(const ZU_wchar* path, uint32_t flags) {
    if (zu::is_empty(path)) {
        platform::SetLastError(ERROR_PATH_NOT_FOUND);
        return nullptr;
    }
    auto* walk = static_cast<ZU_enum_dir*>(ZU_calloc(1, sizeof(ZU_enum_dir)));
    walk->flags = flags;
    walk->entry.record_size = sizeof walk->entry;
    set_directory(walk, path);
    walk->entry.find_data = zu::allocate<platform::WIN32_FIND_DATAW>();
    walk->search = platform::FindFirstFileW(ZU_s_text(walk->pattern), walk->entry.find_data);
    if (walk->search != INVALID_HANDLE_VALUE && advance(walk))
        return walk;
    const zu::keep_last_error kept;
    ZU_enum_dir_end(walk);
    return nullptr;
}

ZU_enum_dir_entry* ZU_enum_dir_get(ZU_enum_dir* walk) {
    return &walk->entry;
}

ZU_bool ZU_enum_dir_next(ZU_enum_dir* walk) {
    return platform::FindNextFileW(walk->search, walk->entry.find_data) && advance(walk);
}

void ZU_enum_dir_end(ZU_enum_dir* walk) {
    if (!walk)
        return;
    if (walk->search != INVALID_HANDLE_VALUE)
        platform::FindClose(walk->search);
    ZU_free(walk->entry.find_data);
    ZU_s_destroy(&walk->pattern);
    ZU_s_destroy(&walk->path);
    ZU_free(walk);
}
