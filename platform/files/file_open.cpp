// Opening files.
#include <fcntl.h>

#include <cerrno>
#include <new>
#include <string>

#include "platform/api/files.h"
#include "platform/core/error.h"
#include "platform/files/file.h"
#include "platform/files/same_file.h"

namespace platform {

namespace {

// The bits of the platform's flags that are a new file's attributes.
constexpr DWORD attribute_bits = 0xFFFF;

// Stands in for a code: the path no longer names the file that was opened.
constexpr DWORD opens_again = 0xFFFFFFFF;

constexpr int tries = 16;

bool truncates(const open_request& request) {
    return request.disposition == CREATE_ALWAYS || request.disposition == TRUNCATE_EXISTING;
}

bool creates(const open_request& request) {
    return request.disposition != OPEN_EXISTING && request.disposition != TRUNCATE_EXISTING;
}

bool touches_data(const open_request& request) {
    return request.reads || request.writes || truncates(request);
}

int open_call(place& where, int flags) {
    return where.attempt(
        [&](int at, const char* path) { return openat(at, path, flags | O_CLOEXEC | O_NOCTTY, 0666); });
}

// Opens without waiting: a pipe without a writer, or a serial line without a carrier, would keep the caller waiting for
// as long as its owner likes. EAGAIN means that another program has a lease on the file. The kernel is calling the
// lease back, so a wait ends soon. Only a regular file may be waited for: the name is opened with O_PATH, its kind is
// looked at, and that very file is opened through /proc.
int open_without_waiting(place& where, int flags) {
    const int number = open_call(where, flags | O_NONBLOCK);
    if (number >= 0 || errno != EAGAIN)
        return number;
    const descriptor lent(open_call(where, O_PATH));
    struct stat status;
    if (!lent || fstat(lent.get(), &status) != 0 || !S_ISREG(status.st_mode)) {
        errno = EAGAIN;
        return -1;
    }
    const std::string same_file = "/proc/self/fd/" + std::to_string(lent.get());
    const int waited_for = retried([&] { return open(same_file.c_str(), flags | O_CLOEXEC | O_NOCTTY); });
    if (waited_for < 0 && errno == ENOENT) // /proc is missing, not the file
        errno = EAGAIN;
    return waited_for;
}

// Makes reads and writes of pipes and devices wait again, except reads of a pipe that belongs to another user, who could
// keep it open and write nothing. Root's pipes count as the user's own.
DWORD let_calls_wait(int number, const open_request& request, const struct stat& status) {
    const bool only_reads = request.reads && !request.writes;
    const bool is_anothers =
        S_ISFIFO(status.st_mode) && only_reads && status.st_uid != 0 && status.st_uid != geteuid();
    const int flags = fcntl(number, F_GETFL);
    const int wanted = is_anothers ? flags | O_NONBLOCK : flags & ~O_NONBLOCK;
    if (flags < 0 || (wanted != flags && fcntl(number, F_SETFL, wanted) != 0))
        return code_of_errno(errno);
    return ERROR_SUCCESS;
}

// Whether the path names a pipe or a device that is to be written to alone. It is opened for just that: O_RDWR would
// not wait for a pipe's reader, nor tell that the reader is gone.
bool is_only_written_to(place& where, const open_request& request) {
    struct stat status;
    const auto look = [&](int at, const char* path) { return fstatat(at, path, &status, 0); };
    return request.writes && !request.reads && where.attempt(look) == 0 && !S_ISREG(status.st_mode)
           && !S_ISDIR(status.st_mode);
}

// Opens for writing alone. A pipe without a reader (ENXIO) is waited for.
int open_to_write(place& where, int host_flags) {
    const int number = open_without_waiting(where, O_WRONLY | host_flags);
    if (number >= 0 || errno != ENXIO)
        return number;
    return open_call(where, O_WRONLY | host_flags);
}

// Opens for reading and writing, also for a caller that only writes: shared locks need a descriptor that can read. A
// file that may not be read is opened for writing alone.
int open_to_change(place& where, const open_request& request, descriptor_rights& rights) {
    const int number = open_call(where, O_RDWR | request.host_flags);
    if (number >= 0 || errno != EACCES || request.reads)
        return number;
    rights.reads = false;
    return open_call(where, O_WRONLY | request.host_flags);
}

// Opens a file that exists, with the rights that the locks of its claim need.
DWORD open_existing(place& where, const open_request& request, descriptor_rights& rights, descriptor& out) {
    const bool empties = truncates(request);
    if (!touches_data(request)) {
        rights = {false, false};
        out = descriptor(open_call(where, O_PATH));
    } else if (!request.writes && !empties) {
        rights = {true, false};
        out = descriptor(open_without_waiting(where, O_RDONLY | request.host_flags));
    } else if ((!request.reads && !empties && request.denies_writes) || is_only_written_to(where, request)) {
        // The whole claim of a writer alone is one exclusive lock: a descriptor that can write is enough.
        rights = {false, true};
        out = descriptor(open_to_write(where, request.host_flags));
    } else {
        rights = {true, true};
        out = descriptor(open_to_change(where, request, rights));
    }
    if (!out && errno == EISDIR && request.takes_directories) {
        rights = {true, false};
        out = descriptor(open_call(where, O_RDONLY | O_DIRECTORY));
    }
    return out ? ERROR_SUCCESS : where.code_of(errno);
}

// Creates the file. Gives `opens_again` when another program has created it first.
DWORD create(place& where, const open_request& request, descriptor& out) {
    const int flags = O_RDWR | O_CREAT | request.host_flags;
    out = descriptor(open_call(where, flags | O_EXCL));
    if (out)
        return ERROR_SUCCESS;
    if (errno != EEXIST)
        return where.code_of(errno);
    if (request.disposition == CREATE_NEW)
        return ERROR_FILE_EXISTS;
    // Another program was faster, or the name is a link without a target: then the file is created at the target.
    struct stat status;
    const auto follow = [&](int at, const char* path) { return fstatat(at, path, &status, 0); };
    if (where.attempt(follow) == 0)
        return opens_again;
    if (errno != ENOENT) // what is there could not be asked, so it must not count as new
        return where.code_of(errno);
    out = descriptor(open_call(where, flags));
    return out ? ERROR_SUCCESS : where.code_of(errno);
}

// Whether the opened file still has its name, now that the claim keeps others from deleting or moving it. A reader may
// keep a file that was moved since, as if it had been opened earlier. A writer may not: its data would go elsewhere.
bool is_still_there(place& where, const share_claim& claim, const struct stat& status) {
    struct stat now;
    const auto look = [&](int at, const char* path) { return fstatat(at, path, &now, 0); };
    return status.st_nlink > 0 && (!claim.writes || (where.attempt(look) == 0 && is_same(now, status)));
}

// The code that an existing file's own kind and attributes give, whoever else has it open.
DWORD check_kind(const open_request& request, const struct stat& status) {
    if (S_ISDIR(status.st_mode))
        return request.takes_directories && !truncates(request) ? ERROR_SUCCESS : ERROR_ACCESS_DENIED;
    const bool changes = request.writes || truncates(request);
    return changes && is_read_only(status.st_mode) ? ERROR_ACCESS_DENIED : ERROR_SUCCESS;
}

share_claim claim_of(const open_request& request, bool existed) {
    return {request.reads, request.writes || (existed && truncates(request)), request.denies_reads,
            request.denies_writes};
}

// Empties a file. CREATE_ALWAYS also gives it the attributes of the request, and fails with 5 (ERROR_ACCESS_DENIED) when
// the file is hidden or a system file and the request does not say so.
DWORD empty(int number, const open_request& request, struct stat& status) {
    if (request.disposition == CREATE_ALWAYS) {
        DWORD stored = 0;
        if (const DWORD code = read_stored_bits(holder(number), stored))
            return code;
        if (stored & (FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM) & ~request.attributes)
            return ERROR_ACCESS_DENIED;
        if (attributes_of(status.st_mode, stored) != attributes_of(status.st_mode, request.attributes)
            || (request.attributes & FILE_ATTRIBUTE_READONLY))
            if (const DWORD code = write_attributes(holder(number), status.st_mode, request.attributes))
                return code;
    }
    if (status.st_size > 0 && retried([&] { return ftruncate(number, 0); }) != 0)
        return code_of_errno(errno);
    status.st_size = 0;
    return ERROR_SUCCESS;
}

// Takes the claim first, and then makes the checks that stay true while it is held. On failure the caller gives it back.
DWORD claim_and_check(place& where, const open_request& request, const descriptor_rights& rights,
                      opened_file& out) {
    const int number = out.number.get();
    const share_claim claim = claim_of(request, out.existed);
    share_result shared = share_result::unsupported;
    if (claim.matters())
        shared = take_claim(number, claim, rights);
    const int claim_error = errno;
    out.has_claim = shared == share_result::granted;
    if (fstat(number, &out.status) != 0)
        return code_of_errno(errno);
    if (out.existed)
        if (const DWORD code = check_kind(request, out.status))
            return code;
    if (!S_ISREG(out.status.st_mode)) {
        // Share modes are about the data of files; directories, pipes and devices have none.
        if (out.has_claim)
            give_back_claim(number);
        out.has_claim = false;
        return S_ISDIR(out.status.st_mode) ? DWORD{ERROR_SUCCESS}
                                           : let_calls_wait(number, request, out.status);
    }
    if (shared == share_result::conflict)
        return ERROR_SHARING_VIOLATION;
    if (shared == share_result::failed)
        return code_of_errno(claim_error);
    if (claim.matters() && !is_still_there(where, claim, out.status))
        return opens_again;
    if (!out.existed || !truncates(request))
        return ERROR_SUCCESS;
    const DWORD code = empty(number, request, out.status);
    if (code == ERROR_SUCCESS && out.has_claim && !request.writes) {
        end_writing(number, claim);
        out.has_claim = request.reads;
    }
    return code;
}

DWORD open_once(place& where, const open_request& request, opened_file& out) {
    descriptor_rights rights{true, true};
    out.existed = false;
    DWORD code = ERROR_FILE_NOT_FOUND;
    if (request.disposition == CREATE_NEW) {
        if (where.find())
            return ERROR_FILE_EXISTS;
        code = where.code_of(errno);
    } else {
        code = open_existing(where, request, rights, out.number);
        out.existed = code == ERROR_SUCCESS;
    }
    if (code == ERROR_FILE_NOT_FOUND && creates(request)) {
        rights = {true, true};
        code = create(where, request, out.number);
    }
    if (code == ERROR_SUCCESS)
        code = claim_and_check(where, request, rights, out);
    if (code != ERROR_SUCCESS && out.number) {
        if (out.has_claim)
            give_back_claim(out.number.get());
        out.number.reset();
    }
    return code;
}

// Gives a new file its attributes. One that cannot keep them is removed again.
DWORD set_new_attributes(place& where, const open_request& request, const opened_file& opened) {
    const DWORD code =
        write_attributes(holder(opened.number.get()), opened.status.st_mode, request.attributes);
    if (code != ERROR_SUCCESS)
        where.attempt([](int at, const char* path) { return unlinkat(at, path, 0); });
    return code;
}

DWORD check_syntax(const place& where, const open_request& request) {
    if (where.is_volume())
        return ERROR_ACCESS_DENIED;
    if (where.is_root() && !(request.takes_directories && request.disposition == OPEN_EXISTING))
        return request.disposition == CREATE_NEW ? ERROR_FILE_EXISTS : ERROR_ACCESS_DENIED;
    return ERROR_SUCCESS;
}

// The code for a name with a separator at its end, unless it is a directory that may be opened.
DWORD check_directory_name(place& where, const open_request& request) {
    struct stat status;
    const auto look = [&](int at, const char* path) { return fstatat(at, path, &status, 0); };
    if (where.attempt(look) != 0) {
        const DWORD code = where.code_of(errno);
        return code == ERROR_FILE_NOT_FOUND ? ERROR_INVALID_NAME : code;
    }
    if (!S_ISDIR(status.st_mode))
        return ERROR_INVALID_NAME;
    if (request.takes_directories)
        return ERROR_SUCCESS;
    switch (request.disposition) {
    case CREATE_NEW: return ERROR_FILE_EXISTS;
    case CREATE_ALWAYS: return ERROR_ACCESS_DENIED;
    default: return ERROR_PATH_NOT_FOUND;
    }
}

DWORD open_place(place& where, const open_request& request, opened_file& out) {
    if (const DWORD code = check_syntax(where, request))
        return code;
    if (where.ends_with_separator())
        if (const DWORD code = check_directory_name(where, request))
            return code;
    // A file that was deleted or moved after it was opened and before it was claimed is opened again: nothing may be
    // written to a file that has lost the name. When that happens every time, the file counts as in use by others.
    DWORD code = opens_again;
    for (int i = 0; code == opens_again && i < tries; ++i)
        code = open_once(where, request, out);
    if (code == opens_again)
        code = ERROR_SHARING_VIOLATION;
    if (code == ERROR_SUCCESS && !out.existed && (request.attributes & ~FILE_ATTRIBUTE_NORMAL))
        code = set_new_attributes(where, request, out);
    return code;
}

} // namespace

DWORD open_file(const WCHAR* path, const open_request& request, opened_file& out) {
    place where;
    if (is_null_device(path))
        where.set_host_path("/dev/null");
    else if (const DWORD code = where.set(path))
        return code;
    return open_place(where, request, out);
}

HANDLE CreateFileW(const WCHAR* path, DWORD access, DWORD share_mode, SECURITY_ATTRIBUTES* attributes,
                   DWORD disposition, DWORD flags, HANDLE template_file) {
    open_request request;
    request.reads = (access & GENERIC_READ) != 0;
    request.writes = (access & GENERIC_WRITE) != 0;
    request.writes_attributes = (access & FILE_WRITE_ATTRIBUTES) != 0;
    request.denies_reads = !(share_mode & FILE_SHARE_READ);
    request.denies_writes = !(share_mode & FILE_SHARE_WRITE);
    request.takes_directories = (flags & FILE_FLAG_BACKUP_SEMANTICS) != 0;
    request.disposition = disposition;
    request.attributes = flags & attribute_bits;

    opened_file opened;
    DWORD code = ERROR_SUCCESS;
    if (disposition < CREATE_NEW || disposition > TRUNCATE_EXISTING || !path || !*path
        || (disposition == TRUNCATE_EXISTING && !request.writes))
        code = ERROR_INVALID_PARAMETER;
    else if (attributes || template_file)
        code = ERROR_NOT_SUPPORTED;
    else
        code = open_file(path, request, opened);
    if (code != ERROR_SUCCESS) {
        SetLastError(code);
        return INVALID_HANDLE_VALUE;
    }
    const bool existed = opened.existed;
    const HANDLE handle = new_handle(new (std::nothrow) file(std::move(opened), request));
    if (!handle)
        return INVALID_HANDLE_VALUE;
    const bool tells = existed && (disposition == CREATE_ALWAYS || disposition == OPEN_ALWAYS);
    SetLastError(tells ? ERROR_ALREADY_EXISTS : ERROR_SUCCESS);
    return handle;
}

} // namespace platform
