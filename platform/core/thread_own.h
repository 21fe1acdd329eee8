// Inside the layer: an object that each thread has one of.
#pragma once

#include <atomic>
#include <utility>

namespace platform {

// One kind of object that threads own, in the list of all kinds.
struct owned_kind {
    void (*release)(); // the calling thread's, if it has one
    std::atomic<bool> is_listed{false};
    owned_kind* next = nullptr;
};

// Has the thread's object of this kind released when the thread ends. The C library's own way, a destructor of a
// thread_local object, ends the process when there is no memory to note the destructor; here the object then stays.
void release_at_thread_end(owned_kind& kind);

// Made when the thread first asks, released when it ends. Destructors that run after that may still ask, and get a fresh
// one, which a plain thread_local object would not give them. And the thread's storage holds a pointer alone: a library
// whose objects lie there whole can be too large to be loaded by a program that runs already.
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
