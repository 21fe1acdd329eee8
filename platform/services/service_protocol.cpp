// The marks of a service.
#include "platform/services/service_protocol.h"

#include <fcntl.h>
#include <unistd.h>

#include "platform/core/descriptor.h"

namespace platform {

bool has_mark(int directory, const char* mark) {
    return faccessat(directory, mark, F_OK, AT_SYMLINK_NOFOLLOW) == 0;
}

bool set_mark(int directory, const char* mark) {
    const descriptor file(openat(directory, mark, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644));
    return file && fsync(directory) == 0;
}

void clear_mark(int directory, const char* mark) {
    unlinkat(directory, mark, 0);
}

} // namespace platform
