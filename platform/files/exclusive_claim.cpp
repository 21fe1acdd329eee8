// Keeping everybody away from a file.
#include "platform/files/exclusive_claim.h"

#include <fcntl.h>

#include <cerrno>

#include "platform/files/sharing.h"

namespace platform {

namespace {

constexpr int tries = 16;

// For reading if possible: opening for writing would tell those who watch the file that it may have changed.
int open_somehow(place& where, descriptor_rights& rights) {
    const auto open_for = [&](int access) {
        return where.attempt([&](int at, const char* path) {
            return openat(at, path, access | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
        });
    };
    rights = {true, false};
    const int number = open_for(O_RDONLY);
    if (number >= 0 || errno != EACCES)
        return number;
    rights = {false, true};
    return open_for(O_WRONLY);
}

} // namespace

DWORD hold::take(place& where, struct stat& status) {
    DWORD code = ERROR_SUCCESS;
    for (int i = 0; i < tries; ++i) {
        if (try_take(where, status, code))
            return code;
        reset();
    }
    return ERROR_SHARING_VIOLATION;
}

bool hold::try_take(place& where, struct stat& status, DWORD& code) {
    const auto look = [&](int at, const char* path) {
        return fstatat(at, path, &status, AT_SYMLINK_NOFOLLOW);
    };
    if (where.attempt(look) != 0) {
        code = where.code_of(errno);
        return true;
    }
    code = ERROR_SUCCESS;
    if (!S_ISREG(status.st_mode))
        return true;
    descriptor_rights rights;
    number_ = descriptor(open_somehow(where, rights));
    if (!number_)
        return errno != ENOENT && errno != ELOOP;
    switch (take_claim(number_.get(), claim_on_all, rights)) {
    case share_result::conflict: code = ERROR_SHARING_VIOLATION; return true;
    case share_result::unsupported: return true;
    case share_result::granted: has_claim_ = true;
    }
    struct stat held;
    return fstat(number_.get(), &held) == 0 && where.attempt(look) == 0 && held.st_ino == status.st_ino
           && held.st_dev == status.st_dev;
}

void hold::reset() {
    if (has_claim_)
        give_back_claim(number_.get());
    has_claim_ = false;
    number_.reset();
}

} // namespace platform
