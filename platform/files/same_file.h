// Inside this folder: whether two stat records are of one file.
#pragma once

#include <sys/stat.h>

namespace platform {

inline bool is_same(const struct stat& status, const struct stat& other) {
    return status.st_ino == other.st_ino && status.st_dev == other.st_dev;
}

} // namespace platform
