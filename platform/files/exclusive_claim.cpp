// Keeping everybody away from a file.
#include "platform/files/exclusive_claim.h"

#include <fcntl.h>

#include <cerrno>

#include "platform/core/error.h"
#include "platform/core/retry.h"
#include "platform/files/same_file.h"
#include "platform/files/sharing.h"

namespace platform {

namespace {

constexpr int tries = 16;

// Opens for reading if possible: opening for writing would tell those who watch the file that it may have changed.
int open_somehow(int at, const char* name, descriptor_rights& rights) {
    const auto open_for = [&](int access) {
        return retried(
            [&] { return openat(at, name, access | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC); });
    };
    rights = {true, false};
    const int number = open_for(O_RDONLY);
    if (number >= 0 || errno != EACCES)
        return number;
    rights = {false, true};
    return open_for(O_WRONLY);
}

// Errors by which the host refuses to open the file for any use. Its permissions then decide about the name as well.
bool is_refusal(int error) {
    return error == EACCES || error == EPERM || error == ENXIO || error == ETXTBSY || error == EROFS;
}

int look(int at, const char* name, struct stat& status) {
    return fstatat(at, name, &status, AT_SYMLINK_NOFOLLOW);
}

} // namespace

DWORD hold::take(place& where, struct stat& status) {
    const auto look_there = [&](int at, const char* name) { return look(at, name, status); };
    if (where.attempt(look_there) != 0)
        return where.code_of(errno);
    return take(where.directory(), where.name(), status);
}

DWORD hold::take(int at, const char* name, struct stat& status) {
    DWORD code = ERROR_SUCCESS;
    for (int i = 0; i < tries; ++i) {
        if (try_take(at, name, status, code))
            return code;
        reset();
    }
    return ERROR_SHARING_VIOLATION;
}

bool hold::try_take(int at, const char* name, struct stat& status, DWORD& code) {
    code = ERROR_SUCCESS;
    if (!S_ISREG(status.st_mode))
        return true;
    descriptor_rights rights;
    descriptor_ = descriptor(open_somehow(at, name, rights));
    const int error = descriptor_ ? 0 : errno;
    if (error == EWOULDBLOCK)
        code = ERROR_SHARING_VIOLATION; // another program has a lease, which the kernel now calls back
    else if (error != 0 && error != ENOENT && error != ELOOP && !is_refusal(error))
        code = code_of_errno(error);
    else if (error == 0)
        code = claim(rights);
    if (code != ERROR_SUCCESS)
        return true;
    if (look(at, name, status) != 0) {
        code = code_of_errno(errno);
        return true;
    }
    struct stat held;
    return is_refusal(error) || (error == 0 && fstat(descriptor_.get(), &held) == 0 && is_same(held, status));
}

DWORD hold::claim(const descriptor_rights& rights) {
    switch (take_claim(descriptor_.get(), claim_on_all, rights)) {
    case share_result::conflict: return ERROR_SHARING_VIOLATION;
    case share_result::failed: return code_of_errno(errno);
    case share_result::granted: has_claim_ = true; break;
    case share_result::unsupported: break;
    }
    return ERROR_SUCCESS;
}

void hold::reset() {
    if (has_claim_)
        give_back_claim(descriptor_.get());
    has_claim_ = false;
    descriptor_.reset();
}

} // namespace platform
