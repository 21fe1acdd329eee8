// Waits for one object and for several.
#include <algorithm>
#include <functional>

#include "platform/api/threads.h"
#include "platform/core/waitable.h"
#include "platform/threads/named_mutex.h"

namespace platform {

namespace {

// The objects of one wait, each of which is kept alive until the wait is over.
class several {
public:
    // False, with the code set, when the arguments are refused.
    bool gather(DWORD count, const HANDLE* handles, bool wait_all);
    ~several();

    DWORD wait_for_any(DWORD milliseconds);
    DWORD wait_for_all(DWORD milliseconds);

private:
    // Queues the sleeper at each object, unless one is found signalled on the way.
    void settle_or_enqueue(sleeper& self);
    void dequeue();
    void lock_all();
    void unlock_all();
    bool all_signalled_locked() const;

    DWORD count_ = 0;
    waitable* objects_[MAXIMUM_WAIT_OBJECTS];
    waitable* ordered_[MAXIMUM_WAIT_OBJECTS]; // by address: the order in which they are locked
    queue_entry entries_[MAXIMUM_WAIT_OBJECTS];
};

bool several::gather(DWORD count, const HANDLE* handles, bool wait_all) {
    if (count == 0 || count > MAXIMUM_WAIT_OBJECTS || !handles) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return false;
    }
    for (DWORD i = 0; i < count; ++i) {
        object* const found = object_of(handles[i]);
        waitable* const one = found ? found->as_waitable() : nullptr;
        if (!one)
            return false;
        one->keep();
        objects_[count_++] = one;
    }
    if (!wait_all)
        return true;
    std::copy_n(objects_, count, ordered_);
    std::sort(ordered_, ordered_ + count, std::less<>());
    if (std::adjacent_find(ordered_, ordered_ + count) == ordered_ + count)
        return true;
    SetLastError(ERROR_INVALID_PARAMETER);
    return false;
}

several::~several() {
    for (DWORD i = 0; i < count_; ++i)
        objects_[i]->release();
}

void several::settle_or_enqueue(sleeper& self) {
    for (DWORD i = 0; i < count_; ++i) {
        waitable& one = *objects_[i];
        entries_[i].who = &self;
        entries_[i].index = i;
        one.lock();
        const bool signalled = one.is_signalled_locked();
        if (!signalled)
            one.enqueue_locked(entries_[i]);
        else if (self.settle(i)) // else one of those before released us first, and this one keeps its signal
            one.take_locked();
        one.unlock();
        if (signalled)
            return;
    }
}

void several::dequeue() {
    for (DWORD i = 0; i < count_; ++i) {
        objects_[i]->lock();
        objects_[i]->dequeue_locked(entries_[i]);
        objects_[i]->unlock();
    }
}

DWORD several::wait_for_any(DWORD milliseconds) {
    for (DWORD i = 0; i < count_; ++i) {
        if (objects_[i]->take())
            return WAIT_OBJECT_0 + i;
    }
    if (milliseconds == 0)
        return WAIT_TIMEOUT;
    const deadline until(milliseconds);
    sleeper self(false);
    settle_or_enqueue(self);
    while (self.outcome.load(std::memory_order_acquire) == sleeper::waiting) {
        if (!sleep_on(&self.outcome, sleeper::waiting, until))
            self.settle(sleeper::timed_out);
    }
    // No signaller settles the wait any more, but some may still look at it: they hold the lock of their object.
    dequeue();
    const uint32_t outcome = self.outcome.load(std::memory_order_relaxed);
    return outcome == sleeper::timed_out ? WAIT_TIMEOUT : WAIT_OBJECT_0 + outcome;
}

void several::lock_all() {
    for (DWORD i = 0; i < count_; ++i)
        ordered_[i]->lock();
}

void several::unlock_all() {
    for (DWORD i = 0; i < count_; ++i)
        ordered_[i]->unlock();
}

bool several::all_signalled_locked() const {
    return std::all_of(objects_, objects_ + count_,
                       [](const waitable* one) { return one->is_signalled_locked(); });
}

DWORD several::wait_for_all(DWORD milliseconds) {
    const deadline until(milliseconds);
    sleeper self(true);
    lock_all();
    for (DWORD i = 0; i < count_; ++i) {
        entries_[i].who = &self;
        objects_[i]->enqueue_locked(entries_[i]);
    }
    bool complete = false;
    for (bool in_time = milliseconds != 0;;) {
        complete = all_signalled_locked();
        if (complete || !in_time)
            break;
        // Signallers poke under the lock of their object: what changes from here on is not missed.
        self.outcome.store(sleeper::waiting, std::memory_order_relaxed);
        unlock_all();
        in_time = sleep_on(&self.outcome, sleeper::waiting, until);
        lock_all();
    }
    for (DWORD i = 0; i < count_; ++i) {
        objects_[i]->dequeue_locked(entries_[i]);
        if (complete)
            objects_[i]->take_locked();
    }
    unlock_all();
    return complete ? WAIT_OBJECT_0 : WAIT_TIMEOUT;
}

} // namespace

DWORD WaitForSingleObject(HANDLE handle, DWORD milliseconds) {
    if (guarded_object_of(handle)) [[unlikely]]
        return wait_for_mutex(handle, milliseconds);
    object* const awaited = object_of(handle);
    return awaited ? awaited->wait(milliseconds) : WAIT_FAILED;
}

DWORD WaitForMultipleObjects(DWORD count, const HANDLE* handles, BOOL wait_all, DWORD milliseconds) {
    several objects;
    if (!objects.gather(count, handles, wait_all))
        return WAIT_FAILED;
    return wait_all ? objects.wait_for_all(milliseconds) : objects.wait_for_any(milliseconds);
}

} // namespace platform
