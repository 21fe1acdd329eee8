// Inside the layer: an object that each thread has one of.
#pragma once

#include <atomic>
#include <utility>

namespace platform {

// One kind of object that threads own, in the list of all kinds.
struct owned_kind {
    void (*release)(); // releases the calling thread's object, if it has one
    std::atomic<bool> is_listed{false};
    owned_kind* next = nullptr;
};

// Has the thread's object of this kind released when the thread ends. The C library's own way, a destructor of a
// thread_local object, ends the process when there is no memory to note the destructor; here the object then stays.
void release_at_thread_end(owned_kind& kind);

// The object is made when the thread first asks, and released when the thread ends. A destructor that runs later may
// still ask and gets a fresh object, which a plain thread_local would not give. Only a pointer lies in TLS: a library
// that is loaded into a running program gets little static TLS space.
template <class Value>
class thread_own {
public:
    static Value* known() { return value_; } // null when the thread has none

    static Value& get() { return value_ ? *value_ : renew(new Value); }

    static Value& renew(Value* fresh) {
        release_at_thread_end(kind_);
        delete std::exchange(value_, fresh);
        return *fresh;
    }

private:
    static inline constinit thread_local Value* value_ = nullptr;
    static inline constinit owned_kind kind_{[] { delete std::exchange(value_, nullptr); }};
};

} // namespace platform
