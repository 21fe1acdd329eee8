// Inside the layer: share modes, which hold between all handles of all processes.
#pragma once

#include <sys/types.h>

#include "platform/api/base.h"

namespace platform {

// What a handle does with the data of its file, and what it keeps others from doing.
struct share_claim {
    bool reads;
    bool writes;
    bool denies_reads;
    bool denies_writes;

    // Handles that do not touch the data neither mind nor bother others.
    bool matters() const { return reads || writes; }
};

// What a descriptor is open for: it decides which locks it can take.
struct descriptor_rights {
    bool reads;
    bool writes;
};

enum class share_result {
    granted,
    conflict,
    unsupported, // the file system refuses such locks: nothing is held, and nothing keeps others away
    failed,      // the locks could not be asked for, for want of memory or of locks: errno
};

share_result take_claim(int descriptor, const share_claim& claim, const descriptor_rights& rights);

// A claim on everything, for whoever deletes or replaces a file.
inline constexpr share_claim claim_on_all{true, true, true, true};

// For a claim that was taken for emptying a file, by a handle that does not write afterwards.
void end_writing(int descriptor, const share_claim& claim);

// Gives back what the descriptor holds. Closing would do, if no child that was forked meanwhile had a copy of it.
void give_back_claim(int descriptor);

// Adds what a lock on the bytes from first to last says about its holder; false when it has nothing to do with sharing.
bool add_claim_of_lock(off_t first, off_t last, share_claim& claim);

} // namespace platform
