// The registry, the computer's name, the version record, and dynamic libraries.
#pragma once

#include "platform/api/base.h"

namespace platform {

using ::HKEY;
using ::HMODULE;
using REGSAM = DWORD;
using FARPROC = intptr_t (*)();

// ---- Registry: results are returned, and the last-error code is left alone ----
//
// Keys and names are blind to case. A root is a predefined key or an open one (else 6, ERROR_INVALID_HANDLE). Only
// reading is offered.

// `subkey` null or empty opens the root itself. Missing: 2 (ERROR_FILE_NOT_FOUND); a leading backslash: 161
// (ERROR_BAD_PATHNAME). The key is null on failure, and ends with RegCloseKey.
LONG RegOpenKeyExW(HKEY root, const WCHAR* subkey, DWORD options, REGSAM access, HKEY* key);

// Null or empty name: the default value. Missing: 2. `size` in and out, in bytes; too small: 234 (ERROR_MORE_DATA) with
// the type and the size needed. Null data measures; each output may be null, but `size` only together with `data`: else
// 87 (ERROR_INVALID_PARAMETER).
LONG RegQueryValueExW(HKEY key, const WCHAR* name, DWORD* reserved, DWORD* type, BYTE* data, DWORD* size);

LONG RegCloseKey(HKEY key);

// ---- Computer ----

// The host's name up to its first full stop. `size` goes in as the capacity and comes out as the length, or with
// code 111 (ERROR_BUFFER_OVERFLOW) as the capacity that is needed.
BOOL GetComputerNameW(WCHAR* buffer, DWORD* size);

// ---- Version ----

// The size goes in as that of this record or of the extended one: any other fails with 122 (ERROR_INSUFFICIENT_BUFFER).
struct OSVERSIONINFOW {
    DWORD dwOSVersionInfoSize;
    DWORD dwMajorVersion;
    DWORD dwMinorVersion;
    DWORD dwBuildNumber;
    DWORD dwPlatformId;
    WCHAR szCSDVersion[128];
};

struct OSVERSIONINFOEXW {
    DWORD dwOSVersionInfoSize;
    DWORD dwMajorVersion;
    DWORD dwMinorVersion;
    DWORD dwBuildNumber;
    DWORD dwPlatformId;
    WCHAR szCSDVersion[128];
    WORD wServicePackMajor;
    WORD wServicePackMinor;
    WORD wSuiteMask;
    BYTE wProductType;
    BYTE wReserved;
};

// Version 10.0 of the NT family, product type 0, the distribution and its kernel in place of the service pack.
BOOL GetVersionExW(OSVERSIONINFOW* version);

// ---- Dynamic libraries ----

// A path with a folder is looked up as every path; a bare name beside the executable, then as the host's loader does.
// Without an extension ".so" is added, unless a dot ends the name. Null on failure: 126 (ERROR_MOD_NOT_FOUND) for what
// is not found or cannot be loaded, 193 (ERROR_BAD_EXE_FORMAT) for what is no library, 5 (ERROR_ACCESS_DENIED) for a
// directory or without the right to read, 87 for a null path. `file` must be null.
HMODULE LoadLibraryExW(const WCHAR* path, HANDLE file, DWORD flags);
HMODULE LoadLibraryW(const WCHAR* path);

BOOL FreeLibrary(HMODULE module); // null: 6; a module that is not loaded: 126

// The address of a name that the module itself exports, and not its dependencies: else 127 (ERROR_PROC_NOT_FOUND). A
// null module is the executable.
FARPROC GetProcAddress(HMODULE module, const char* name);

} // namespace platform

inline constexpr platform::REGSAM KEY_QUERY_VALUE = 1;

inline constexpr platform::DWORD REG_NONE = 0;
inline constexpr platform::DWORD REG_SZ = 1;
inline constexpr platform::DWORD REG_EXPAND_SZ = 2;
inline constexpr platform::DWORD REG_BINARY = 3;
inline constexpr platform::DWORD REG_DWORD = 4;
inline constexpr platform::DWORD REG_MULTI_SZ = 7;
inline constexpr platform::DWORD REG_QWORD = 11;

inline constexpr platform::DWORD VER_PLATFORM_WIN32s = 0;
inline constexpr platform::DWORD VER_PLATFORM_WIN32_WINDOWS = 1;
inline constexpr platform::DWORD VER_PLATFORM_WIN32_NT = 2;
inline constexpr platform::BYTE VER_NT_WORKSTATION = 1;
inline constexpr platform::BYTE VER_NT_DOMAIN_CONTROLLER = 2;
inline constexpr platform::BYTE VER_NT_SERVER = 3;
inline constexpr platform::WORD VER_SUITE_ENTERPRISE = 0x0002;
inline constexpr platform::WORD VER_SUITE_DATACENTER = 0x0080;
inline constexpr platform::WORD VER_SUITE_PERSONAL = 0x0200;
inline constexpr platform::WORD VER_SUITE_BLADE = 0x0400;

inline constexpr platform::DWORD LOAD_WITH_ALTERED_SEARCH_PATH = 8;
