// Inside the layer: the objects that handles stand for. The handles themselves are in handle.h.
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
// An object lives while its handle is open or something else has a reference (see `kept`): a thread that sleeps on the
// object, or the thread that the object stands for.
#pragma once

#include <atomic>

#include "platform/api/base.h"

namespace platform {

class waitable;

// One kind of objects. Its address tells it from the other kinds.
struct object_kind {
    char unused = 0;
};

class object {
public:
    explicit object(const object_kind& of) : kind_(&of) {}
    virtual ~object() = default;
    object(const object&) = delete;
    object& operator=(const object&) = delete;

    // Called while the handle is being closed. 0, or the code of the work that could not be finished; the handle is
    // gone in either case.
    virtual DWORD close() { return ERROR_SUCCESS; }

    // Waits for the object, up to a time-out in milliseconds: WAIT_OBJECT_0 or WAIT_ABANDONED_0 when it is taken,
    // WAIT_TIMEOUT, or WAIT_FAILED with the code set. An object that nobody can wait for fails with
    // 6 (ERROR_INVALID_HANDLE).
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

// A reference to an object for the length of a scope.
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
