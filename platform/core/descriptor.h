// Inside the layer: a descriptor that closes itself, and never takes the place of a standard stream.
#pragma once

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

namespace platform {

// The same under another number, should it be one of the three that stand for the standard streams: a program may have
// closed those, and what it then writes there must not end in its own files. -1, with errno, for none.
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

    // Closing says nothing of interest, and must not hide the errno of what went before.
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
