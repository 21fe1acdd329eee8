// Thread locks, events, semaphores, waits, threads, the tick count and identifiers.
#pragma once

#include <atomic>

#include "platform/api/base.h"

namespace platform {

// A re-entrant lock in storage of the caller's, within the 64 bytes that are kept for one.
struct CRITICAL_SECTION {
    std::atomic<uint32_t> state;  // of the lock: 0 when it is free
    uint32_t depth;               // how many times the owner has entered
    std::atomic<uintptr_t> owner; // the serial number of the owner's thread, 0 when free
};

void InitializeCriticalSection(CRITICAL_SECTION* section);
void EnterCriticalSection(CRITICAL_SECTION* section);
void LeaveCriticalSection(CRITICAL_SECTION* section);
void DeleteCriticalSection(CRITICAL_SECTION* section);

// Attributes and a name must be null, else 50 (ERROR_NOT_SUPPORTED): there are no named events and semaphores here.
HANDLE CreateEventW(SECURITY_ATTRIBUTES* attributes, BOOL manual_reset, BOOL initial_state,
                    const WCHAR* name);
BOOL SetEvent(HANDLE event);
BOOL ResetEvent(HANDLE event);

HANDLE CreateSemaphoreW(SECURITY_ATTRIBUTES* attributes, LONG initial_count, LONG maximum_count,
                        const WCHAR* name);
BOOL ReleaseSemaphore(HANDLE semaphore, LONG release_count, LONG* previous_count);

// A name of ours. While such an object lives, the first thread that the calling thread releases from its sleep stays
// asleep. It is woken when the object ends, and finds free what was unlocked meanwhile. Only a few steps that do not wait
// may lie between.
class late_wake {
public:
    late_wake();
    ~late_wake();
    late_wake(const late_wake&) = delete;
    late_wake& operator=(const late_wake&) = delete;

    // Keeps the wake of those who sleep on a word for later; false when there is one to be kept already.
    bool takes(const std::atomic<uint32_t>* word);

private:
    const std::atomic<uint32_t>* word_ = nullptr;
};

// A mutex, shared by name with every process of the machine; null or "": of this process alone. A handle for
// CloseHandle, code 0 for a new one and 183 (ERROR_ALREADY_EXISTS) for one that existed. Null with 5
// (ERROR_ACCESS_DENIED) for another user's that is not for everyone, 6 (ERROR_INVALID_HANDLE) when the file under the
// name is no mutex, 123 (ERROR_INVALID_NAME), 161 (ERROR_BAD_PATHNAME) or 3 (ERROR_PATH_NOT_FOUND) for what is no name,
// 206 (ERROR_FILENAME_EXCED_RANGE) for one that is too long, 1460 (ERROR_TIMEOUT) when another process keeps the file
// to itself. The attributes may give every user access. No caller may own it at once: 50 (ERROR_NOT_SUPPORTED).
HANDLE CreateMutexW(SECURITY_ATTRIBUTES* attributes, BOOL initially_owned, const WCHAR* name);

// Opens a mutex that exists: 2 (ERROR_FILE_NOT_FOUND) when there is none.
HANDLE OpenMutexW(DWORD access, BOOL inherit, const WCHAR* name);

// Gives the mutex back once: 288 (ERROR_NOT_OWNER) unless the calling thread owns it.
BOOL ReleaseMutex(HANDLE mutex);

// WAIT_OBJECT_0 (plus the index), WAIT_ABANDONED_0 likewise for a mutex whose owner ended, WAIT_TIMEOUT, or
// WAIT_FAILED with the code. One signal releases one waiter, in the order in which they began to sleep.
DWORD WaitForSingleObject(HANDLE handle, DWORD milliseconds);

// The lowest index that is signalled is taken. For all: none is taken before every one can be, which the signal does
// that makes them complete; no object twice: 87 (ERROR_INVALID_PARAMETER).
DWORD WaitForMultipleObjects(DWORD count, const HANDLE* handles, BOOL wait_all, DWORD milliseconds);

// Indivisible, with a full barrier; the new value, which wraps around.
inline LONG InterlockedIncrement(volatile LONG* cell) {
    return __atomic_add_fetch(cell, 1, __ATOMIC_SEQ_CST);
}
inline LONG InterlockedDecrement(volatile LONG* cell) {
    return __atomic_sub_fetch(cell, 1, __ATOMIC_SEQ_CST);
}

// Starts a thread; 0 on failure, with the code set: 8 (ERROR_NOT_ENOUGH_MEMORY) when the host has no room for it, 50
// for security attributes or flags other than STACK_SIZE_PARAM_IS_A_RESERVATION. The handle is closed with CloseHandle.
uintptr_t _beginthreadex(void* security, unsigned stack_size, unsigned (*function)(void*), void* argument,
                         unsigned flags, unsigned* thread_id);
BOOL GetExitCodeThread(HANDLE thread, DWORD* code); // 259 while it runs

void Sleep(DWORD milliseconds);
DWORD GetTickCount();
DWORD GetCurrentProcessId();
DWORD GetCurrentThreadId();

} // namespace platform

inline constexpr platform::DWORD INFINITE = 0xFFFFFFFF;
inline constexpr platform::DWORD WAIT_OBJECT_0 = 0;
inline constexpr platform::DWORD WAIT_ABANDONED_0 = 0x80;
inline constexpr platform::DWORD WAIT_ABANDONED = 0x80;
inline constexpr platform::DWORD SYNCHRONIZE = 0x00100000;
inline constexpr platform::DWORD MUTEX_MODIFY_STATE = 1;
inline constexpr platform::DWORD MUTEX_ALL_ACCESS = 0x001F0001;
inline constexpr platform::DWORD WAIT_FAILED = 0xFFFFFFFF;
inline constexpr platform::DWORD MAXIMUM_WAIT_OBJECTS = 64;
inline constexpr platform::DWORD STILL_ACTIVE = 259;
inline constexpr unsigned STACK_SIZE_PARAM_IS_A_RESERVATION = 0x10000;
