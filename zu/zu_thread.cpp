// Threads, sleeping, the tick count and identifiers.
#include "zu/zu_support.h"

struct ZU_thread {
    platform::HANDLE handle;
};

namespace {

// Carries the caller's function to the new thread, which frees it.
struct ZU_thread_start {
    ZU_thread_func function;
    void* argument;
};

unsigned WINAPI trampoline(void* argument) {
    ZU_thread_start* start = static_cast<ZU_thread_start*>(argument);
    const ZU_thread_start copy = *start;
    ZU_free(start);
    return copy.function(copy.argument);
}

ZU_thread* create(ZU_thread_func function, void* argument, uint32_t stack_size_bytes, unsigned flags) {
    ZU_thread* thread = zu::allocate<ZU_thread>();
    thread->handle = nullptr;
    ZU_thread_start* start = zu::allocate<ZU_thread_start>();
    *start = {function, argument};
    unsigned identifier;
    thread->handle = reinterpret_cast<platform::HANDLE>(
        platform::_beginthreadex(nullptr, stack_size_bytes, trampoline, start, flags, &identifier));
    if (thread->handle)
        return thread;
    const zu::keep_last_error keep;
    ZU_free(thread);
    ZU_free(start);
    return nullptr;
}

} // namespace

ZU_thread* ZU_thread_create(ZU_thread_func function, void* argument) {
    return create(function, argument, 0, 0);
}

ZU_thread* ZU_thread_create_ex(ZU_thread_func function, void* argument, uint32_t stack_size_bytes) {
    if (stack_size_bytes == 0)
        return ZU_thread_create(function, argument);
    return create(function, argument, stack_size_bytes, STACK_SIZE_PARAM_IS_A_RESERVATION);
}

int32_t ZU_thread_wait_for_termination(ZU_thread* thread, uint32_t* exit_code) {
    const bool ended = platform::WaitForSingleObject(thread->handle, INFINITE) == WAIT_OBJECT_0;
    if (exit_code) {
        platform::DWORD code = 0;
        platform::GetExitCodeThread(thread->handle, &code);
        *exit_code = code;
    }
    platform::CloseHandle(thread->handle);
    ZU_free(thread);
    return ended ? 0 : -1;
}

void ZU_sleep(uint32_t milliseconds) {
    platform::Sleep(milliseconds);
}

uint32_t ZU_get_tick_count() {
    return platform::GetTickCount();
}

uint32_t ZU_get_current_process_id() {
    return platform::GetCurrentProcessId();
}

uint32_t ZU_get_current_thread_id() {
    return platform::GetCurrentThreadId();
}
