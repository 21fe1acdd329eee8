// The runtime's fopen with wide names.
#include <cerrno>
#include <cstdio>
#include <fcntl.h>

#include <utility>

#include "platform/api/files.h"
#include "platform/core/error.h"
#include "platform/files/file.h"

namespace platform {

namespace {

// Parses a mode. False when it is not valid.
bool parse_mode(const WCHAR* mode, open_request& request, const char*& host_mode) {
    const WCHAR kind = *mode;
    if (kind != 0)
        ++mode;
    bool updates = false, is_new = false;
    for (; *mode; ++mode) {
        switch (*mode) {
        case u'+': updates = true; break;
        case u'x': is_new = true; break;
        // The mode asks that every flush reach the disk. With O_DSYNC every write does.
        case u'c': request.host_flags |= O_DSYNC; break;
        // Text or bytes, which do not differ here; hints; close-on-exec, which is always set.
        case u'b':
        case u't':
        case u'n':
        case u'S':
        case u'R':
        case u'T':
        case u'N': break;
        default: return false;
        }
    }
    request.denies_reads = request.denies_writes = false;
    request.reads = kind == u'r' || updates;
    request.writes = kind != u'r' || updates;
    switch (kind) {
    case u'r':
        request.disposition = OPEN_EXISTING;
        host_mode = updates ? "r+" : "r";
        return !is_new;
    case u'w':
        request.disposition = is_new ? CREATE_NEW : CREATE_ALWAYS;
        host_mode = updates ? "w+" : "w";
        return true;
    case u'a':
        request.disposition = is_new ? CREATE_NEW : OPEN_ALWAYS;
        host_mode = updates ? "a+" : "a";
        return true;
    default: return false;
    }
}

int errno_of(DWORD code) {
    if (code >= ERROR_WRITE_PROTECT && code <= ERROR_SHARING_BUFFER_EXCEEDED)
        return EACCES; // refused by a device, or by another handle's share mode
    switch (code) {
    case ERROR_FILE_NOT_FOUND:
    case ERROR_PATH_NOT_FOUND:
    case ERROR_INVALID_DRIVE:
    case ERROR_BAD_PATHNAME:
    case ERROR_FILENAME_EXCED_RANGE:
    case ERROR_BAD_NETPATH:
    case ERROR_BAD_NET_NAME: return ENOENT;
    case ERROR_TOO_MANY_OPEN_FILES: return EMFILE;
    case ERROR_ACCESS_DENIED: return EACCES;
    case ERROR_FILE_EXISTS:
    case ERROR_ALREADY_EXISTS: return EEXIST;
    case ERROR_DISK_FULL: return ENOSPC;
    case ERROR_NOT_ENOUGH_MEMORY: return ENOMEM;
    default: return EINVAL;
    }
}

} // namespace

FILE* _wfopen(const WCHAR* path, const WCHAR* mode) {
    open_request request;
    const char* host_mode = nullptr;
    if (!path || !mode || !parse_mode(mode, request, host_mode)) {
        errno = EINVAL;
        return nullptr;
    }
    opened_file opened;
    if (const DWORD code = open_file(path, request, opened)) {
        SetLastError(code);
        errno = errno_of(code);
        return nullptr;
    }
    FILE* stream = fdopen(opened.number.get(), host_mode);
    if (stream)
        opened.number.release(); // the stream owns it now, with the claim
    else
        set_last_error_from_errno();
    return stream;
}

} // namespace platform
