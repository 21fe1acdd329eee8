// The platform's basic types, its last-error code and local memory.
#pragma once

#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "zu/zu_platform.h"

namespace platform {

using BOOL = int;
using BYTE = uint8_t;
using WORD = uint16_t;
using DWORD = uint32_t;
using LONG = int32_t;
using UINT = uint32_t;
using LONGLONG = int64_t;
using ULONGLONG = uint64_t;
using WCHAR = char16_t;
using wide_view = std::basic_string_view<WCHAR>; // a name of ours: the layer's own text
using HANDLE = void*;
using HLOCAL = void*;
using LPVOID = void*;
using LPCVOID = const void*;
using ::FILETIME;

// CreateMutexW takes them; CreateFileW takes null alone and fails with 50 (ERROR_NOT_SUPPORTED) otherwise.
struct SECURITY_ATTRIBUTES {
    DWORD nLength;
    LPVOID lpSecurityDescriptor;
    BOOL bInheritHandle;
};

union LARGE_INTEGER {
    struct {
        DWORD LowPart;
        LONG HighPart;
    } u;
    LONGLONG QuadPart;
};

using ::GetLastError;
using ::SetLastError;

// The text of a system code, ended by CR LF. Known codes have one; others fail with 317 (ERROR_MR_MID_NOT_FOUND). With
// ALLOCATE_BUFFER, `buffer` is the address of a WCHAR* that receives memory for LocalFree (null on failure).
DWORD FormatMessageW(DWORD flags, LPCVOID source, DWORD code, DWORD language, WCHAR* buffer, DWORD size,
                     va_list* arguments);

HLOCAL LocalAlloc(UINT flags, size_t bytes);
HLOCAL LocalFree(HLOCAL block); // null is accepted; always null

// The process heap, the only one. A null result sets no code.
HANDLE GetProcessHeap();
LPVOID HeapAlloc(HANDLE heap, DWORD flags, size_t bytes);                 // flags: 0 or HEAP_ZERO_MEMORY
LPVOID HeapReAlloc(HANDLE heap, DWORD flags, LPVOID block, size_t bytes); // flags: 0
BOOL HeapFree(HANDLE heap, DWORD flags, LPVOID block);

// Ends the use of a handle of any kind. Null and INVALID_HANDLE_VALUE: see object.h.
BOOL CloseHandle(HANDLE handle);

} // namespace platform

// How the platform calls back, where its calls have a convention of their own: here as every function.
#define WINAPI

inline constexpr int TRUE = 1;
inline constexpr int FALSE = 0;
inline const platform::HANDLE INVALID_HANDLE_VALUE = reinterpret_cast<platform::HANDLE>(intptr_t{-1});

inline constexpr platform::DWORD FORMAT_MESSAGE_ALLOCATE_BUFFER = 0x100;
inline constexpr platform::DWORD FORMAT_MESSAGE_FROM_SYSTEM = 0x1000;

inline constexpr platform::DWORD HEAP_ZERO_MEMORY = 0x8;
inline constexpr platform::UINT LMEM_FIXED = 0;
inline constexpr platform::UINT LMEM_ZEROINIT = 0x40;
