// Where the host directory is.
#include "platform/core/host_dir.h"

#include <cstdlib>

namespace platform {

const char* host_directory() {
    // secure_getenv: a set-id program must not take its drives and services from whoever starts it.
    const char* given = secure_getenv("ZU_HOST");
    return given && *given ? given : "/var/lib/zu";
}

std::string in_host_directory(const char* relative) {
    return std::string(host_directory()) + '/' + relative;
}

} // namespace platform
