// Inside the layer: what stands behind a handle.
//
// A handle is a number that names a place in one table of the process; the place holds the object. So null, closed
// and made-up handles are told apart from good ones without touching memory that may be gone, and fail with code 6.
//
// A source that offers objects of its own derives a class from `object`:
//
//     class search : public object {
//     public:
//         static constexpr object_kind kind{};
//         search() : object(kind) {}
//         DWORD close() override;   // when its handle is closed
//     };
//
//     return new_handle(new (std::nothrow) search);           // null with code 8 when there is no memory
//     search* found = object_of<search>(handle);              // null with code 6 for anything else
//
// An object lives while its handle is open or something else counts on it (see `kept`): a thread that sleeps on it,
// the thread that it stands for.
#pragma once

#include <atomic>
#include <bit>

#include "platform/api/base.h"

namespace platform {

class waitable;

// Tells the kinds of objects apart, by its address.
struct object_kind {
    char unused = 0;
};

class object {
public:
    explicit object(const object_kind& of) : kind_(&of) {}
    virtual ~object() = default;
    object(const object&) = delete;
    object& operator=(const object&) = delete;

    // The handle is being closed, for good and whatever this says: 0, or the code of what could not be finished.
    virtual DWORD close() { return ERROR_SUCCESS; }

    // Waits for the object, up to a time-out in milliseconds: WAIT_OBJECT_0 or WAIT_ABANDONED_0 when it is taken,
    // WAIT_TIMEOUT, or WAIT_FAILED with the code set. An object that nobody can wait for fails with 6.
    virtual DWORD wait(DWORD milliseconds);

    // The object as one that can be waited for together with others; null, with the code set, when it cannot.
    virtual waitable* as_waitable();

    bool is(const object_kind& wanted) const { return kind_ == &wanted; }

    void keep() { references_.fetch_add(1, std::memory_order_relaxed); }
    void release() {
        // Release and acquire: whoever deletes it has seen all that the others did with it.
        if (references_.fetch_sub(1, std::memory_order_acq_rel) == 1)
            destroy();
    }

private:
    void destroy(); // not inline: analyzers do not follow the count, and would see every release as the last

    const object_kind* kind_;
    std::atomic<uint32_t> references_{1}; // the first belongs to the handle
};

// Counts on an object for the length of a scope.
class kept {
public:
    explicit kept(object* counted) : object_(counted) { object_->keep(); }
    ~kept() { object_->release(); }
    kept(const kept&) = delete;
    kept& operator=(const kept&) = delete;

private:
    object* object_;
};

// A handle of a new object, whose first reference it takes over. Null, with the code set, for a null object (no
// memory: 8) and when the process has all the handles it can have (1450); the object is closed and released then.
HANDLE new_handle(object* opened, uintptr_t mark = 0);

// The table: a place holds the address of an object, maybe with the mark, or is free, which its lowest bit or 0 says.
inline constexpr uintptr_t free_mark = 1;
inline constexpr uintptr_t guarded_mark = 2;
inline constexpr uintptr_t handles_at_most = uintptr_t{1} << 20;
inline constexpr int handle_shift = 2;          // handles are multiples of 4, and never 0
extern uintptr_t handle_table[handles_at_most]; // plain, so that no start-up code touches its eight megabytes

inline std::atomic_ref<uintptr_t> handle_slot(uintptr_t number) {
    return std::atomic_ref<uintptr_t>(handle_table[number]);
}

// For a value that names no object in the table.
object* pseudo_object_of(HANDLE handle);

// The object of a handle; null with code 6 when there is none. The pseudo handles -1 and -2, this process and this
// thread, have one that is never signalled.
inline object* object_of(HANDLE handle) {
    // Rotated, a value that is no multiple of 4 is far beyond the table.
    const uintptr_t number = std::rotr(reinterpret_cast<uintptr_t>(handle), handle_shift);
    if (number < handles_at_most) [[likely]] {
        // Acquire: the object is found as it was built.
        const uintptr_t content = handle_slot(number).load(std::memory_order_acquire);
        if (content != 0 && !(content & free_mark)) [[likely]]
            return reinterpret_cast<object*>(content & ~guarded_mark);
    }
    return pseudo_object_of(handle);
}

// The object of a handle if it has the mark, else null. Whoever closes a handle takes it out of the table first, and
// calls `close` then: a guarded object takes a lock there, and who looks it up under that lock, and counts on it
// before the lock is given back, is not left with an object that another thread has closed.
inline object* guarded_object_of(HANDLE handle) {
    const uintptr_t number = std::rotr(reinterpret_cast<uintptr_t>(handle), handle_shift);
    const uintptr_t content =
        number < handles_at_most ? handle_slot(number).load(std::memory_order_acquire) : 0;
    const bool guarded = (content & (free_mark | guarded_mark)) == guarded_mark;
    return guarded ? reinterpret_cast<object*>(content & ~guarded_mark) : nullptr;
}

template <class T>
T* object_of(HANDLE handle) {
    object* found = object_of(handle);
    if (!found)
        return nullptr;
    if (!found->is(T::kind)) [[unlikely]] {
        SetLastError(ERROR_INVALID_HANDLE);
        return nullptr;
    }
    return static_cast<T*>(found);
}

} // namespace platform
