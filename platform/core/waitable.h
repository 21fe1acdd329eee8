// Inside the layer: objects that threads wait for - events, semaphores, the ends of threads.
//
// The state is one word: a count, where 0 means not signalled, and a flag. While nobody sleeps, every change is one
// exchange of that word. A thread that must sleep puts an entry into the object's queue and sets the flag, and from
// then on changes are made under the object's lock, where a signaller hands what it adds to the sleepers, first come
// first served, before anybody else can take it. So two signals release two sleepers even when the first has not run
// yet, a reset takes nothing back from those who were released, and nobody is woken in vain.
//
// A thread that sleeps for all of several objects is in the queue of each, and is released by the signal that completes
// them: under the locks of all of them the signaller takes all or none, before its call returns.
#pragma once

#include <atomic>

#include "platform/api/threads.h"
#include "platform/core/futex.h"
#include "platform/core/handle.h"

namespace platform {

struct queue_entry;

// A thread that sleeps until one of its objects, or all of them, release it. It lives on that thread's stack.
struct sleeper {
    static constexpr uint32_t waiting = 0xFFFFFFFF;
    static constexpr uint32_t timed_out = 0xFFFFFFFE;

    // Waits for any one of the objects, or for all of them.
    sleeper() = default;
    sleeper(queue_entry* entries, uint32_t count) : all(entries), all_count(count) {}

    // Settles how the wait ends: with the index of the object that releases it, or timed_out. Only the first one who
    // tries succeeds. A signaller must not touch the sleeper afterwards: its stack may be gone.
    bool settle(uint32_t how) {
        uint32_t expected = waiting;
        // Release and acquire: the sleeper sees what the signaller did before.
        return outcome.compare_exchange_strong(expected, how, std::memory_order_acq_rel,
                                               std::memory_order_acquire);
    }

    // Sleeps until the wait is settled, as timed_out at the latest when the deadline has passed.
    void sleep_until_settled(const deadline& until) {
        // Acquire: as in settle.
        while (outcome.load(std::memory_order_acquire) == waiting) {
            if (!sleep_on(&outcome, waiting, until))
                settle(timed_out);
        }
    }

    std::atomic<uint32_t> outcome{waiting};
    // The sleeper's entries in the queues of all its objects; null for a wait for any one of them.
    queue_entry* const all = nullptr;
    const uint32_t all_count = 0;
};

class waitable;

// A sleeper's place in the queue of one object, guarded by that object's lock.
struct queue_entry {
    sleeper* who = nullptr;
    waitable* of = nullptr;
    uint32_t index = 0; // the place of this object among those that the sleeper waits for
    queue_entry* next = nullptr;
    queue_entry** link = nullptr; // what points here; null: in no queue
};

class waitable : public object {
public:
    // A wait that succeeds takes one from the count, or leaves it as it is.
    enum class when_taken { counts_down, stays };

    waitable(const object_kind& of, when_taken rule, uint32_t count)
        : object(of), stays_(rule == when_taken::stays), state_(count) {}

    DWORD wait(DWORD milliseconds) override {
        if (take()) [[likely]]
            return WAIT_OBJECT_0;
        return milliseconds == 0 ? WAIT_TIMEOUT : sleep(milliseconds);
    }
    waitable* as_waitable() override { return this; }

    // Makes the count 1.
    void set() {
        change([](uint32_t& count) {
            count = 1;
            return true;
        });
    }

    // Makes the count 0.
    void reset() {
        change([](uint32_t& count) {
            count = 0;
            return true;
        });
    }

    // Adds to the count; false, and nothing changes, when it would exceed the maximum. Gives the count before.
    bool add(uint32_t n, uint32_t maximum, uint32_t& before) {
        return change([=, &before](uint32_t& count) {
            if (n > maximum - count)
                return false;
            before = count;
            count += n;
            return true;
        });
    }

    // Takes the object if it is signalled.
    bool take() {
        if (stays_)
            return (state_.load(std::memory_order_seq_cst) & count_mask) > 0;
        return change([](uint32_t& count) { return count > 0 && count-- > 0; });
    }

    // For waits on several objects. Between lock and unlock only the caller changes the state. A thread that locks more
    // than one object at a time makes a `several_locked` first.
    void lock();
    void unlock();
    bool is_signalled_locked() const;
    void take_locked();
    void enqueue_locked(queue_entry& entry);
    void dequeue_locked(queue_entry& entry); // an entry that is in no queue is left alone

private:
    class wakes;

    // A change of the count; says whether it may be made.
    using step = bool (*)(void* context, uint32_t& count);

    template <class Next>
    bool change(Next next);
    bool change_queued(step next, void* context);
    void hand_out_locked(wakes& woken);
    bool complete_locked(sleeper& who);
    bool spin();
    DWORD sleep(DWORD milliseconds);

    static constexpr uint32_t queued = 0x80000000; // somebody sleeps, or the lock is held for several objects
    static constexpr uint32_t count_mask = queued - 1;

    const bool stays_;
    std::atomic<uint8_t> spins_{backoff::turns_at_most}; // turns of spinning before a sleep
    std::atomic<uint32_t> state_;
    std::atomic<uint32_t> lock_{lock_word::is_free};
    uint32_t for_all_ = 0; // how many in the queue want all of their objects
    queue_entry* first_ = nullptr;
    queue_entry** last_link_ = &first_;
};

// Only the thread that has this holds the locks of several objects, or waits for one while it holds another: so the
// order in which it takes them does not matter.
class several_locked {
public:
    several_locked();
    ~several_locked();
    several_locked(const several_locked&) = delete;
    several_locked& operator=(const several_locked&) = delete;
};

// `next` gets the count, changes it and says whether the change may be made.
//
// Every exchange of the state is sequentially consistent: a setter's earlier writes are seen by the thread that
// takes the signal, and callers may rely on the full barrier that the platform's calls are, as in "reset the event,
// then look whether there is work".
template <class Next>
bool waitable::change(Next next) {
    uint32_t old = state_.load(std::memory_order_relaxed);
    while ((old & queued) == 0) {
        uint32_t count = old;
        if (!next(count))
            return false;
        // Nothing of the object is touched after this: a thread that takes the signal may close it.
        if (state_.compare_exchange_weak(old, count, std::memory_order_seq_cst, std::memory_order_relaxed))
            return true;
    }
    return change_queued([](void* context, uint32_t& count) { return (*static_cast<Next*>(context))(count); },
                         &next);
}

// The object of the pseudo handles, which is never signalled.
waitable* what_never_ends();

} // namespace platform
