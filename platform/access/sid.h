// Inside the layer: identifiers as values.
#pragma once

#include <cstring>
#include <initializer_list>

#include "platform/api/security.h"

namespace platform {

inline constexpr size_t sid_numbers_at_most = 8;
inline constexpr BYTE sid_revision = 1;

constexpr DWORD size_of_sid(size_t count) {
    return static_cast<DWORD>(offsetof(SID, SubAuthority) + count * sizeof(DWORD));
}

// An identifier with room for the longest.
class sid_value {
public:
    sid_value(BYTE authority, std::initializer_list<DWORD> numbers) {
        SID header{sid_revision, static_cast<BYTE>(numbers.size()), {{0, 0, 0, 0, 0, authority}}, {0}};
        std::memcpy(bytes_, &header, offsetof(SID, SubAuthority));
        std::memcpy(bytes_ + offsetof(SID, SubAuthority), numbers.begin(), numbers.size() * sizeof(DWORD));
        size_ = size_of_sid(numbers.size());
    }

    const BYTE* data() const { return bytes_; }
    DWORD size() const { return size_; }

private:
    alignas(SID) BYTE bytes_[offsetof(SID, SubAuthority) + sid_numbers_at_most * sizeof(DWORD)];
    DWORD size_;
};

} // namespace platform
