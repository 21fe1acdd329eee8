// The last-error slot, the one translation from errno, and FormatMessageW.
#include "platform/core/error.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string>

#include "platform/api/base.h"

uint32_t* zu_platform_last_error() {
    // Constant initialisation keeps the access a plain offset from the thread pointer, without a guard.
    static constinit thread_local uint32_t code = ERROR_SUCCESS;
    return &code;
}

namespace platform {

DWORD code_of_errno(int error) {
    switch (error) {
    case 0: return ERROR_SUCCESS;
    case EPERM:
    case EACCES:
    case EISDIR: return ERROR_ACCESS_DENIED;
    case ENOENT: return ERROR_FILE_NOT_FOUND;
    case ENOTDIR: return ERROR_PATH_NOT_FOUND;
    case EEXIST: return ERROR_ALREADY_EXISTS;
    case ENOTEMPTY: return ERROR_DIR_NOT_EMPTY;
    case EXDEV: return ERROR_NOT_SAME_DEVICE;
    case EROFS: return ERROR_WRITE_PROTECT;
    case ETXTBSY:
    case EBUSY: return ERROR_SHARING_VIOLATION;
    case ENOSPC:
    case EDQUOT:
    case EFBIG: return ERROR_DISK_FULL;
    case EMFILE:
    case ENFILE: return ERROR_TOO_MANY_OPEN_FILES;
    case ENAMETOOLONG: return ERROR_FILENAME_EXCED_RANGE;
    case ELOOP: return ERROR_CANT_RESOLVE_FILENAME;
    case EMLINK: return ERROR_TOO_MANY_LINKS;
    case EBADF: return ERROR_INVALID_HANDLE;
    case EINVAL: return ERROR_INVALID_PARAMETER;
    case EFAULT: return ERROR_NOACCESS;
    case ENOMEM: return ERROR_NOT_ENOUGH_MEMORY;
    case EPIPE: return ERROR_BROKEN_PIPE;
    case ESPIPE: return ERROR_SEEK_ON_DEVICE;
    case EIO: return ERROR_IO_DEVICE;
    case ENXIO:
    case ENODEV: return ERROR_NOT_READY;
    case EAGAIN: return ERROR_NO_SYSTEM_RESOURCES;
    case EINTR:
    case ECANCELED: return ERROR_OPERATION_ABORTED;
    case ETIMEDOUT: return ERROR_TIMEOUT;
    case EDEADLK: return ERROR_POSSIBLE_DEADLOCK;
    case ENOSYS: return ERROR_CALL_NOT_IMPLEMENTED;
    case EOPNOTSUPP: return ERROR_NOT_SUPPORTED;
    case EOVERFLOW:
    case ERANGE: return ERROR_ARITHMETIC_OVERFLOW;
    default: return ERROR_GEN_FAILURE;
    }
}

void set_last_error_from_errno() {
    SetLastError(code_of_errno(errno));
}

namespace {

// A code of this form carries a system code in its low word: the failure bit, facility 7.
constexpr DWORD wrapped_code_mask = 0xFFFF0000u;
constexpr DWORD wrapped_code = 0x80070000u;

const error_text* find_text(DWORD code) {
    if ((code & wrapped_code_mask) == wrapped_code)
        code &= 0xFFFFu;
    const error_text* end = error_texts + error_text_count;
    const error_text* at = std::lower_bound(
        error_texts, end, code, [](const error_text& row, DWORD wanted) { return row.code < wanted; });
    return at != end && at->code == code ? at : nullptr;
}

} // namespace

DWORD FormatMessageW(DWORD flags, LPCVOID, DWORD code, DWORD, WCHAR* buffer, DWORD size, va_list*) {
    const bool allocate = (flags & FORMAT_MESSAGE_ALLOCATE_BUFFER) != 0;
    if (!(flags & FORMAT_MESSAGE_FROM_SYSTEM) || !buffer) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return 0;
    }
    // With ALLOCATE_BUFFER the argument is the address of the caller's pointer, in the shape of a text.
    WCHAR** allocated = allocate ? reinterpret_cast<WCHAR**>(buffer) : nullptr;
    if (allocated)
        *allocated = nullptr;
    const error_text* row = find_text(code);
    if (!row) {
        SetLastError(ERROR_MR_MID_NOT_FOUND);
        return 0;
    }
    const size_t length = std::char_traits<WCHAR>::length(row->text);
    if (allocated) {
        buffer = static_cast<WCHAR*>(LocalAlloc(0, std::max<size_t>(length + 1, size) * sizeof(WCHAR)));
        if (!buffer)
            return 0;
        *allocated = buffer;
    } else if (size <= length) {
        SetLastError(ERROR_INSUFFICIENT_BUFFER);
        return 0;
    }
    std::memcpy(buffer, row->text, (length + 1) * sizeof(WCHAR));
    return static_cast<DWORD>(length);
}

} // namespace platform
