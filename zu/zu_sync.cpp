// Thread locks, events, semaphores and atomics: records over the platform's objects.
#include "zu/zu_support.h"

struct ZU_event {
    platform::HANDLE handle;
};

struct ZU_sem {
    platform::HANDLE handle;
};

namespace {

static_assert(sizeof(platform::CRITICAL_SECTION) <= sizeof(ZU_lock_thread),
              "callers keep 64 bytes for a lock");
static_assert(alignof(platform::CRITICAL_SECTION) <= alignof(ZU_lock_thread), "and align it for a pointer");

platform::CRITICAL_SECTION* section_of(ZU_lock_thread* lock) {
    return reinterpret_cast<platform::CRITICAL_SECTION*>(lock->storage);
}

// The public result of a wait: k + 1 for object number k, 0 for a time-out, -1 for everything else.
int32_t wait_result(platform::DWORD result, uint32_t count) {
    if (result <= count - 1)
        return static_cast<int32_t>(result + 1);
    return result == WAIT_TIMEOUT ? 0 : -1;
}

} // namespace

ZU_bool ZU_lock_thread_init(ZU_lock_thread* lock) {
    platform::InitializeCriticalSection(section_of(lock));
    return 1;
}

ZU_bool ZU_lock_thread_init_recursive(ZU_lock_thread* lock) {
    return ZU_lock_thread_init(lock);
}

ZU_bool ZU_lock_thread_lock(ZU_lock_thread* lock) {
    platform::EnterCriticalSection(section_of(lock));
    return 1;
}

ZU_bool ZU_lock_thread_unlock(ZU_lock_thread* lock) {
    platform::LeaveCriticalSection(section_of(lock));
    return 1;
}

ZU_bool ZU_lock_thread_destroy(ZU_lock_thread* lock) {
    if (lock)
        platform::DeleteCriticalSection(section_of(lock));
    return 1;
}

ZU_event* ZU_create_event(ZU_bool manual_reset) {
    const platform::HANDLE handle = platform::CreateEventW(nullptr, manual_reset, FALSE, nullptr);
    if (!handle)
        return nullptr;
    ZU_event* event = zu::allocate<ZU_event>();
    event->handle = handle;
    return event;
}

ZU_bool ZU_destroy_event(ZU_event* event) {
    if (!event)
        return 1;
    const platform::HANDLE handle = event->handle;
    ZU_free(event);
    return platform::CloseHandle(handle) != FALSE;
}

ZU_bool ZU_set_event(ZU_event* event) {
    return platform::SetEvent(event->handle) != FALSE;
}

ZU_bool ZU_reset_event(ZU_event* event) {
    return platform::ResetEvent(event->handle) != FALSE;
}

int32_t ZU_wait_for_event(ZU_event* event, uint32_t timeout_ms) {
    return wait_result(platform::WaitForSingleObject(event->handle, timeout_ms), 1);
}

int32_t ZU_wait_for_multiple_events(int32_t count, ZU_event* const* events, ZU_bool wait_all,
                                    uint32_t timeout_ms) {
    const uint32_t places = count > 0 ? static_cast<uint32_t>(count) : 0;
    platform::HANDLE* handles = zu::allocate<platform::HANDLE>(places);
    for (uint32_t i = 0; i < places; ++i)
        handles[i] = events[i]->handle;
    const platform::DWORD result =
        platform::WaitForMultipleObjects(static_cast<uint32_t>(count), handles, wait_all != 0, timeout_ms);
    const zu::keep_last_error keep;
    ZU_free(handles);
    return result == WAIT_FAILED ? -1 : wait_result(result, static_cast<uint32_t>(count));
}

ZU_sem* ZU_sem_create(int32_t initial_count, int32_t maximum_count) {
    ZU_sem* sem = zu::allocate<ZU_sem>();
    sem->handle = platform::CreateSemaphoreW(nullptr, initial_count, maximum_count, nullptr);
    if (sem->handle)
        return sem;
    const zu::keep_last_error keep;
    ZU_free(sem);
    return nullptr;
}

ZU_bool ZU_sem_wait(ZU_sem* sem, uint32_t timeout_ms, ZU_bool* timed_out) {
    if (timed_out)
        *timed_out = 0;
    const platform::DWORD result = platform::WaitForSingleObject(sem->handle, timeout_ms);
    if (timed_out && result == WAIT_TIMEOUT)
        *timed_out = 1;
    return result == WAIT_OBJECT_0;
}

ZU_bool ZU_sem_post(ZU_sem* sem) {
    return platform::ReleaseSemaphore(sem->handle, 1, nullptr) != FALSE;
}

ZU_bool ZU_sem_destroy(ZU_sem* sem) {
    if (!sem)
        return 1;
    const bool closed = !sem->handle || platform::CloseHandle(sem->handle);
    const zu::keep_last_error keep;
    ZU_free(sem);
    return closed;
}

int32_t ZU_atomic_inc_32(int32_t* cell) {
    return platform::InterlockedIncrement(reinterpret_cast<volatile platform::LONG*>(cell));
}

int32_t ZU_atomic_dec_32(int32_t* cell) {
    return platform::InterlockedDecrement(reinterpret_cast<volatile platform::LONG*>(cell));
}
