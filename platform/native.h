// The native platform: its own calls, under the names by which the families make them.
#pragma once

#include <winsock2.h>
#include <ws2tcpip.h>

#include <windows.h>

#include <aclapi.h>

#define SECURITY_WIN32
#include <security.h>

#include <process.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <time.h>
#include <wchar.h>

#include <string>
#include <vector>

namespace platform {

using ::BOOL;
using ::BYTE;
using ::DWORD;
using ::FILETIME;
using ::HANDLE;
using ::LONG;
using ::SYSTEMTIME;
using ::UINT;
using ::WCHAR;
using ::WORD;
using ::WSADATA;

using ::CloseHandle;
using ::FormatMessageW;
using ::GetLastError;
using ::GetProcessHeap;
using ::HeapAlloc;
using ::HeapFree;
using ::HeapReAlloc;
using ::LocalAlloc;
using ::LocalFree;
using ::SetLastError;

using ::OutputDebugStringW;

using ::MultiByteToWideChar;
using ::WideCharToMultiByte;
using ::_snwprintf;
using ::_vsnwprintf;
using ::_wtoi;
using ::lstrcmpiW;
using ::wcsnlen;

// The copy of a text without its terminator.
inline size_t copy_text(WCHAR* out, const WCHAR* text, size_t limit) {
    const size_t length = ::wcsnlen(text, limit);
    ::wmemcpy(out, text, length);
    return length;
}

using ::CRITICAL_SECTION;
using ::DeleteCriticalSection;
using ::EnterCriticalSection;
using ::InitializeCriticalSection;
using ::LeaveCriticalSection;

using ::CreateEventW;
using ::CreateSemaphoreW;
using ::ReleaseSemaphore;
using ::ResetEvent;
using ::SetEvent;
using ::WaitForMultipleObjects;
using ::WaitForSingleObject;

// Here the system alone decides when a thread that is released runs.
struct late_wake {
    late_wake() {}
    ~late_wake() {}
};

using ::CreateMutexW;
using ::OpenMutexW;
using ::ReleaseMutex;

using ::GetExitCodeThread;
using ::_beginthreadex;

using ::GetCurrentProcessId;
using ::GetCurrentThreadId;
using ::GetTickCount;
using ::Sleep;

using ::CreateDirectoryW;
using ::CreateFileW;
using ::DeleteFileW;
using ::FindClose;
using ::FindFirstFileW;
using ::FindNextFileW;
using ::FlushFileBuffers;
using ::GetCurrentDirectoryW;
using ::GetDriveTypeW;
using ::GetFileAttributesW;
using ::GetFileSizeEx;
using ::GetFileTime;
using ::GetModuleFileNameW;
using ::GetVolumeInformationW;
using ::LARGE_INTEGER;
using ::MoveFileExW;
using ::QueryDosDeviceW;
using ::ReadFile;
using ::RemoveDirectoryW;
using ::SECURITY_ATTRIBUTES;
using ::SetEndOfFile;
using ::SetFileAttributesW;
using ::SetFilePointerEx;
using ::SetFileTime;
using ::WIN32_FIND_DATAW;
using ::WriteFile;
using ::_wfopen;
using ::fclose;

inline BOOL go_to_known_end(HANDLE file, LARGE_INTEGER* end) {
    return ::SetFilePointerEx(file, {}, end, FILE_END);
}

// Nothing is read ahead here.
inline DWORD take_line_ahead(HANDLE, void*, DWORD) {
    return 0;
}

// A walk down a tree; here by paths.
class tree_walk {
public:
    explicit tree_walk(const WCHAR* path) : path_(path) { enter(); }
    ~tree_walk() {
        for (const level& here : levels_)
            FindClose(here.search);
    }
    tree_walk(const tree_walk&) = delete;
    tree_walk& operator=(const tree_walk&) = delete;

