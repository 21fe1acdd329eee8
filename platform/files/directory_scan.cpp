// Reading directories of the host.
#include "platform/files/directory_scan.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/syscall.h>

#include <cstring>

#include "platform/core/retry.h"

namespace platform {

namespace {

// Usual directories fit in whole. A call is made as long as there is room for a fair number of entries, so that the
// end of such a directory is found while its entries are at hand.
constexpr size_t block_size = 64 * 1024;
constexpr size_t least_room = 4 * 1024;

// Where the parts of a record lie, as the system call writes it; the C library's own record has a fixed size.
constexpr size_t length_offset = 16;
constexpr size_t type_offset = 18;
constexpr size_t name_offset = 19;

bool is_dots(const char* name) {
    return name[0] == '.' && (name[1] == 0 || (name[1] == '.' && name[2] == 0));
}

} // namespace

bool directory_reader::fill() {
    if (!block_)
        block_ = std::make_unique_for_overwrite<char[]>(block_size);
    position_ = used_ = 0;
    while (!at_end_ && error_ == 0 && block_size - used_ >= least_room) {
        const auto read = retried([&] {
            return syscall(SYS_getdents64, directory_.get(), block_.get() + used_, block_size - used_);
        });
        if (read < 0)
            error_ = errno;
        else if (read == 0)
            at_end_ = true;
        else
            used_ += static_cast<size_t>(read);
    }
    errno = used_ > 0 ? 0 : error_;
    return used_ > 0;
}

bool directory_reader::take(entry& out) {
    while (position_ < used_) {
        const char* record = block_.get() + position_;
        uint16_t length;
        std::memcpy(&length, record + length_offset, sizeof length);
        position_ += length;
        const char* name = record + name_offset;
        if (is_dots(name))
            continue;
        out = {name, static_cast<unsigned char>(record[type_offset])};
        return true;
    }
    return false;
}

int open_to_list(int at, const char* path, int flags) {
    return retried([&] { return openat(at, path, O_RDONLY | O_DIRECTORY | O_CLOEXEC | flags); });
}

} // namespace platform
