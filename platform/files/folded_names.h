// Inside this folder: the names in large directories. A name can be known to be missing in every spelling, without a
// look at each of a hundred thousand entries.
//
// For a few directories, the hashes of all names are kept, with the letters folded. The host's notifications (inotify)
// keep them exact: they are queued before the call that changes a directory returns. A name whose hash is missing is in
// the directory in no spelling; for any other name the directory is read. Network file systems do not notify of all
// changes, so nothing is kept for them.
#pragma once

#include <cstdint>
#include <memory>
#include <string_view>

namespace platform {

struct watched_directory;

uint64_t folded_hash(std::string_view name);

// Whether it is certain that no entry of the open directory has a name with this hash.
bool is_known_to_lack(int directory, uint64_t hash);

// Collects the names of a directory while it is read.
class folded_names_reading {
public:
    folded_names_reading() = default;
    ~folded_names_reading();
    folded_names_reading(const folded_names_reading&) = delete;
    folded_names_reading& operator=(const folded_names_reading&) = delete;

    // Starts to watch a directory, which is to be read from its start after that. False: its names are not kept, or
    // are already.
    bool begin(int directory);

    // Adds an entry's name; nothing happens when begin has not been called or was false.
    void add(std::string_view name);

    // All entries have been added.
    void finish();

private:
    std::shared_ptr<watched_directory> target_;
};

} // namespace platform
