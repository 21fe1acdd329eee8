// File-system operations by path, with one more attempt where the read-only attribute is in the way.
#include "zu/zu_path.h"
#include "zu/zu_stat.h"

namespace {

// Repeats an operation that a read-only item may have refused. The attribute is taken off first, and put back if the
// operation fails again. False with the code of the last attempt.
template <class Operation>
bool attempt_again_writable(platform::item_attributes&& item, Operation operation) {
    const platform::DWORD refusal = platform::GetLastError();
    const platform::DWORD attributes = item.get();
    if (attributes == INVALID_FILE_ATTRIBUTES || !(attributes & FILE_ATTRIBUTE_READONLY)
        || !item.set(attributes & ~FILE_ATTRIBUTE_READONLY)) {
        platform::SetLastError(refusal);
        return false;
    }
    if (operation())
        return true;
    const zu::keep_last_error failure;
    item.set(attributes);
    return false;
}

// `hold` opens the item's attributes. It is called only if they may be the reason of a refusal.
template <class Operation, class Hold>
bool delete_item(Operation operation, Hold hold) {
    if (operation())
        return true;
    return platform::GetLastError() == ERROR_ACCESS_DENIED && attempt_again_writable(hold(), operation);
}

// A link stands for itself: nothing is deleted or replaced through one.
platform::item_attributes attributes_at(const ZU_wchar* long_path) {
    return {long_path, FILE_FLAG_OPEN_REPARSE_POINT};
}

template <class Operation>
bool delete_path(const ZU_wchar* long_path, Operation operation) {
    return delete_item([&] { return operation(long_path); }, [&] { return attributes_at(long_path); });
}

// Makes the long form of a path, with the backslash that a drive's root needs. True for a drive's root.
bool prepare(const ZU_wchar* path, zu::scoped_string& prepared) {
    ZU_long_path(path, prepared.address());
    return zu::complete_root(prepared.address());
}

} // namespace

ZU_bool ZU_create_dir(const ZU_wchar* path, void* security) {
    zu::scoped_string long_path;
    zu::trimmed_long_path(path, long_path.address());
    return platform::CreateDirectoryW(long_path.text(), static_cast<platform::SECURITY_ATTRIBUTES*>(security))
           != FALSE;
}

ZU_bool ZU_delete_dir(const ZU_wchar* path) {
    zu::scoped_string long_path;
    zu::trimmed_long_path(path, long_path.address());
    return delete_path(long_path.text(), platform::RemoveDirectoryW);
}

ZU_bool ZU_delete_file(const ZU_wchar* path) {
    zu::scoped_string long_path;
    ZU_long_path(path, long_path.address());
    return delete_path(long_path.text(), platform::DeleteFileW);
}

ZU_bool ZU_delete_dir_recursive(const ZU_wchar* path) {
    zu::scoped_string long_path;
    zu::trimmed_long_path(path, long_path.address());
    if (long_path.length() != 0) {
        platform::tree_walk walk(long_path.text());
        while (walk.next())
            delete_item([&] { return walk.remove(); }, [&] { return platform::item_attributes(walk); });
    }
    return ZU_delete_dir(path);
}

ZU_bool ZU_move_file(const ZU_wchar* source, const ZU_wchar* destination) {
    zu::scoped_string from, to;
    ZU_long_path(source, from.address());
    ZU_long_path(destination, to.address());
    const auto move = [&] {
        return platform::MoveFileExW(from.text(), to.text(), MOVEFILE_REPLACE_EXISTING);
    };
    return move() || attempt_again_writable(attributes_at(to.text()), move);
}

ZU_bool ZU_set_file_time(const ZU_wchar* path, ZU_time_t creation, ZU_time_t modification, ZU_time_t access) {
    const uint32_t code = ZU_path_attributes(path);
    if (code == 0)
        return false;
    zu::scoped_string prepared;
    if (prepare(path, prepared))
        return true;
    const platform::DWORD flags =
        FILE_ATTRIBUTE_NORMAL | (code & ZU_PATH_DIR ? FILE_FLAG_BACKUP_SEMANTICS : platform::DWORD{0});
    const platform::HANDLE file = platform::CreateFileW(prepared.text(), FILE_WRITE_ATTRIBUTES, 0, nullptr,
                                                        OPEN_EXISTING, flags, nullptr);
    if (file == INVALID_HANDLE_VALUE)
        return false;
    // For an absent time the conversion gives null: the file keeps its own.
    platform::FILETIME created, accessed, modified;
    const bool done = platform::SetFileTime(file, Zu_time_t_2_FILETIME(creation, &created),
                                            Zu_time_t_2_FILETIME(access, &accessed),
                                            Zu_time_t_2_FILETIME(modification, &modified));
    const zu::keep_last_error kept;
    platform::CloseHandle(file);
    return done;
}

uint32_t ZU_path_attributes(const ZU_wchar* path) {
    return zu::attribute_code(ZU_get_file_platform_attributes(path));
}

ZU_bool ZU_set_file_platform_attributes(const ZU_wchar* path, uint32_t bits) {
    zu::scoped_string prepared;
    prepare(path, prepared);
    return platform::SetFileAttributesW(prepared.text(), bits) != FALSE;
}

uint32_t ZU_get_file_platform_attributes(const ZU_wchar* path) {
    zu::scoped_string prepared;
    prepare(path, prepared);
    return platform::GetFileAttributesW(prepared.text());
}
