// Inside the layer: bytes that are wiped when they are no longer needed.
#pragma once

#include <cstring>
#include <vector>

namespace platform {

// The size is fixed, so that no growth leaves a copy behind.
class secret {
public:
    explicit secret(size_t size) : bytes_(size) {}
    ~secret() { wipe(); }
    secret(secret&&) = default;
    secret& operator=(secret&& other) noexcept {
        wipe();
        bytes_ = std::move(other.bytes_);
        return *this;
    }

    char* data() { return bytes_.data(); }
    const char* data() const { return bytes_.data(); }
    size_t size() const { return bytes_.size(); }

private:
    void wipe() {
        if (!bytes_.empty())
            explicit_bzero(bytes_.data(), bytes_.size());
    }

    std::vector<char> bytes_;
};

} // namespace platform
