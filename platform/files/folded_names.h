// Inside this folder: what large directories hold, so that a missing name is known to be missing in every spelling
// without a look at each of a hundred thousand entries.
//
// Of a few directories, the hashes of all names are kept, with the letters folded. They are kept exact by the host's
// notifications (inotify), which are queued before the call that changes a directory returns: a name that is not among
// the hashes is in the directory in no spelling; for any other one the directory is read. Where the host tells nothing
// or not all, as for network file systems, nothing is kept.
#pragma once

#include <cstdint>
#include <memory>
#include <string_view>

namespace platform {

struct watched_directory;

uint64_t folded_hash(std::string_view name);

// Whether it is certain that no entry of the open directory has a name with this hash.
bool is_known_to_lack(int directory, uint64_t hash);

// A look through a directory which others can do without afterwards.
class folded_names_reading {
public:
    folded_names_reading() = default;
    ~folded_names_reading();
    folded_names_reading(const folded_names_reading&) = delete;
    folded_names_reading& operator=(const folded_names_reading&) = delete;

    // Starts to watch a directory, which is to be read from its start after that. False: its names are not kept, or
    // are already.
    bool begin(int directory);

    // An entry, where the directory is watched.
    void add(std::string_view name);

    // All entries have been added.
    void finish();

private:
    std::shared_ptr<watched_directory> target_;
};

} // namespace platform
