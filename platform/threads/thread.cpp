// Threads: their start, and their end as something to wait for.
#include <pthread.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <new>

#include "platform/api/threads.h"
#include "platform/core/error.h"
#include "platform/core/thread_end.h"
#include "platform/core/waitable.h"

namespace platform {

namespace {

// Some C libraries give far less than programs expect.
constexpr size_t default_stack_at_least = size_t{1} << 20;

struct thread : waitable {
    static constexpr object_kind kind{};
    thread(unsigned (*body_)(void*), void* argument_)
        : waitable(kind, when_taken::stays, 0), body(body_), argument(argument_) {}

    bool has_ended() { return take(); }

    // Once the handle of an ended thread is closed, nothing of the thread runs any more.
    DWORD close() override {
        if (!started)
            return ERROR_SUCCESS;
        if (has_ended())
            pthread_join(host, nullptr);
        else
            pthread_detach(host);
        return ERROR_SUCCESS;
    }

    unsigned (*const body)(void*);
    void* const argument;
    pthread_t host{};
    bool started = false;
    std::atomic<uint32_t> identifier{0}; // 0: not known yet
    DWORD exit_code = 0;                 // valid once the thread has ended
};

void mark_ended(thread& self) {
    self.set(); // publishes the exit code
    self.release();
}

pthread_key_t ending_key() {
    static const pthread_key_t key =
        key_for_thread_end([](void* self) { mark_ended(*static_cast<thread*>(self)); });
    return key;
}

void* run(void* started) {
    thread& self = *static_cast<thread*>(started);
    self.identifier.store(GetCurrentThreadId(), std::memory_order_relaxed);
    wake_on(&self.identifier, 1);
    const bool marked_late = pthread_setspecific(ending_key(), &self) == 0;
    self.exit_code = self.body(self.argument);
    if (!marked_late)
        mark_ended(self);
    return nullptr;
}

// The stack's size: the host's default or what was asked for, and never less than a thread can run in.
size_t stack_bytes(size_t by_default, unsigned asked, bool is_reservation) {
    const size_t page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    const size_t least =
        std::max<size_t>(static_cast<size_t>(sysconf(_SC_THREAD_STACK_MIN)), PTHREAD_STACK_MIN);
    // Without the flag, the size asked for is what to commit at first. The reservation is at least the default.
    const size_t wanted =
        is_reservation && asked != 0 ? asked : std::max<size_t>({by_default, default_stack_at_least, asked});
    return (std::max(wanted, least) + page - 1) / page * page;
}

bool start(thread& self, unsigned stack_size, bool is_reservation) {
    pthread_attr_t attributes;
    if (pthread_attr_init(&attributes) != 0)
        return false;
    size_t by_default = 0;
    pthread_attr_getstacksize(&attributes, &by_default);
    self.keep(); // the running thread has a reference, too
    const bool started =
        pthread_attr_setstacksize(&attributes, stack_bytes(by_default, stack_size, is_reservation)) == 0
        && pthread_create(&self.host, &attributes, run, &self) == 0;
    self.started = started;
    pthread_attr_destroy(&attributes);
    if (!started)
        self.release();
    return started;
}

} // namespace

uintptr_t _beginthreadex(void* security, unsigned stack_size, unsigned (*function)(void*), void* argument,
                         unsigned flags, unsigned* thread_id) {
    if (security || (flags & ~STACK_SIZE_PARAM_IS_A_RESERVATION) != 0)
        return fail<uintptr_t>(ERROR_NOT_SUPPORTED);
    thread* const self = new (std::nothrow) thread(function, argument);
    const HANDLE handle = new_handle(self, waitable_mark);
    if (!handle)
        return 0;
    const kept here(self);
    if (!start(*self, stack_size, (flags & STACK_SIZE_PARAM_IS_A_RESERVATION) != 0)) {
        CloseHandle(handle);
        return fail<uintptr_t>(ERROR_NOT_ENOUGH_MEMORY);
    }
    // Only the new thread can find out its identifier.
    while (thread_id && (*thread_id = self->identifier.load(std::memory_order_relaxed)) == 0)
        sleep_on(&self->identifier, 0, deadline(INFINITE));
    return reinterpret_cast<uintptr_t>(handle);
}

BOOL GetExitCodeThread(HANDLE handle, DWORD* code) {
    // The pseudo handle of this thread.
    if (handle == reinterpret_cast<HANDLE>(intptr_t{-2})) {
        *code = STILL_ACTIVE;
        return TRUE;
    }
    thread* const asked = object_of<thread>(handle);
    if (!asked)
        return FALSE;
    *code = asked->has_ended() ? asked->exit_code : STILL_ACTIVE;
    return TRUE;
}

} // namespace platform
