// The timer set: a list of timers, and one thread that tests them in turn and calls back.
#include <atomic>

#include "zu/zu_support.h"

struct ZU_timer_entry {
    ZU_timer_link link; // comes first: the list is made of links
    ZU_timer* timer;
    void* user_data;
    ZU_timer_callback callback;
};

namespace {

constexpr uint32_t slice_ms = 200;
constexpr uint32_t slices_per_second = 1000 / slice_ms;

constexpr int32_t visitor_stops = 1;
constexpr int32_t visitor_removes = 2;

// The fields that are also read without the lock. The count and the run-now request need no memory order, since their
// readers reach nothing through them. The thread pointer publishes the thread's record, and the stop flag all that was
// written before it was set.
std::atomic_ref<int32_t> count_of(ZU_timer_set& set) {
    return std::atomic_ref(set.count);
}
std::atomic_ref<ZU_timer_entry*> run_now_of(ZU_timer_set& set) {
    return std::atomic_ref(set.run_now);
}
std::atomic_ref<ZU_thread*> thread_of(ZU_timer_set& set) {
    return std::atomic_ref(set.thread);
}
std::atomic_ref<uint8_t> stop_of(ZU_timer_set& set) {
    return std::atomic_ref(set.stop);
}

bool is_stopping(ZU_timer_set& set) {
    return stop_of(set).load(std::memory_order_acquire) != 0;
}
bool is_alive(ZU_timer_set& set) {
    return thread_of(set).load(std::memory_order_acquire) != nullptr;
}
ZU_timer_entry* pending(ZU_timer_set& set) {
    return run_now_of(set).load(std::memory_order_relaxed);
}
void request(ZU_timer_set& set, ZU_timer_entry* entry) {
    run_now_of(set).store(entry, std::memory_order_relaxed);
}

// The functions from here to the scheduler's thread run with the lock held.

void add_to_count(ZU_timer_set& set, int32_t change) {
    const auto count = count_of(set);
    count.store(count.load(std::memory_order_relaxed) + change, std::memory_order_relaxed);
}

ZU_timer_entry* entry_of(ZU_timer_link* link) {
    return reinterpret_cast<ZU_timer_entry*>(link);
}

// Calls visit(entry), which may remove the entry, until it returns false.
template <class Visit>
void for_each(ZU_timer_set& set, Visit visit) {
    for (ZU_timer_link *link = set.entries.next, *next; link != &set.entries; link = next) {
        next = link->next;
        if (!visit(entry_of(link)))
            return;
    }
}

template <class Test>
ZU_timer_entry* first_where(ZU_timer_set& set, Test test) {
    ZU_timer_entry* found = nullptr;
    for_each(set, [&](ZU_timer_entry* entry) {
        if (test(entry))
            found = entry;
        return !found;
    });
    return found;
}

void remove(ZU_timer_set& set, ZU_timer_entry* entry) {
    if (pending(set) == entry)
        request(set, nullptr);
    entry->link.previous->next = entry->link.next;
    entry->link.next->previous = entry->link.previous;
    if (set.free)
        set.free(entry->user_data);
    entry->timer->ops->destroy(entry->timer);
    ZU_free(entry);
}

template <class Test>
int32_t remove_where(ZU_timer_set& set, Test test) {
    int32_t removed = 0;
    for_each(set, [&](ZU_timer_entry* entry) {
        if (test(entry)) {
            remove(set, entry);
            ++removed;
        }
        return true;
    });
    add_to_count(set, -removed);
    return removed;
}

// ---- The scheduler's thread ----

// Tests every timer. False if the thread must end. A callback may add or remove entries, so the next is read after it.
bool scan(ZU_timer_set& set) {
    const zu::held lock(set.lock);
    for (ZU_timer_link* link = set.entries.next; link != &set.entries; link = link->next) {
        const ZU_timer_entry* entry = entry_of(link);
        const ZU_time_t now = ZU_time();
        if (now < set.low_mark)
            set.low_mark = now;
        if (entry->timer->ops->due(entry->timer, set.low_mark, now) == 0)
            entry->callback(entry->user_data, entry->timer);
        if (is_stopping(set))
            return false;
    }
    return true;
}

void serve_run_now(ZU_timer_set& set) {
    const zu::held lock(set.lock);
    const ZU_timer_entry* wanted = pending(set);
    if (const ZU_timer_entry* entry = first_where(set, [&](ZU_timer_entry* e) { return e == wanted; }))
        entry->callback(entry->user_data, entry->timer);
    request(set, nullptr);
}

// Waits until the next scan, and serves run-now requests. False if the thread must end.
bool wait_and_serve(ZU_timer_set& set) {
    const uint64_t slices = uint64_t{set.period} * slices_per_second;
    for (uint64_t i = 0; i < slices; ++i) {
        ZU_sleep(slice_ms);
        if (is_stopping(set))
            return false;
        if (pending(set))
            serve_run_now(set);
    }
    return !is_stopping(set); // a set without a period never enters the loop
}

uint32_t run_scheduler(void* argument) {
    auto& set = *static_cast<ZU_timer_set*>(argument);
    while (scan(set) && wait_and_serve(set)) {}
    return 0;
}

} // namespace

