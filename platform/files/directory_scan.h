// Inside this folder: reading directories of the host.
#pragma once

#include <memory>
#include <string_view>

#include "platform/core/descriptor.h"

namespace platform {

// A directory opened for reading: a block of entries at a time, in the order of the file system.
class directory_reader {
public:
    // Takes the descriptor over.
    explicit directory_reader(descriptor opened) : directory_(std::move(opened)) {}

    struct entry {
        std::string_view name; // valid until the next call of fill
        unsigned char type;    // DT_DIR, DT_LNK ...; DT_UNKNOWN where the file system does not tell
    };

    // Replaces the entries at hand by the next ones, "." and ".." left out: false at the end, or on a failure (errno;
    // 0 at the end).
    bool fill();

    // The next of the entries at hand; false when there is none.
    bool take(entry& out);

    // The entries at hand are the last ones.
    bool at_end() const { return at_end_; }
    int directory() const { return directory_.get(); }

    // Gives the directory back to its owner, to be read on from the entries at hand.
    descriptor take_directory() { return std::move(directory_); }

    // Gives up the directory and the entries at hand.
    void close() {
        directory_.reset();
        block_.reset();
    }

private:
    descriptor directory_;
    std::unique_ptr<char[]> block_;
    size_t used_ = 0;
    size_t position_ = 0;
    bool at_end_ = false;
    int error_ = 0; // errno of a failed read; told once the entries before it are taken
};

// Opens a directory for listing what is in it; -1 and errno when that fails. `flags`: more of openat.
int open_to_list(int at, const char* path, int flags = 0);

} // namespace platform
