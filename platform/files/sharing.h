// Inside the layer: share modes, which hold between all handles of all processes.
#pragma once

#include <sys/types.h>

#include "platform/api/base.h"

namespace platform {

// The uses that a handle makes of its file's data, and those that it denies to others.
struct share_claim {
    bool reads;
    bool writes;
    bool denies_reads;
    bool denies_writes;

    // Handles that do not touch the data neither mind nor bother others.
    bool matters() const { return reads || writes; }
};

// The uses that a descriptor is open for: they decide which locks it can take.
struct descriptor_rights {
    bool reads;
    bool writes;
};

enum class share_result {
    granted,
    conflict,
    unsupported, // the file system refuses such locks: nothing is held, and nothing keeps others away
    failed,      // the locks could not be asked for, with errno, such as for want of memory
};

share_result take_claim(int descriptor, const share_claim& claim, const descriptor_rights& rights);

// A claim on everything, for a caller that deletes or replaces a file.
inline constexpr share_claim claim_on_all{true, true, true, true};

// Gives back the writer's part of a claim that was taken for emptying a file by a handle that does not write
// afterwards.
void end_writing(int descriptor, const share_claim& claim);

// Gives back the descriptor's locks. Closing it would not do when a forked child has a copy of the descriptor.
void give_back_claim(int descriptor);

// Adds what a lock on the bytes from first to last says about its holder; false when it has nothing to do with sharing.
bool add_claim_of_lock(off_t first, off_t last, share_claim& claim);

} // namespace platform
