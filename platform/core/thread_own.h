// Inside the layer: an object that each thread has one of.
#pragma once

#include <utility>

namespace platform {

// Made when the thread first asks, released when it ends. Destructors and exit handlers that run after that may still
// ask, and get a fresh one, which a plain thread_local object would not give them. And the thread's storage holds a
// pointer alone: a library whose objects lie there whole can be too large to be loaded by a program that runs already.
template <class Value>
class thread_own {
public:
    static Value* known() { return value_; } // null when the thread has none

    static Value& get() { return value_ ? *value_ : renew(new Value); }

    static Value& renew(Value* fresh) {
        guard_.arm();
        delete std::exchange(value_, fresh);
        return *fresh;
    }

private:
    struct guard {
        ~guard() { delete std::exchange(value_, nullptr); }
        void arm() {} // a first use, which has the destructor called
    };

    static inline constinit thread_local Value* value_ = nullptr;
    static inline thread_local guard guard_;
};

} // namespace platform
