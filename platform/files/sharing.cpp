// Share modes, as locks on four bytes far beyond any data.
//
// The locks belong to the open file description, so they exclude within a process as well as between processes, and
// end with the last descriptor, whatever kills its holder. A handle locks its own bytes, for what it does (reads,
// writes) and what it denies; it may be there only while nobody else holds one of the opposite bytes. It locks its own
// bytes first and tests the opposite ones second. Two rivals may both back off, but never can both succeed. A handle that
// has backed off looks whether the other one goes on holding its bytes: if so, the file is in use; else both backed off,
// or the other one failed for a reason of its own, and it tries again.
//
//                     second: access and share mode (1: reads, 2: writes, 3: both, 0: neither)
//                     R0 R1 R2 R3   W0 W1 W2 W3   B0 B1 B2 B3
//          first R0    .  .  .  .    .  .  .  .    .  .  .  .       B: reads and writes
//                R1    .  +  .  +    .  .  .  .    .  .  .  .       +: both can be open
//                R2    .  .  .  .    .  +  .  +    .  .  .  .       Access to neither goes with everything.
//                R3    .  +  .  +    .  +  .  +    .  +  .  +
//                W0    .  .  .  .    .  .  .  .    .  .  .  .
//                W1    .  .  +  +    .  .  .  .    .  .  .  .
//                W2    .  .  .  .    .  .  *  *    .  .  .  .
//                W3    .  .  +  +    .  .  *  *    .  .  *  *
//                B0    .  .  .  .    .  .  .  .    .  .  .  .
//                B1    .  .  .  +    .  .  .  .    .  .  .  .
//                B2    .  .  .  .    .  .  .  *    .  .  .  .
//                B3    .  .  .  +    .  .  .  *    .  .  .  +
//
// Shared locks need a descriptor that can read, so files are opened for reading as well whenever that is permitted.
// A descriptor that can only write takes its own bytes exclusively: then the pairs marked *, which can both be open, exclude
// each other as soon as one of the two is such a descriptor. All other pairs are as they should be.
#include "platform/files/sharing.h"

#include <fcntl.h>
#include <sched.h>
#include <time.h>

#include <cerrno>

#include "platform/core/retry.h"