    bool next() {
        while (!levels_.empty()) {
            level& here = levels_.back();
            path_.resize(here.path_length);
            is_directory_ = !take_entry(here);
            if (is_directory_) { // that is left now
                FindClose(here.search);
                levels_.pop_back();
                SetLastError(code_); // the end of a listing is no failure
                return !levels_.empty();
            }
            path_ += L'\\';
            path_ += entry_.cFileName;
            is_directory_ = entry_.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY;
            if (!is_directory_ || !enter())
                return true;
        }
        return false;
    }

    BOOL remove() { return is_directory_ ? ::RemoveDirectoryW(path()) : ::DeleteFileW(path()); }
    const WCHAR* path() const { return path_.c_str(); }

private:
    struct level {
        HANDLE search;
        size_t path_length; // of the directory
        WIN32_FIND_DATAW next;
        bool has_next;
    };

    bool enter() {
        level below{nullptr, path_.size(), {}, true};
        below.search = FindFirstFileW((path_ + L"\\*.*").c_str(), &below.next);
        if (below.search == INVALID_HANDLE_VALUE)
            return false;
        levels_.push_back(below);
        return true;
    }

    bool take_entry(level& here) {
        do {
            if (!here.has_next)
                return false;
            entry_ = here.next;
            here.has_next = FindNextFileW(here.search, &here.next);
        } while (!wcscmp(entry_.cFileName, L".") || !wcscmp(entry_.cFileName, L".."));
        return true;
    }

    const DWORD code_ = ::GetLastError();
    std::wstring path_; // of the present entry
    std::vector<level> levels_;
    WIN32_FIND_DATAW entry_ = {};
    bool is_directory_ = false;
};

// The attributes of one item; here by its path, since an open handle would keep the item from being replaced.
class item_attributes {
public:
    item_attributes(const WCHAR* path, DWORD) : path_(path) {}
    explicit item_attributes(const tree_walk& walk) : path_(walk.path()) {}

    DWORD get() const { return ::GetFileAttributesW(path_); }
    BOOL set(DWORD file_attributes) { return ::SetFileAttributesW(path_, file_attributes); }

private:
    const WCHAR* path_;
};

using ::FileTimeToLocalFileTime;
using ::FileTimeToSystemTime;
using ::LocalFileTimeToFileTime;
using ::SystemTimeToFileTime;

using ::AllocateAndInitializeSid;
using ::EqualSid;
using ::FreeSid;
using ::InitializeSecurityDescriptor;
using ::SetEntriesInAclW;
using ::SetSecurityDescriptorDacl;
using ::SetSecurityDescriptorOwner;

using ::ACL;
using ::EXPLICIT_ACCESS_W;
using ::SECURITY_ATTRIBUTES;
using ::SECURITY_DESCRIPTOR;
using ::PSID;
using ::SID_IDENTIFIER_AUTHORITY;

using ::AdjustTokenPrivileges;
using ::GetCurrentProcess;
using ::GetCurrentThread;
using ::GetTokenInformation;
using ::ImpersonateLoggedOnUser;
using ::LogonUserW;
using ::LookupAccountNameW;
using ::LookupPrivilegeValueW;
using ::OpenProcessToken;
using ::OpenThreadToken;
using ::RevertToSelf;

using ::LUID;
using ::SID_NAME_USE;
using ::SidTypeUser;
using ::TOKEN_GROUPS;
using ::TOKEN_PRIVILEGES;
using ::TokenGroups;

using ::ACCEPT_SECURITY_CONTEXT_FN;
using ::ACQUIRE_CREDENTIALS_HANDLE_FN_W;
using ::COMPLETE_AUTH_TOKEN_FN;
using ::CredHandle;
using ::CtxtHandle;
using ::DELETE_SECURITY_CONTEXT_FN;
using ::FREE_CONTEXT_BUFFER_FN;
using ::FREE_CREDENTIALS_HANDLE_FN;
using ::INITIALIZE_SECURITY_CONTEXT_FN_W;
using ::QUERY_SECURITY_PACKAGE_INFO_FN_W;
using ::SECURITY_STATUS;
using ::SEC_WINNT_AUTH_IDENTITY_W;
using ::SecBuffer;
using ::SecBufferDesc;
using ::SecPkgInfoW;
using ::TimeStamp;

using ::GetComputerNameW;
using ::SOCKET;
using ::FARPROC;
using ::FreeLibrary;
using ::GetProcAddress;
using ::GetVersionExW;
using ::HKEY;
using ::HMODULE;
using ::LoadLibraryExW;
using ::LoadLibraryW;
using ::OSVERSIONINFOEXW;
using ::OSVERSIONINFOW;
using ::RegCloseKey;
using ::RegOpenKeyExW;
using ::RegQueryValueExW;

using ::WSACleanup;
using ::WSAStartup;
using ::__WSAFDIsSet;
using ::accept;
using ::bind;
using ::closesocket;
using ::connect;
using ::fd_set;
using ::gethostbyname;
using ::hostent;
using ::inet_addr;
using ::ioctlsocket;
using ::listen;
using ::recv;
using ::recvfrom;
using ::select;
using ::send;
using ::sendto;
using ::setsockopt;
using ::sockaddr;
using ::sockaddr_in;
using ::socket;
using ::timeval;

// A set of one socket; here in the form of the set that holds any.
struct one_socket_set {
    fd_set members;

