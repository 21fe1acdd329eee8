// Inside the layer: a descriptor that closes itself, and never takes the place of a standard stream.
#pragma once

#include <fcntl.h>
#include <sys/types.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

namespace platform {

// The locks of share modes lie at the end of 63 bits.
static_assert(sizeof(off_t) == 8 && sizeof(time_t) == 8, "build with _FILE_OFFSET_BITS=64 and _TIME_BITS=64");

// Moves a descriptor of 0 to 2 to a higher number, so that output to a closed standard stream cannot land in a file of
// the library's. -1, with errno, for none.
inline int beyond_standard(int number) {
    if (number < 0 || number > STDERR_FILENO) [[likely]]
        return number;
    const int moved = fcntl(number, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
    const int error = errno;
    close(number);
    errno = error;
    return moved;
}

class descriptor {
public:
    descriptor() = default;
    explicit descriptor(int number) : number_(beyond_standard(number)) {}
    ~descriptor() { reset(); }
    descriptor(descriptor&& other) noexcept : number_(other.release()) {}
    descriptor& operator=(descriptor&& other) noexcept {
        if (this != &other) {
            reset();
            number_ = other.release();
        }
        return *this;
    }

    int get() const { return number_; }
    explicit operator bool() const { return number_ >= 0; }
    int release() { return std::exchange(number_, -1); }

    // The result of close is of no interest, and must not hide the errno of an earlier call.
    void reset() {
        if (number_ < 0)
            return;
        const int error = errno;
        close(release());
        errno = error;
    }

private:
    int number_ = -1;
};

} // namespace platform
