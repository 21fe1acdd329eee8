// Inside the layer: handles and the table of the objects behind them.
//
// A handle is a number that names a place in one table of the process; the place holds the object. So null, closed
// and made-up handles are told apart from good ones without touching memory that may be gone, and fail with
// 6 (ERROR_INVALID_HANDLE).
#pragma once

#include <atomic>
#include <bit>

#include "platform/core/error.h"
#include "platform/core/object.h"

namespace platform {

// A handle of a new object, whose first reference it takes over. Null, with the code set, in two cases: for a null
// object, which `new` gave for want of memory, 8 (ERROR_NOT_ENOUGH_MEMORY); and when the process has all the handles
// that it can have, 1450 (ERROR_NO_SYSTEM_RESOURCES), where the object is closed and released.
HANDLE new_handle(object* opened, uintptr_t mark = 0);

// The table: a place holds the address of an object, maybe with a mark, or is free, which its lowest bit or 0 says.
inline constexpr uintptr_t free_mark = 1;
inline constexpr uintptr_t guarded_mark = 2; // an object to be found under a lock, as guarded_object_of tells
inline constexpr uintptr_t waitable_mark = 4; // a `waitable`: a wait need not ask the object what it is
inline constexpr uintptr_t all_marks = free_mark | guarded_mark | waitable_mark;
static_assert(__STDCPP_DEFAULT_NEW_ALIGNMENT__ > all_marks);
inline constexpr uintptr_t handles_at_most = uintptr_t{1} << 20;
inline constexpr int handle_shift = 2;          // handles are multiples of 4, and never 0
extern uintptr_t handle_table[handles_at_most]; // plain, so that no start-up code touches its eight megabytes

inline std::atomic_ref<uintptr_t> handle_slot(uintptr_t number) {
    return std::atomic_ref<uintptr_t>(handle_table[number]);
}

// The content of a handle's place; 0 for a value that names no place.
inline uintptr_t content_of(HANDLE handle) {
    // Rotated, a value that is no multiple of 4 is far beyond the table.
    const uintptr_t number = std::rotr(reinterpret_cast<uintptr_t>(handle), handle_shift);
    // Acquire: the object is found as it was built.
    return number < handles_at_most ? handle_slot(number).load(std::memory_order_acquire) : 0;
}

// The object in a place, provided that the place is not free and has this mark (0: whatever mark it has); else null.
inline object* marked_object_in(uintptr_t content, uintptr_t mark) {
    const bool found = (content & (free_mark | mark)) == mark;
    return found ? reinterpret_cast<object*>(content & ~all_marks) : nullptr;
}

// The object of a value that names no place in the table: the one of the pseudo handles, or null with code 6.
object* pseudo_object_of(HANDLE handle);

// The object of a handle; null with code 6 when there is none. The pseudo handles -1 and -2, this process and this
// thread, have one that is never signalled.
inline object* object_of(HANDLE handle) {
    const uintptr_t content = content_of(handle);
    if (content != 0 && !(content & free_mark)) [[likely]]
        return reinterpret_cast<object*>(content & ~all_marks);
    return pseudo_object_of(handle);
}

// The object of a handle if it is a guarded one, else null. CloseHandle first clears the place, then calls `close`,
// which takes the lock that guards the object. Look up and add a reference under that same lock, and the object cannot
// vanish in between.
inline object* guarded_object_of(HANDLE handle) {
    return marked_object_in(content_of(handle), guarded_mark);
}

template <class T>
[[gnu::always_inline]] inline T* object_of(HANDLE handle) {
    object* found = object_of(handle);
    if (!found)
        return nullptr;
    if (!found->is(T::kind)) [[unlikely]]
        return fail<T*>(ERROR_INVALID_HANDLE);
    return static_cast<T*>(found);
}

} // namespace platform
