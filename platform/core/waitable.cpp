// Objects that threads wait for: the count, the queue of sleepers, and the wait for one object.
#include "platform/core/waitable.h"

#include <pthread.h>

#include <algorithm>
#include <optional>

namespace platform {

namespace {

constinit std::atomic<uint32_t> several_lock{lock_word::is_free};

// The object that keeps a wake of the calling thread for later, or null.
[[gnu::tls_model("initial-exec")]] constinit thread_local late_wake* late = nullptr;

// A forked child has no other thread that could give the lock back.
[[maybe_unused]] const int fork_handler =
    pthread_atfork(nullptr, nullptr, [] { several_lock.store(lock_word::is_free); });

} // namespace

several_locked::several_locked() {
    lock_word::lock(several_lock);
}

several_locked::~several_locked() {
    lock_word::unlock(several_lock);
}

late_wake::late_wake() {
    late = this;
}

late_wake::~late_wake() {
    late = nullptr;
    if (word_)
        wake_on(word_, 1);
}

bool late_wake::takes(const std::atomic<uint32_t>* word) {
    if (word_)
        return false;
    word_ = word;
    return true;
}

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
        for (int i = 0; i < count_; ++i) {
            if (!late || !late->takes(words_[i]))
                wake_on(words_[i], 1);
        }
        count_ = 0;
    }

    const std::atomic<uint32_t>* words_[at_once];
    int count_ = 0;
};

bool waitable::change_queued(step next, void* context) {
    // A sleeper that is released may close the object before this thread has left the lock.
    const kept here(this);
    wakes woken;
    std::optional<several_locked> in_turn;
    lock();
    if (for_all_ > 0) {
        // Nothing has changed yet, so nothing is lost while the lock is given up to be taken in the right order.
        unlock();
        in_turn.emplace();
        lock();
    }
    uint32_t count = state_.load(std::memory_order_relaxed) & count_mask;
    const bool changed = next(context, count);
    if (changed) {
        state_.store(count | queued, std::memory_order_seq_cst);
        hand_out_locked(woken);
    }
    unlock();
    return changed;
}

// Gives the count to the sleepers, as far as it goes.
void waitable::hand_out_locked(wakes& woken) {
    for (queue_entry* entry = first_; entry && is_signalled_locked();) {
        queue_entry* const next = entry->next;
        sleeper* const who = entry->who;
        const std::atomic<uint32_t>* const word = &who->outcome;
        bool released;
        if (who->all) {
            released = complete_locked(*who);
        } else {
            dequeue_locked(*entry);
            released = who->settle(entry->index);
            if (released)
                take_locked();
        }
        if (released)
            woken.add(word);
        entry = next;
    }
}

// Takes all the objects of a sleeper in this object's queue if every one is signalled. The sleeper locks each of them
// before it goes on, so its entries stay while this object is locked.
bool waitable::complete_locked(sleeper& who) {
    queue_entry* const end = who.all + who.all_count;
    for (queue_entry* entry = who.all; entry != end; ++entry) {
        if (entry->of != this)
            entry->of->lock();
    }
    const bool complete =
        std::all_of(who.all, end, [](const queue_entry& entry) { return entry.of->is_signalled_locked(); })
        && who.settle(0);
    for (queue_entry* entry = who.all; entry != end; ++entry) {
        if (complete) {
            entry->of->take_locked();
            entry->of->dequeue_locked(*entry);
        }
        if (entry->of != this)
            entry->of->unlock();
    }
    return complete;
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
    for_all_ += entry.who->all ? 1 : 0;
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
    for_all_ -= entry.who->all ? 1 : 0;
}

// How long to spin is learnt per object: longer after it has paid, shorter when nothing came.
bool waitable::spin() {
    const uint8_t turns = spins_.load(std::memory_order_relaxed);
    bool taken = false;
    for (backoff waiting(turns); !taken && waiting.turn();)
        taken = (state_.load(std::memory_order_relaxed) & count_mask) > 0 && take();
    if (taken && turns < backoff::turns_at_most)
        spins_.store(turns + 1, std::memory_order_relaxed);
    else if (!taken && turns > backoff::turns_at_least)
        spins_.store(turns - 1, std::memory_order_relaxed);
    return taken;
}

DWORD waitable::sleep(DWORD milliseconds) {
    const kept here(this);
    if (spin())
        return WAIT_OBJECT_0;
    const deadline until(milliseconds);
    sleeper self;
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

    self.sleep_until_settled(until);
    if (self.outcome.load(std::memory_order_relaxed) != sleeper::timed_out)
        return WAIT_OBJECT_0;
    lock();
    dequeue_locked(entry);
    unlock();
    return WAIT_TIMEOUT;
}

waitable* what_never_ends() {
    static constexpr object_kind pseudo{};
    // Never destroyed: a thread may wait for it until the very end.
    static waitable* const never = new waitable(pseudo, waitable::when_taken::stays, 0);
    return never;
}

} // namespace platform
