// Inside this folder: open files.
#pragma once

#include <cstring>
#include <memory>

#include "platform/api/files.h"
#include "platform/core/handle.h"
#include "platform/files/attributes.h"
#include "platform/files/sharing.h"

namespace platform {

struct open_request {
    bool reads = false;
    bool writes = false;
    bool writes_attributes = false;
    bool denies_reads = true;
    bool denies_writes = true;
    bool takes_directories = false;
    DWORD disposition = OPEN_EXISTING;
    DWORD attributes = 0; // those of a file that is made or replaced
    int host_flags = 0;   // further flags for the host's open
};

// The result of opening: a descriptor, which holds the claim if there is one.
struct opened_file {
    descriptor number;
    struct stat status = {};
    bool existed = false;
    bool has_claim = false;
};

// Opens the file that a path names, or the null device. 0 or a code. An existing file's data is not touched before its
// share modes are tested.
DWORD open_file(const WCHAR* path, const open_request& request, opened_file& out);

// The object of a file's handle.
class file : public object {
public:
    static constexpr object_kind kind{};

    file(opened_file&& opened, const open_request& request);

    DWORD close() override;

    // Reads bytes that have been read ahead already, the common case of a line reader; false when they are not at hand.
    bool take_ahead(void* out, size_t count) {
        if (!block_holds(count))
            return false;
        std::memcpy(out, block_.get() + (position_ - block_start_), count);
        latest_start_ = position_;
        latest_end_ = position_ += count;
        return true;
    }

    // Reads a line and the line feed or zero byte that ends it, when the end is among the next `most` bytes and all of
    // these have been read ahead. 0, with nothing read, in any other case.
    size_t take_line_ahead(char* out, size_t most);

    DWORD read(char* out, size_t count, size_t& done);
    DWORD write(const char* data, size_t count);
    DWORD seek(int64_t distance, DWORD origin, int64_t& position);
    DWORD go_to_known_end(int64_t& position);
    DWORD set_end();
    DWORD flush();

    int number() const { return number_.get(); }
    bool is_directory() const { return S_ISDIR(mode_); }
    bool reads() const { return reads_; }
    bool writes() const { return writes_; }
    bool writes_attributes() const { return writes_ || writes_attributes_; }

private:
    DWORD read_regular(char* out, size_t count, size_t& done);
    ssize_t read_at(char* out, size_t count) const;
    size_t take_from_block(char* out, size_t count);
    bool block_holds(size_t count) const {
        return position_ >= block_start_ && position_ - block_start_ < block_size_
               && count <= block_size_ - (position_ - block_start_);
    }
    bool may_hold_zero(size_t end);
    bool is_sequential() const;
    bool fill_block();
    void drop_block() { block_size_ = 0; }
    DWORD write_regular(const char* data, size_t count);
    void cut_back(uint64_t written_to);
    uint64_t size_limit();
    int64_t end() const;

    descriptor number_;
    const bool reads_;
    const bool writes_;
    const bool writes_attributes_;
    const bool has_claim_;
    const bool keeps_writers_away_; // its claim denies writing to others
    const mode_t mode_;
    const DWORD opener_; // pid of the process that opened it

    uint64_t position_ = 0;
    static constexpr uint64_t not_asked = UINT64_MAX - 1;
    uint64_t size_limit_ = not_asked; // RLIMIT_FSIZE
    uint64_t size_;                   // the file's; exact while other writers are kept away

    // The block that was read ahead: the bytes of the file from block_start_ on.
    std::unique_ptr<char[]> block_;
    uint64_t block_start_ = 0;
    size_t block_size_ = 0;
    size_t without_zero_ = 0; // so many bytes at its start are known to hold no zero byte
    // The positions where the latest read began and ended.
    uint64_t latest_start_ = 0;
    uint64_t latest_end_ = 0;
};

} // namespace platform
