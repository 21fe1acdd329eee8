// Inside the layer: a descriptor that closes itself.
#pragma once

#include <unistd.h>

#include <cerrno>
#include <utility>

namespace platform {

class descriptor {
public:
    descriptor() = default;
    explicit descriptor(int number) : number_(number) {}
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