namespace platform {

namespace {

// In this order, the bytes of the commoner claims lie side by side, and one call locks or tests them.
enum claim_byte : unsigned {
    denying_reads = 1,
    writing = 2,
    denying_writes = 4,
    reading = 8,
    all_bytes = 15,
};
constexpr unsigned byte_count = 4;
constexpr off_t first_byte = 0x7FFF'FFFF'FFFF'FF00;

constexpr int tries = 4;
constexpr int looks = 8;

unsigned own_bytes(const share_claim& claim) {
    return (claim.reads ? reading : 0u) | (claim.writes ? writing : 0u)
           | (claim.denies_reads ? denying_reads : 0u) | (claim.denies_writes ? denying_writes : 0u);
}

unsigned opposite_bytes(const share_claim& claim) {
    return (claim.reads ? denying_reads : 0u) | (claim.writes ? denying_writes : 0u)
           | (claim.denies_reads ? reading : 0u) | (claim.denies_writes ? writing : 0u);
}

struct byte_range {
    unsigned first;
    unsigned count;
};

bool lock_call(int descriptor, int command, short type, byte_range range, struct flock& lock) {
    lock = {};
    lock.l_type = type;
    lock.l_whence = SEEK_SET;
    lock.l_start = first_byte + range.first;
    lock.l_len = range.count;
    return retried([&] { return fcntl(descriptor, command, &lock); }) == 0;
}

// Calls `use` on each run of neighbouring bytes, until it gives false.
template <class Use>
bool each_range(unsigned bytes, Use use) {
    for (unsigned first = 0; first < byte_count; ++first) {
        unsigned count = 0;
        while (bytes >> (first + count) & 1)
            ++count;
        if (count > 0 && !use(byte_range{first, count}))
            return false;
        first += count;
    }
    return true;
}

byte_range hull_of(unsigned bytes) {
    const auto first = static_cast<unsigned>(__builtin_ctz(bytes));
    const auto end = 32 - static_cast<unsigned>(__builtin_clz(bytes));
    return {first, end - first};
}

share_result result_of_failure() {
    switch (errno) {
    case EAGAIN:
    case EACCES: return share_result::conflict;
    case EINVAL:
    case ENOLCK: // also of a network file system without a lock service
    case ENOSYS:
    case EOPNOTSUPP: return share_result::unsupported;
    default: return share_result::failed;
    }
}

share_result lock_bytes(int descriptor, short type, unsigned bytes) {
    struct flock lock;
    const bool locked = each_range(
        bytes, [&](byte_range range) { return lock_call(descriptor, F_OFD_SETLK, type, range, lock); });
    return locked ? share_result::granted : result_of_failure();
}

// Granted when nobody else has a lock there.
share_result test_range(int descriptor, byte_range range) {
    struct flock lock;
    if (!lock_call(descriptor, F_OFD_GETLK, F_WRLCK, range, lock))
        return result_of_failure();
    return lock.l_type == F_UNLCK ? share_result::granted : share_result::conflict;
}

share_result test_bytes(int descriptor, unsigned bytes) {
    // Usually nobody else holds any byte, and one call on the whole range tells. A conflict may come from a byte that
    // lies between the tested ones, so each run of those is then tested alone.
    share_result result = test_range(descriptor, hull_of(bytes));
    if (result == share_result::conflict)
        each_range(bytes, [&](byte_range range) {
            return (result = test_range(descriptor, range)) == share_result::granted;
        });
    return result;
}

// The locks that a claim takes and those that it must not meet.
struct claim_locks {
    unsigned own;
    unsigned opposite;
    short type;
    bool one_call_decides; // own and opposite bytes are the same, and the lock is exclusive
};

claim_locks locks_of(const share_claim& claim, const descriptor_rights& rights) {
    unsigned own = own_bytes(claim);
    unsigned opposite = opposite_bytes(claim);
    // A claim that denies both excludes everyone: it locks all four bytes in one call.
    if (claim.denies_reads && claim.denies_writes)
        own = opposite = all_bytes;
    const bool one_call_decides = own == opposite && rights.writes;
    const bool is_exclusive = one_call_decides || !rights.reads;
    return {own, opposite, static_cast<short>(is_exclusive ? F_WRLCK : F_RDLCK), one_call_decides};
}

share_result try_claim(int descriptor, const claim_locks& locks) {
    const share_result result = lock_bytes(descriptor, locks.type, locks.own);
    return result != share_result::granted || locks.one_call_decides ? result
                                                                     : test_bytes(descriptor, locks.opposite);
}

// Whether the claim's own locks could be had now, and the opposite bytes are free.
bool could_be_granted(int descriptor, const claim_locks& locks) {
    struct flock lock;
    const bool is_own_free = each_range(locks.own, [&](byte_range range) {
        return lock_call(descriptor, F_OFD_GETLK, locks.type, range, lock) && lock.l_type == F_UNLCK;
    });
    return is_own_free && test_bytes(descriptor, locks.opposite) == share_result::granted;
}

// Whether the rival's locks go away within the time in which a handle is either opened or gives way.
bool becomes_free(int descriptor, const claim_locks& locks) {
    for (int i = 0; i < looks; ++i) {
        if (could_be_granted(descriptor, locks))
            return true;
        sched_yield();
    }
    return false;
}

// Waits for a moment. Its length varies, so that the two sides of a race do not wait equally long.
void wait_a_little(int after_try) {
    if (after_try == 0)
        return;
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    const timespec pause{0, 50'000L * after_try + now.tv_nsec % 100'000};
    nanosleep(&pause, nullptr);
}

} // namespace

share_result take_claim(int descriptor, const share_claim& claim, const descriptor_rights& rights) {
    const claim_locks locks = locks_of(claim, rights);
    for (int i = 0;; ++i) {
        const share_result result = try_claim(descriptor, locks);
        if (result == share_result::granted)
            return result;
        const int error = errno;
        give_back_claim(descriptor);
        errno = error;
        if (result != share_result::conflict || i + 1 == tries || !becomes_free(descriptor, locks))
            return result;
        wait_a_little(i);
    }
}

void end_writing(int descriptor, const share_claim& claim) {
    if (!claim.reads)
        give_back_claim(descriptor);
    else
        lock_bytes(descriptor, F_UNLCK, writing);
}

void give_back_claim(int descriptor) {
    struct flock lock;
    lock_call(descriptor, F_OFD_SETLK, F_UNLCK, {0, byte_count}, lock);
}

bool add_claim_of_lock(off_t first, off_t last, share_claim& claim) {
    bool found = false;
    for (unsigned index = 0; index < byte_count; ++index) {
        const off_t byte = first_byte + index;
        if (byte < first || byte > last)
            continue;
        const unsigned bit = 1u << index;
        (bit == denying_reads    ? claim.denies_reads
         : bit == writing        ? claim.writes
         : bit == denying_writes ? claim.denies_writes
                                 : claim.reads) = found = true;
    }
    return found;
}

} // namespace platform
