// Inside the layer: what stands behind a handle, as handle.h has it.
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

} // namespace platform
