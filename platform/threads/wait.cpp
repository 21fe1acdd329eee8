// Waits for one object and for several.
#include <algorithm>
#include <functional>

#include "platform/api/threads.h"
#include "platform/core/error.h"
#include "platform/core/waitable.h"
#include "platform/threads/named_mutex.h"

namespace platform {

namespace {

// The object of a handle as one that can be waited for together with others; null, with the code set, when it cannot.
waitable* waitable_of(HANDLE handle) {
    if (object* const marked = marked_object_in(content_of(handle), waitable_mark)) [[likely]]
        return static_cast<waitable*>(marked);
    object* const found = object_of(handle);
    return found ? found->as_waitable() : nullptr;
}

// A wait for several objects that may have to sleep. The objects are kept alive until it is over.
class several {
public:
    several(waitable* const* objects, DWORD count);
    ~several();

    DWORD wait_for_any(DWORD milliseconds);
    DWORD wait_for_all(DWORD milliseconds);

private:
    // Queues the sleeper at each object, unless one is found signalled on the way.
    void settle_or_enqueue(sleeper& self);
    DWORD sleep(sleeper& self, const deadline& until);

    template <class Step>
    void for_each(Step step) {
        std::for_each(entries_, entries_ + count_, step);
    }

    const DWORD count_;
    queue_entry entries_[MAXIMUM_WAIT_OBJECTS];
};

several::several(waitable* const* objects, DWORD count) : count_(count) {
    for (DWORD i = 0; i < count; ++i) {
        objects[i]->keep();
        entries_[i].of = objects[i];
        entries_[i].index = i;
    }
}

several::~several() {
    for_each([](const queue_entry& entry) { entry.of->release(); });
}

void several::settle_or_enqueue(sleeper& self) {
    for (DWORD i = 0; i < count_; ++i) {
        queue_entry& entry = entries_[i];
        waitable& one = *entry.of;
        entry.who = &self;
        one.lock();
        const bool signalled = one.is_signalled_locked();
        // If settle fails, an earlier object already ended the wait: leave this one signalled.
        if (!signalled)
            one.enqueue_locked(entry);
        else if (self.settle(i))
            one.take_locked();
        one.unlock();
        if (signalled)
            return;
    }
}

DWORD several::sleep(sleeper& self, const deadline& until) {
    self.sleep_until_settled(until);
    // No signaller settles the wait any more, but some may still look at it: they hold the lock of their object.
    for_each([](queue_entry& entry) {
        entry.of->lock();
        entry.of->dequeue_locked(entry);
        entry.of->unlock();
    });
    const uint32_t outcome = self.outcome.load(std::memory_order_relaxed);
    return outcome == sleeper::timed_out ? WAIT_TIMEOUT : WAIT_OBJECT_0 + outcome;
}

DWORD several::wait_for_any(DWORD milliseconds) {
    const deadline until(milliseconds);
    sleeper self;
    settle_or_enqueue(self);
    return sleep(self, until);
}

DWORD several::wait_for_all(DWORD milliseconds) {
    const deadline until(milliseconds);
    sleeper self(entries_, count_);
    bool complete;
    {
        const several_locked in_turn;
        for_each([&](queue_entry& entry) {
            entry.who = &self;
            entry.of->lock();
        });
        complete = std::all_of(entries_, entries_ + count_,
                               [](const queue_entry& entry) { return entry.of->is_signalled_locked(); });
        for_each([&](queue_entry& entry) {
            if (complete)
                entry.of->take_locked();
            else if (milliseconds != 0)
                entry.of->enqueue_locked(entry);
            entry.of->unlock();
        });
    }
    if (complete)
        return WAIT_OBJECT_0;
    return milliseconds == 0 ? WAIT_TIMEOUT : sleep(self, until);
}

bool has_duplicates(waitable* const* objects, DWORD count) {
    waitable* sorted[MAXIMUM_WAIT_OBJECTS];
    waitable** const end = std::copy_n(objects, count, sorted);
    std::sort(sorted, end, std::less<>());
    return std::adjacent_find(sorted, end) != end;
}

} // namespace

DWORD WaitForSingleObject(HANDLE handle, DWORD milliseconds) {
    const uintptr_t content = content_of(handle);
    if (object* const marked = marked_object_in(content, waitable_mark)) [[likely]]
        return static_cast<waitable*>(marked)->waitable::wait(milliseconds);
    if (marked_object_in(content, guarded_mark))
        return wait_for_mutex(handle, milliseconds);
    object* const awaited = object_of(handle);
    return awaited ? awaited->wait(milliseconds) : WAIT_FAILED;
}

DWORD WaitForMultipleObjects(DWORD count, const HANDLE* handles, BOOL wait_all, DWORD milliseconds) {
    if (count == 0 || count > MAXIMUM_WAIT_OBJECTS || !handles)
        return fail<DWORD>(ERROR_INVALID_PARAMETER, WAIT_FAILED);
    waitable* objects[MAXIMUM_WAIT_OBJECTS];
    for (DWORD i = 0; i < count; ++i) {
        objects[i] = waitable_of(handles[i]);
        if (!objects[i])
            return WAIT_FAILED;
    }
    if (wait_all)
        return has_duplicates(objects, count) ? fail<DWORD>(ERROR_INVALID_PARAMETER, WAIT_FAILED)
                                              : several(objects, count).wait_for_all(milliseconds);
    for (DWORD i = 0; i < count; ++i) {
        if (objects[i]->take())
            return WAIT_OBJECT_0 + i;
    }
    return milliseconds == 0 ? WAIT_TIMEOUT : several(objects, count).wait_for_any(milliseconds);
}

} // namespace platform
