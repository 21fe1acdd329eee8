// Inside this folder: the number of a thread, which no later thread of the process gets.
#pragma once

#include <atomic>
#include <cstdint>

namespace platform {

// The address of a thread and the host's number for it both serve again once it has ended, so a lock that it left
// held would pass for a lock of the next thread. A forked child's thread keeps the number and the thread locks that
// go with it. Initial-exec, since a look-up through the loader would cost more than the whole lock; it takes a
// pointer's bytes of the loader's spare room.
[[gnu::tls_model("initial-exec")]] inline constinit thread_local uintptr_t known_serial = 0;

// Never 0.
inline uintptr_t thread_serial() {
    static constinit std::atomic<uintptr_t> latest{0};
    if (known_serial == 0) [[unlikely]]
        known_serial = latest.fetch_add(1, std::memory_order_relaxed) + 1;
    return known_serial;
}

} // namespace platform
