// Files, directories, searches, drives, and the runtime's wide fopen.
//
// Paths: long form (`\\?\C:\dir`, `\\?\UNC\srv\share\dir`) is taken literally; everything else is resolved lexically
// first. 32,767 units at most, 255 in a component. Letter case is ignored; what a file system stores is kept. Missing
// last component: 2 (ERROR_FILE_NOT_FOUND); missing or non-directory parent: 3 (ERROR_PATH_NOT_FOUND); a name that
// cannot be: 123 (ERROR_INVALID_NAME).
#pragma once

#include <cstdio>
#include <memory>

#include "platform/api/base.h"

namespace platform {

using ::HMODULE;
using ::WIN32_FIND_DATAW;

// INVALID_HANDLE_VALUE on failure. Sets 0, or 183 (ERROR_ALREADY_EXISTS) when CREATE_ALWAYS or OPEN_ALWAYS met an
// existing file. The share mode holds against every other handle of every process: 32 (ERROR_SHARING_VIOLATION) on a
// conflict. Ends with CloseHandle.
HANDLE CreateFileW(const WCHAR* path, DWORD access, DWORD share_mode, SECURITY_ATTRIBUTES* attributes,
                   DWORD disposition, DWORD flags, HANDLE template_file);

// Synchronous: `overlapped` must be null (else 87, ERROR_INVALID_PARAMETER). One thread at a time per handle. A read
// moves less than asked only at the end of the file; a write moves everything or fails, and leaves no part of a line on
// a full disk where it is the only writer: 112 (ERROR_DISK_FULL).
BOOL ReadFile(HANDLE file, void* out, DWORD bytes, DWORD* bytes_done, void* overlapped);
// A name of ours. Reads a line with the line feed or zero byte that ends it, when the end is among the next `most` bytes
// and these have been read ahead. The number of its bytes; 0, with nothing read, in any other case.
DWORD take_line_ahead(HANDLE file, void* out, DWORD most);
BOOL WriteFile(HANDLE file, const void* data, DWORD bytes, DWORD* bytes_done, void* overlapped);

// `new_position` may be null, and is not written on failure: 131 (ERROR_NEGATIVE_SEEK) for a position below 0, 87 for
// an unknown origin.
BOOL SetFilePointerEx(HANDLE file, LARGE_INTEGER distance, LARGE_INTEGER* new_position, DWORD origin);
// A name of ours. Goes to the end of the file, which is not asked for while the handle keeps other writers away: it is
// where it was at the opening, or where this handle has written to. For a caller that has just opened the file.
BOOL go_to_known_end(HANDLE file, LARGE_INTEGER* end);
BOOL SetEndOfFile(HANDLE file);
BOOL FlushFileBuffers(HANDLE file);
BOOL GetFileSizeEx(HANDLE file, LARGE_INTEGER* size);

// Null outputs are left out; null or zero inputs leave that time of the file as it is.
BOOL GetFileTime(HANDLE file, FILETIME* creation, FILETIME* access, FILETIME* write);
BOOL SetFileTime(HANDLE file, const FILETIME* creation, const FILETIME* access, const FILETIME* write);

BOOL DeleteFileW(const WCHAR* path);
BOOL MoveFileExW(const WCHAR* source, const WCHAR* destination,
                 DWORD flags); // MOVEFILE_REPLACE_EXISTING or 0
BOOL CreateDirectoryW(const WCHAR* path, SECURITY_ATTRIBUTES* attributes);
BOOL RemoveDirectoryW(const WCHAR* path);

DWORD GetFileAttributesW(const WCHAR* path); // INVALID_FILE_ATTRIBUTES on failure
BOOL SetFileAttributesW(const WCHAR* path, DWORD file_attributes);

// A name of ours. A walk down a tree that is to be taken away: the entries of a directory in its order, and each
// directory after what is in it; a directory that cannot be listed comes alone. Whatever others put in the place of
// what was listed, nothing outside the tree is reached: links are given, and followed at the top only. Deep trees cost
// neither stack nor descriptors.
class tree_walk {
public:
    // The path is that of the directory, without a backslash at its end.
    explicit tree_walk(const WCHAR* path);
    ~tree_walk();
    tree_walk(const tree_walk&) = delete;
    tree_walk& operator=(const tree_walk&) = delete;

