// Inside this folder: the number of a thread, which no later thread of the process gets.
#pragma once

#include <atomic>
#include <cstdint>

namespace platform {

// The address of a thread and its tid are used again after its end, so a lock that it left held would pass for a lock
// of the next thread. A forked child's thread keeps the number and the thread locks that go with it. The TLS model is
// initial-exec, since a look-up through the loader would cost more than the whole lock. It takes eight bytes of the
// loader's spare static TLS.
[[gnu::tls_model("initial-exec")]] inline constinit thread_local uintptr_t known_serial = 0;

// Never 0.
inline uintptr_t thread_serial() {
    static constinit std::atomic<uintptr_t> latest{0};
    if (known_serial == 0) [[unlikely]]
        known_serial = latest.fetch_add(1, std::memory_order_relaxed) + 1;
    return known_serial;
}

} // namespace platform