void ZU_timer_set_init(ZU_timer_set* set, uint32_t period_seconds, ZU_timer_compare compare,
                       ZU_timer_free free) {
    *set = {};
    ZU_lock_thread_init(&set->lock);
    set->entries.next = set->entries.previous = &set->entries;
    set->period = period_seconds;
    set->compare = compare;
    set->free = free;
}

void ZU_timer_set_destroy(ZU_timer_set* set) {
    if (!set)
        return;
    ZU_timer_set_shutdown(set);
    ZU_timer_set_clear(set);
    ZU_lock_thread_destroy(&set->lock);
    *set = {};
}

void ZU_timer_set_add(ZU_timer_set* set, ZU_timer* timer, void* user_data, ZU_timer_callback callback) {
    if (!timer)
        return;
    auto* entry = zu::allocate<ZU_timer_entry>();
    const zu::held lock(set->lock);
    *entry = {{&set->entries, set->entries.previous}, timer, user_data, callback};
    entry->link.previous->next = &entry->link;
    set->entries.previous = &entry->link;
    add_to_count(*set, 1);
}

int32_t ZU_timer_set_del(ZU_timer_set* set, const void* key) {
    const zu::held lock(set->lock);
    return remove_where(*set,
                        [&](ZU_timer_entry* entry) { return set->compare(entry->user_data, key) == 0; });
}

int32_t ZU_timer_set_find(ZU_timer_set* set, const void* key) {
    const zu::held lock(set->lock);
    int32_t found = 0;
    for_each(*set, [&](ZU_timer_entry* entry) {
        found += set->compare(entry->user_data, key) == 0;
        return true;
    });
    return found;
}

uint32_t ZU_timer_set_clear(ZU_timer_set* set) {
    const zu::held lock(set->lock);
    return static_cast<uint32_t>(remove_where(*set, [](ZU_timer_entry*) { return true; }));
}

int32_t ZU_timer_set_count(ZU_timer_set* set) {
    return count_of(*set).load(std::memory_order_relaxed);
}

void ZU_timer_set_enumerate(ZU_timer_set* set, ZU_timer_visitor visitor, void* context) {
    const zu::held lock(set->lock);
    for_each(*set, [&](ZU_timer_entry* entry) {
        const int32_t answer = visitor(context, entry->timer, entry->user_data, entry->callback);
        if (answer == visitor_removes) {
            remove(*set, entry);
            add_to_count(*set, -1);
        }
        return answer != visitor_stops;
    });
}

ZU_bool ZU_timer_set_startup(ZU_timer_set* set) {
    if (is_alive(*set))
        return true;
    stop_of(*set).store(0, std::memory_order_relaxed);
    set->low_mark = ZU_time();
    request(*set, nullptr);
    thread_of(*set).store(ZU_thread_create(run_scheduler, set), std::memory_order_release);
    return is_alive(*set);
}

void ZU_timer_set_shutdown(ZU_timer_set* set) {
    ZU_thread* thread = thread_of(*set).load(std::memory_order_acquire);
    if (!thread)
        return;
    stop_of(*set).store(1, std::memory_order_release);
    ZU_thread_wait_for_termination(thread, nullptr);
    thread_of(*set).store(nullptr, std::memory_order_release);
    request(*set, nullptr);
}

ZU_bool ZU_timer_set_alive(ZU_timer_set* set) {
    return is_alive(*set);
}

void ZU_timer_set_run_now(ZU_timer_set* set, ZU_timer* timer) {
    for (;;) {
        while (pending(*set)) {
            if (!is_alive(*set))
                return;
            ZU_sleep(slice_ms);
        }
        const zu::held lock(set->lock);
        if (pending(*set))
            continue; // another caller's request came first
        if (ZU_timer_entry* entry = first_where(*set, [&](ZU_timer_entry* e) { return e->timer == timer; }))
            request(*set, entry);
        return;
    }
}
