// Handles: the table of open objects, and CloseHandle.
#include "platform/object.h"

#include <cstdlib>

#include "platform/api/threads.h"
#include "platform/waitable.h"

namespace platform {

namespace {

// The table grows by chunks that are never given back, so a look-up needs no lock. A place holds the address of an
// object, or, marked by its lowest bit, the number of the next free place.
using place = std::atomic<uintptr_t>;

constexpr uint32_t places_per_chunk = 1u << 12;
constexpr uint32_t chunk_count = 1u << 12;
constexpr uint32_t places_at_most = places_per_chunk * chunk_count;
constexpr uintptr_t free_mark = 1;
constexpr uintptr_t handle_step = 4; // handles are multiples of 4, and never 0

std::atomic<place*> chunks[chunk_count];
std::atomic<uint32_t> places_used{0}; // places that have ever been handed out

// The free places form a stack. Its head carries a count of changes beside the number of the first place (plus 1),
// so that a head that has been taken and put back meanwhile is not mistaken for an unchanged one. There is no lock
// that a fork in the middle of a change could leave held in the child.
std::atomic<uint64_t> free_head{0};

constexpr uint32_t number_in(uint64_t head) {
    return static_cast<uint32_t>(head);
}

constexpr uint64_t head_after(uint64_t head, uint32_t number) {
    return (((head >> 32) + 1) << 32) | number;
}

// Null when the place has never been used.
place* place_at(uint32_t index) {
    if (index >= places_at_most)
        return nullptr;
    place* chunk = chunks[index / places_per_chunk].load(std::memory_order_acquire);
    return chunk ? chunk + index % places_per_chunk : nullptr;
}

bool provide_chunk(uint32_t number) {
    if (chunks[number].load(std::memory_order_acquire))
        return true;
    place* fresh = static_cast<place*>(std::calloc(places_per_chunk, sizeof(place)));
    if (!fresh)
        return false;
    for (uint32_t i = 0; i < places_per_chunk; ++i)
        fresh[i].store(free_mark, std::memory_order_relaxed);
    place* expected = nullptr;
    // Release: whoever finds the chunk finds its places marked free.
    if (!chunks[number].compare_exchange_strong(expected, fresh, std::memory_order_acq_rel))
        std::free(fresh);
    return true;
}

// A place that nobody else has: a number above 0, or 0 when there is none left.
uint32_t take_place() {
    uint64_t head = free_head.load(std::memory_order_acquire);
    while (number_in(head) != 0) {
        // The place may be taken by another thread by now; then what is read is stale, and the exchange fails.
        const uintptr_t content = place_at(number_in(head) - 1)->load(std::memory_order_relaxed);
        if (free_head.compare_exchange_weak(head, head_after(head, static_cast<uint32_t>(content >> 1)),
                                            std::memory_order_acquire, std::memory_order_acquire))
            return number_in(head);
    }
    uint32_t index = places_used.load(std::memory_order_relaxed);
    do {
        if (index == places_at_most || !provide_chunk(index / places_per_chunk))
            return 0;
    } while (!places_used.compare_exchange_weak(index, index + 1, std::memory_order_relaxed));
    return index + 1;
}

void give_back(uint32_t number) {
    place* freed = place_at(number - 1);
    uint64_t head = free_head.load(std::memory_order_relaxed);
    do {
        freed->store((uintptr_t{number_in(head)} << 1) | free_mark, std::memory_order_relaxed);
        // Release: who takes the place sees the number of the next one.
    } while (!free_head.compare_exchange_weak(head, head_after(head, number), std::memory_order_release,
                                              std::memory_order_relaxed));
}

uintptr_t value_of(HANDLE handle) {
    return reinterpret_cast<uintptr_t>(handle);
}

// Number 0 for a value that can be no handle.
uint32_t number_of(HANDLE handle) {
    const uintptr_t value = value_of(handle);
    return value % handle_step == 0 && value / handle_step <= places_at_most
               ? static_cast<uint32_t>(value / handle_step)
               : 0;
}

bool is_pseudo_handle(HANDLE handle) {
    return value_of(handle) >= static_cast<uintptr_t>(-2);
}

} // namespace

DWORD object::wait(DWORD) {
    SetLastError(ERROR_INVALID_HANDLE);
    return WAIT_FAILED;
}

waitable* object::as_waitable() {
    SetLastError(ERROR_INVALID_HANDLE);
    return nullptr;
}

HANDLE new_handle(object* opened) {
    if (!opened) {
        SetLastError(ERROR_NOT_ENOUGH_MEMORY);
        return nullptr;
    }
    const uint32_t number = take_place();
    if (number == 0) {
        opened->close();
        opened->release();
        SetLastError(ERROR_NO_SYSTEM_RESOURCES);
        return nullptr;
    }
    // Release: a thread that is given the handle finds the object built.
    place_at(number - 1)->store(reinterpret_cast<uintptr_t>(opened), std::memory_order_release);
    return reinterpret_cast<HANDLE>(uintptr_t{number} * handle_step);
}

object* object_of(HANDLE handle) {
    const uint32_t number = number_of(handle);
    place* at = number == 0 ? nullptr : place_at(number - 1);
    const uintptr_t content = at ? at->load(std::memory_order_acquire) : free_mark;
    if ((content & free_mark) == 0)
        return reinterpret_cast<object*>(content);
    if (is_pseudo_handle(handle))
        return what_never_ends();
    SetLastError(ERROR_INVALID_HANDLE);
    return nullptr;
}

BOOL CloseHandle(HANDLE handle) {
    if (is_pseudo_handle(handle))
        return TRUE;
    object* closed = object_of(handle);
    if (!closed)
        return FALSE;
    const uint32_t number = number_of(handle);
    uintptr_t content = reinterpret_cast<uintptr_t>(closed);
    // Of two threads that close the same handle, one finds it closed already.
    if (!place_at(number - 1)->compare_exchange_strong(content, free_mark, std::memory_order_acq_rel)) {
        SetLastError(ERROR_INVALID_HANDLE);
        return FALSE;
    }
    give_back(number);
    const DWORD code = closed->close();
    closed->release();
    if (code != ERROR_SUCCESS)
        SetLastError(code);
    return code == ERROR_SUCCESS;
}

} // namespace platform