    bool next();   // goes to the next entry; false when there is none
    BOOL remove(); // the entry, as RemoveDirectoryW and DeleteFileW do

private:
    friend class item_attributes;
    std::unique_ptr<class tree_levels> levels_;
};

// A name of ours. The attributes of one item that is held: what is looked at, changed and put back is the same,
// whatever its path comes to name meanwhile. The path stays valid for as long. Taking hold leaves the last-error code
// alone.
class item_attributes {
public:
    // Holds the item that the path leads to; with FILE_FLAG_OPEN_REPARSE_POINT a link itself.
    item_attributes(const WCHAR* path, DWORD flags);
    // Holds the present entry, a link itself.
    explicit item_attributes(const tree_walk& walk);
    ~item_attributes();
    item_attributes(const item_attributes&) = delete;
    item_attributes& operator=(const item_attributes&) = delete;

    DWORD get() const;               // as GetFileAttributesW
    BOOL set(DWORD file_attributes); // as SetFileAttributesW

private:
    std::unique_ptr<class held_item> item_;
    DWORD code_;
};

// The last component may hold wildcards. INVALID_HANDLE_VALUE on failure; FindNextFileW ends with 18
// (ERROR_NO_MORE_FILES). The handle is released with FindClose, never with CloseHandle.
HANDLE FindFirstFileW(const WCHAR* pattern, WIN32_FIND_DATAW* found);
BOOL FindNextFileW(HANDLE search, WIN32_FIND_DATAW* found);
BOOL FindClose(HANDLE search);

// The length without terminator when it fits, else the size needed with terminator and nothing written; 0 on failure.
DWORD GetCurrentDirectoryW(DWORD size, WCHAR* out);

// The main executable's path (null module). A name that does not fit gives `size`, unterminated.
DWORD GetModuleFileNameW(HMODULE module, WCHAR* out, DWORD size);

UINT GetDriveTypeW(const WCHAR* root);
DWORD QueryDosDeviceW(const WCHAR* device, WCHAR* target,
                      DWORD size); // units with both terminators; 0 on failure
BOOL GetVolumeInformationW(const WCHAR* root, WCHAR* label, DWORD label_size, DWORD* serial,
                           DWORD* component_length, DWORD* flags, WCHAR* file_system, DWORD file_system_size);

// The runtime's calls. Mode: r, w or a, then any of + b t c n S R T D x N; anything else is null with EINVAL.
FILE* _wfopen(const WCHAR* path, const WCHAR* mode);
using ::fclose;

} // namespace platform

inline constexpr platform::DWORD GENERIC_READ = 0x80000000;
inline constexpr platform::DWORD GENERIC_WRITE = 0x40000000;
inline constexpr platform::DWORD FILE_WRITE_ATTRIBUTES = 0x100;

inline constexpr platform::DWORD FILE_SHARE_READ = 1;
inline constexpr platform::DWORD FILE_SHARE_WRITE = 2;
inline constexpr platform::DWORD FILE_SHARE_DELETE = 4;

inline constexpr platform::DWORD CREATE_NEW = 1;
inline constexpr platform::DWORD CREATE_ALWAYS = 2;
inline constexpr platform::DWORD OPEN_EXISTING = 3;
inline constexpr platform::DWORD OPEN_ALWAYS = 4;
inline constexpr platform::DWORD TRUNCATE_EXISTING = 5;

inline constexpr platform::DWORD FILE_FLAG_BACKUP_SEMANTICS = 0x02000000;
inline constexpr platform::DWORD FILE_FLAG_OPEN_REPARSE_POINT = 0x00200000;

inline constexpr platform::DWORD FILE_BEGIN = 0;
inline constexpr platform::DWORD FILE_CURRENT = 1;
inline constexpr platform::DWORD FILE_END = 2;

inline constexpr platform::DWORD MOVEFILE_REPLACE_EXISTING = 1;

inline constexpr platform::UINT DRIVE_UNKNOWN = 0;
inline constexpr platform::UINT DRIVE_NO_ROOT_DIR = 1;
inline constexpr platform::UINT DRIVE_REMOVABLE = 2;
inline constexpr platform::UINT DRIVE_FIXED = 3;
inline constexpr platform::UINT DRIVE_REMOTE = 4;
inline constexpr platform::UINT DRIVE_CDROM = 5;
inline constexpr platform::UINT DRIVE_RAMDISK = 6;
