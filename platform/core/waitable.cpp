// Objects that threads wait for: the count, the queue of sleepers, and the wait for one object.
#include "platform/core/waitable.h"

#include "platform/api/threads.h"

namespace platform {

// The sleepers to wake once the lock is free, so that they do not run into it. Only addresses are kept: a sleeper
// that has been settled may be gone before it is woken.
class waitable::wakes {
public:
    ~wakes() { wake_all(); }
    void add(const std::atomic<uint32_t>* word) {
        if (count_ == at_once)
            wake_all();
        words_[count_++] = word;
    }

private:
    static constexpr int at_once = 16;

    void wake_all() {
        for (int i = 0; i < count_; ++i)
            wake_on(words_[i], 1);
        count_ = 0;
    }

    const std::atomic<uint32_t>* words_[at_once];
    int count_ = 0;
};

bool waitable::change_queued(step next, void* context) {
    // A sleeper that is released may close the object before this thread has left the lock.
    const kept here(this);
    wakes woken;
    lock();
    uint32_t count = state_.load(std::memory_order_relaxed) & count_mask;
    const bool changed = next(context, count);
    if (changed)
        state_.store(hand_out_locked(count, woken) | queued, std::memory_order_seq_cst);
    unlock();
    return changed;
}

// Gives the count to the sleepers, as far as it goes; returns what is left.
uint32_t waitable::hand_out_locked(uint32_t count, wakes& woken) {
    for (queue_entry* entry = first_; entry && count > 0;) {
        queue_entry* const next = entry->next;
        sleeper* const who = entry->who;
        const std::atomic<uint32_t>* const word = &who->outcome;
        if (who->wants_all) {
            // It stays in the queue, and so alive, until it has this lock.
            who->outcome.store(sleeper::poked, std::memory_order_release);
            woken.add(word);
        } else {
            dequeue_locked(*entry);
            if (who->settle(entry->index)) {
                woken.add(word);
                count -= stays_ ? 0 : 1;
            }
        }
        entry = next;
    }
    return count;
}

void waitable::lock() {
    lock_word::lock(lock_);
    // With the flag, changes without the lock fail and come here.
    state_.fetch_or(queued, std::memory_order_seq_cst);
}

void waitable::unlock() {
    if (!first_)
        state_.fetch_and(count_mask, std::memory_order_seq_cst);
    lock_word::unlock(lock_);
}

bool waitable::is_signalled_locked() const {
    return (state_.load(std::memory_order_relaxed) & count_mask) > 0;
}

void waitable::take_locked() {
    if (!stays_)
        state_.fetch_sub(1, std::memory_order_seq_cst);
}

void waitable::enqueue_locked(queue_entry& entry) {
    entry.next = nullptr;
    entry.link = last_link_;
    *last_link_ = &entry;
    last_link_ = &entry.next;
}

void waitable::dequeue_locked(queue_entry& entry) {
    if (!entry.link)
        return;
    *entry.link = entry.next;
    if (entry.next)
        entry.next->link = entry.link;
    else
        last_link_ = entry.link;
    entry.link = nullptr;
}

DWORD waitable::wait(DWORD milliseconds) {
    if (take())
        return WAIT_OBJECT_0;
    return milliseconds == 0 ? WAIT_TIMEOUT : sleep(milliseconds);
}

// How long to spin is learnt per object: longer after it has paid, shorter when nothing came.
bool waitable::spin() {
    const uint8_t turns = turns_.load(std::memory_order_relaxed);
    bool taken = false;
    for (backoff waiting(turns); !taken && waiting.turn();)
        taken = (state_.load(std::memory_order_relaxed) & count_mask) > 0 && take();
    if (taken && turns < backoff::turns_at_most)
        turns_.store(turns + 1, std::memory_order_relaxed);
    else if (!taken && turns > backoff::turns_at_least)
        turns_.store(turns - 1, std::memory_order_relaxed);
    return taken;
}

DWORD waitable::sleep(DWORD milliseconds) {
    const kept here(this);
    if (spin())
        return WAIT_OBJECT_0;
    const deadline until(milliseconds);
    sleeper self(false);
    queue_entry entry;
    entry.who = &self;

    lock();
    if (is_signalled_locked()) {
        take_locked();
        unlock();
        return WAIT_OBJECT_0;
    }
    enqueue_locked(entry);
    unlock();

    while (self.outcome.load(std::memory_order_acquire) == sleeper::waiting) {
        if (sleep_on(&self.outcome, sleeper::waiting, until) || !self.settle(sleeper::timed_out))
            continue;
        lock();
        dequeue_locked(entry);
        unlock();
        return WAIT_TIMEOUT;
    }
    return WAIT_OBJECT_0;
}

waitable* what_never_ends() {
    static constexpr object_kind pseudo{};
    // Never destroyed: a thread may wait for it until the very end.
    static waitable* const never = new waitable(pseudo, waitable::when_taken::stays, 0);
    return never;
}

} // namespace platform
