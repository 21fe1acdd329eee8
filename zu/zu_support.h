// The few idioms that keep the families' bodies short. Internal: no caller sees this.
#pragma once

#include <cstring>
#include <string_view>
#include <type_traits>
#include <utility>

#include "platform/platform.h"
#include "zu/zu.h"

namespace zu {

// All searching, comparing and slicing of wide text goes through this.
using text_view = std::basic_string_view<ZU_wchar>;

inline bool is_empty(const ZU_wchar* text) {
    return !text || text[0] == 0;
}

// Takes the last-error code when made and puts it back when it goes out of scope, so that clean-up between the two
// leaves the reason of the failure in place.
class keep_last_error {
public:
    keep_last_error() : code_(platform::GetLastError()) {}
    ~keep_last_error() { platform::SetLastError(code_); }
    keep_last_error(const keep_last_error&) = delete;
    keep_last_error& operator=(const keep_last_error&) = delete;

private:
    platform::DWORD code_;
};

// Sets the last-error code and returns a failed result: false, null, or `result`.
template <class Result = bool>
Result fail(platform::DWORD code, Result result = {}) {
    platform::SetLastError(code);
    return result;
}

// Holds a thread lock for the length of a scope.
class held {
public:
    explicit held(ZU_lock_thread& lock) : lock_(lock) { ZU_lock_thread_lock(&lock_); }
    ~held() { ZU_lock_thread_unlock(&lock_); }
    held(const held&) = delete;
    held& operator=(const held&) = delete;

private:
    ZU_lock_thread& lock_;
};

// A block of the memory family, released at the end of the scope unless it is handed on.
template <class T>
class owned {
public:
    explicit owned(T* block = nullptr) : block_(block) {}
    ~owned() { ZU_free(block_); }
    owned(const owned&) = delete;
    owned& operator=(const owned&) = delete;

    T* get() const { return block_; }
    T* operator->() const { return block_; }
    T& operator[](size_t index) const { return block_[index]; }
    explicit operator bool() const { return block_ != nullptr; }

    // Hands the block to the caller, who owns it then.
    T* release() { return std::exchange(block_, nullptr); }

    void reset(T* block) { ZU_free(std::exchange(block_, block)); }

private:
    T* block_;
};

// A growable string that destroys itself at the end of the scope.
class scoped_string {
public:
    scoped_string() = default;
    ~scoped_string() { ZU_s_destroy(&text_); }
    scoped_string(const scoped_string&) = delete;
    scoped_string& operator=(const scoped_string&) = delete;

    ZU_s* address() { return &text_; }
    const ZU_wchar* text() const { return ZU_s_text(text_); }
    uint32_t length() const { return ZU_s_length(text_); }
    text_view view() const { return {text(), length()}; }

private:
    ZU_s text_ = nullptr;
};

// Ends the process as out of memory, since no block holds so many bytes.
[[noreturn]] void report_too_long(uint64_t bytes);

// The size in 32 bits, as the memory family counts. Callers compute sizes in 64 bits, so that none wraps.
inline uint32_t block_size(uint64_t bytes) {
    if (bytes > UINT32_MAX)
        report_too_long(bytes);
    return static_cast<uint32_t>(bytes);
}

// Room for `count` elements of T, not initialised.
template <class T>
T* allocate(uint64_t count = 1) {
    static_assert(std::is_trivial_v<T>, "blocks of the memory family hold plain records");
    return static_cast<T*>(ZU_malloc(block_size(count * sizeof(T))));
}

} // namespace zu
