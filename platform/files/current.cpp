// Where the process is: its working directory and its executable.
#include "platform/files/current.h"

#include <limits.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "platform/api/files.h"
#include "platform/core/error.h"
#include "platform/files/drives.h"

namespace platform {

namespace {

// The host path of the executable; empty, with errno, when it cannot be told.
std::string executable() {
    std::string path(PATH_MAX, 0);
    for (;;) {
        const ssize_t size = readlink("/proc/self/exe", path.data(), path.size());
        if (size < 0)
            return {};
        if (static_cast<size_t>(size) < path.size()) {
            path.resize(static_cast<size_t>(size));
            break;
        }
        path.resize(2 * path.size());
    }
    // The kernel marks the path of an executable that has been deleted or replaced since the start.
    constexpr std::string_view mark = " (deleted)";
    if (path.ends_with(mark) && access(path.c_str(), F_OK) != 0)
        path.resize(path.size() - mark.size());
    return path;
}

} // namespace

DWORD current_directory(std::u16string& out) {
    char* host = getcwd(nullptr, 0);
    if (!host)
        return code_of_errno(errno);
    // A directory outside the process's root has no path that starts at it.
    const DWORD code = host[0] == '/' ? path_of_host_path(host, out) : DWORD{ERROR_PATH_NOT_FOUND};
    std::free(host);
    return code;
}

DWORD GetCurrentDirectoryW(DWORD size, WCHAR* out) {
    std::u16string path;
    if (const DWORD code = current_directory(path))
        return fail<DWORD>(code);
    if (size <= path.size())
        return static_cast<DWORD>(path.size() + 1);
    std::memcpy(out, path.c_str(), (path.size() + 1) * sizeof(WCHAR));
    return static_cast<DWORD>(path.size());
}

DWORD GetModuleFileNameW(HMODULE module, WCHAR* out, DWORD size) {
    if (module)
        return fail<DWORD>(ERROR_MOD_NOT_FOUND); // families ask for the executable alone
    const std::string host = executable();
    if (host.empty())
        return fail<DWORD>(code_of_errno(errno));
    std::u16string path;
    if (const DWORD code = path_of_host_path(host, path))
        return fail<DWORD>(code);
    if (size > path.size()) {
        std::memcpy(out, path.c_str(), (path.size() + 1) * sizeof(WCHAR));
        SetLastError(ERROR_SUCCESS);
        return static_cast<DWORD>(path.size());
    }
    std::memcpy(out, path.data(), size * sizeof(WCHAR));
    if (size == 0)
        SetLastError(ERROR_INSUFFICIENT_BUFFER);
    return size;
}

} // namespace platform
