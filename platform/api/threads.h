// Thread locks, events, semaphores, waits, threads, the tick count and identifiers.
#pragma once

#include "platform/api/base.h"

namespace platform {

// Storage of a re-entrant lock, within the 64 bytes that callers keep for one.
struct CRITICAL_SECTION {
    uint32_t state; // 0 free, 1 held, 2 held and somebody may sleep
    uint32_t owner; // thread identifier of the holder, 0 when free
    uint32_t depth; // how many times the holder has entered
};

void InitializeCriticalSection(CRITICAL_SECTION* section);
void EnterCriticalSection(CRITICAL_SECTION* section);
void LeaveCriticalSection(CRITICAL_SECTION* section);
void DeleteCriticalSection(CRITICAL_SECTION* section);

HANDLE CreateEventW(SECURITY_ATTRIBUTES* attributes, BOOL manual_reset, BOOL initial_state, const WCHAR* name);
BOOL SetEvent(HANDLE event);
BOOL ResetEvent(HANDLE event);

HANDLE CreateSemaphoreW(SECURITY_ATTRIBUTES* attributes, LONG initial_count, LONG maximum_count,
                        const WCHAR* name);
BOOL ReleaseSemaphore(HANDLE semaphore, LONG release_count, LONG* previous_count);

DWORD WaitForSingleObject(HANDLE handle, DWORD milliseconds);
DWORD WaitForMultipleObjects(DWORD count, const HANDLE* handles, BOOL wait_all, DWORD milliseconds);

LONG InterlockedIncrement(volatile LONG* cell);
LONG InterlockedDecrement(volatile LONG* cell);

// Starts a thread; 0 on failure, with the code in the last-error slot as well.
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
inline constexpr platform::DWORD WAIT_FAILED = 0xFFFFFFFF;
inline constexpr platform::DWORD MAXIMUM_WAIT_OBJECTS = 64;
inline constexpr platform::DWORD STILL_ACTIVE = 259;
inline constexpr unsigned STACK_SIZE_PARAM_IS_A_RESERVATION = 0x10000;
