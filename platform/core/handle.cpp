// Handles: the table of open objects, and CloseHandle.
#include "platform/core/handle.h"

#include "platform/core/error.h"
#include "platform/core/waitable.h"

namespace platform {

namespace {

std::atomic<uint32_t> places_used{1}; // places that have ever been handed out; 0 never is

// The free places form a stack: each holds the number of the next. The head carries a count of changes beside the
// number of the first (0: none), so that a head that has been taken and put back meanwhile is not mistaken for an
// unchanged one. A lock would not do: a fork in the middle of a change would leave it held in the child.
std::atomic<uint64_t> free_head{0};

constexpr uint32_t number_in(uint64_t head) {
    return static_cast<uint32_t>(head);
}

constexpr uint64_t head_after(uint64_t head, uint32_t number) {
    return (((head >> 32) + 1) << 32) | number;
}

// A place that nobody else has, or 0 when there is none left.
uint32_t take_place() {
    uint64_t head = free_head.load(std::memory_order_acquire);
    while (number_in(head) != 0) {
        // The place may be taken by another thread by now; then what is read is stale, and the exchange fails.
        const uintptr_t content = handle_slot(number_in(head)).load(std::memory_order_relaxed);
        if (free_head.compare_exchange_weak(head, head_after(head, static_cast<uint32_t>(content >> 1)),
                                            std::memory_order_acquire, std::memory_order_acquire))
            return number_in(head);
    }
    uint32_t number = places_used.load(std::memory_order_relaxed);
    do {
        if (number == handles_at_most)
            return 0;
    } while (!places_used.compare_exchange_weak(number, number + 1, std::memory_order_relaxed));
    return number;
}

void give_back(uint32_t number) {
    uint64_t head = free_head.load(std::memory_order_relaxed);
    do {
        handle_slot(number).store((uintptr_t{number_in(head)} << 1) | free_mark, std::memory_order_relaxed);
        // Release: the thread that takes the place sees the number of the next one.
    } while (!free_head.compare_exchange_weak(head, head_after(head, number), std::memory_order_release,
                                              std::memory_order_relaxed));
}

uintptr_t value_of(HANDLE handle) {
    return reinterpret_cast<uintptr_t>(handle);
}

bool is_pseudo_handle(HANDLE handle) {
    return value_of(handle) >= static_cast<uintptr_t>(-2);
}

} // namespace

uintptr_t handle_table[handles_at_most];

HANDLE new_handle(object* opened, uintptr_t mark) {
    if (!opened)
        return fail<HANDLE>(ERROR_NOT_ENOUGH_MEMORY);
    const uint32_t number = take_place();
    if (number == 0) {
        opened->close();
        opened->release();
        return fail<HANDLE>(ERROR_NO_SYSTEM_RESOURCES);
    }
    // Release: a thread that is given the handle finds the object built.
    handle_slot(number).store(reinterpret_cast<uintptr_t>(opened) | mark, std::memory_order_release);
    return reinterpret_cast<HANDLE>(uintptr_t{number} << handle_shift);
}

object* pseudo_object_of(HANDLE handle) {
    if (is_pseudo_handle(handle))
        return what_never_ends();
    return fail<object*>(ERROR_INVALID_HANDLE);
}

BOOL CloseHandle(HANDLE handle) {
    if (is_pseudo_handle(handle))
        return TRUE;
    uintptr_t content = content_of(handle);
    object* const closed = marked_object_in(content, 0);
    const uint32_t number = static_cast<uint32_t>(value_of(handle) >> handle_shift);
    // Of two threads that close the same handle, one finds it closed already.
    if (!closed
        || !handle_slot(number).compare_exchange_strong(content, free_mark, std::memory_order_acq_rel))
        return fail(ERROR_INVALID_HANDLE);
    give_back(number);
    const DWORD code = closed->close();
    closed->release();
    return result_of(code);
}

} // namespace platform