    explicit one_socket_set(SOCKET socket) {
        members.fd_count = 1;
        members.fd_array[0] = socket;
    }
};
inline int select(int count, one_socket_set* read, one_socket_set* write, one_socket_set* error,
                  const timeval* timeout) {
    timeval copy = timeout ? *timeout : timeval{};
    return ::select(count, read ? &read->members : nullptr, write ? &write->members : nullptr,
                    error ? &error->members : nullptr, timeout ? &copy : nullptr);
}
inline int __WSAFDIsSet(SOCKET socket, one_socket_set* set) {
    return ::__WSAFDIsSet(socket, &set->members);
}

// The system's own send waits until all is taken. Once the write set has shown room, a small piece is taken at once.
inline int send_what_fits(SOCKET socket, const char* buffer, int length) {
    constexpr int piece = 4096;
    return ::send(socket, buffer, length < piece ? length : piece, 0);
}

using ::CloseServiceHandle;
using ::ControlService;
using ::CreateServiceW;
using ::DeleteService;
using ::OpenSCManagerW;
using ::OpenServiceW;
using ::QueryServiceStatus;
using ::SC_HANDLE;
using ::SERVICE_STATUS;
using ::StartServiceW;

// Interlocked operations are macros or compiler intrinsics, depending on the headers.
inline LONG InterlockedIncrement(volatile LONG* cell) {
    return __sync_add_and_fetch(cell, 1);
}
inline LONG InterlockedDecrement(volatile LONG* cell) {
    return __sync_sub_and_fetch(cell, 1);
}

// The runtime's calendar in its 32-bit form, whatever width the headers choose for time_t.
using tm = ::tm;
inline void _tzset() {
    ::_tzset();
}
inline int32_t time(int32_t* out) {
    const __time64_t now = ::_time64(nullptr);
    const int32_t value = now >= 0 && now <= INT32_MAX ? static_cast<int32_t>(now) : -1;
    if (out)
        *out = value;
    return value;
}
inline int32_t mktime(tm* local) {
    tm filled = *local;
    const __time64_t time = ::_mktime64(&filled);
    if (time < 0 || time > INT32_MAX)
        return -1;
    *local = filled;
    return static_cast<int32_t>(time);
}
inline uint32_t zone_number() {
    return 0;
}
inline const tm* localtime(const int32_t* value) {
    if (!value)
        return nullptr;
    const __time64_t time = *value;
    return ::_localtime64(&time);
}

// A write to a pipe without a reader is an ordinary failure here: nothing has to be held back.
struct quiet_pipes {
    quiet_pipes() {}
    ~quiet_pipes() {}
    void all_written() {}
};

} // namespace platform
