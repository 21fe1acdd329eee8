// The bounded queue: a list under a lock, and two semaphores on which all waiting happens.
//
// Free places and stored values are counted under the lock. A thread that finds none registers and sleeps on the
// semaphore of its side. A thread that gives one while others are registered posts that semaphore, and one of them has
// it. So a push or pop that need not wait locks once and touches neither semaphore.
#include <atomic>

#include "zu/zu_support.h"

namespace {

struct queue_link {
    queue_link* next;
    queue_link* previous;
};

struct queue_node {
    queue_link link; // comes first, so that a link's address is that of its node
    void* value;
};

// A supply of free places or of stored values: push takes places and gives values, pop the other way round.
struct queue_supply {
    ZU_sem* given;      // posted once for each one that a waiting thread is given
    int32_t available;  // how many can be taken without waiting
    int32_t registered; // threads that wait and have not been given one
};

// Some nodes are kept for the next pushes: memory that one thread allocates and another frees costs both time.
constexpr int32_t spare_nodes_at_most = 1024;

} // namespace

struct ZU_queue {
    ZU_lock_thread lock;
    int32_t maximum_size;
    int32_t count;
    queue_link head; // linked to itself when the queue is empty
    queue_supply free_places;
    queue_supply stored_values;
    queue_link* spare; // linked by `next` alone
    int32_t spare_count;
};

namespace {

// After a wait that has failed, with the queue locked. With nobody registered, our item was posted meanwhile: take it.
// Otherwise withdraw one registration; waiters are interchangeable.
bool took_last_moment_gift(queue_supply& supply, ZU_bool* timed_out) {
    if (supply.registered > 0) {
        --supply.registered;
        return false;
    }
    if (timed_out)
        *timed_out = 0;
    return ZU_sem_wait(supply.given, 0, nullptr);
}

// Takes one from the supply and leaves the queue locked, or fails and leaves it unlocked.
bool take_and_lock(ZU_queue* queue, queue_supply& supply, uint32_t timeout_ms, ZU_bool* timed_out) {
    if (timed_out)
        *timed_out = 0;
    ZU_lock_thread_lock(&queue->lock);
    if (supply.available > 0) {
        --supply.available;
        return true;
    }
    if (timeout_ms == 0) {
        ZU_lock_thread_unlock(&queue->lock);
        if (timed_out)
            *timed_out = 1;
        return false;
    }
    ++supply.registered;
    ZU_lock_thread_unlock(&queue->lock);

    const bool was_given = ZU_sem_wait(supply.given, timeout_ms, timed_out);
    ZU_lock_thread_lock(&queue->lock);
    if (was_given || took_last_moment_gift(supply, timed_out))
        return true;
    ZU_lock_thread_unlock(&queue->lock);
    return false;
}

void give_and_unlock(ZU_queue* queue, queue_supply& supply) {
    if (supply.registered > 0) {
        const platform::late_wake after_unlock; // a thread that ran sooner would find the queue locked
        --supply.registered;
        ZU_sem_post(supply.given); // under the lock: took_last_moment_gift relies on the post
        ZU_lock_thread_unlock(&queue->lock);
        return;
    }
    ++supply.available;
    ZU_lock_thread_unlock(&queue->lock);
}

// The size is read without the lock. Relaxed access is enough: the number publishes no other data.
std::atomic_ref<int32_t> count_of(ZU_queue* queue) {
    return std::atomic_ref<int32_t>(queue->count);
}

queue_node* node_of(queue_link* link) {
    return reinterpret_cast<queue_node*>(link);
}

queue_node* new_node(ZU_queue* queue) {
    if (!queue->spare)
        return zu::allocate<queue_node>();
    queue_link* taken = queue->spare;
    queue->spare = taken->next;
    --queue->spare_count;
    return node_of(taken);
}

// False if enough nodes are kept already: the caller frees this one.
bool keep_spare(ZU_queue* queue, queue_node* node) {
    if (queue->spare_count == spare_nodes_at_most)
        return false;
    node->link.next = queue->spare;
    queue->spare = &node->link;
    ++queue->spare_count;
    return true;
}

void link_last(ZU_queue* queue, void* value) {
    queue_node* node = new_node(queue);
    *node = {{&queue->head, queue->head.previous}, value};
    node->link.previous->next = &node->link;
    queue->head.previous = &node->link;
    count_of(queue).store(queue->count + 1, std::memory_order_relaxed);
}

queue_node* unlink_first(ZU_queue* queue) {
    queue_node* node = node_of(queue->head.next);
    queue->head.next = node->link.next;
    node->link.next->previous = &queue->head;
    count_of(queue).store(queue->count - 1, std::memory_order_relaxed);
    return node;
}

} // namespace

ZU_queue* ZU_queue_create(int32_t maximum_size) {
    if (maximum_size < 1) {
        platform::SetLastError(ERROR_INVALID_PARAMETER);
        return nullptr;
    }
    ZU_queue* queue = static_cast<ZU_queue*>(ZU_calloc(1, sizeof(ZU_queue)));
    queue->free_places = {ZU_sem_create(0, maximum_size), maximum_size, 0};
    if (!queue->free_places.given) {
        const zu::keep_last_error keep;
        ZU_free(queue);
        return nullptr;
    }
    queue->stored_values = {ZU_sem_create(0, maximum_size), 0, 0};
    if (!queue->stored_values.given) {
        const zu::keep_last_error keep;
        ZU_sem_destroy(queue->free_places.given);
        ZU_free(queue);
        return nullptr;
    }
    queue->head = {&queue->head, &queue->head};
    queue->maximum_size = maximum_size;
    ZU_lock_thread_init(&queue->lock);
    return queue;
}

void ZU_queue_destroy(ZU_queue* queue) {
    if (!queue)
        return;
    ZU_sem_destroy(queue->free_places.given);
    ZU_sem_destroy(queue->stored_values.given);
    while (queue->head.next != &queue->head)
        ZU_free(unlink_first(queue));
    while (queue->spare)
        ZU_free(new_node(queue));
    ZU_lock_thread_destroy(&queue->lock);
    ZU_free(queue);
}

ZU_bool ZU_queue_push(ZU_queue* queue, void* value, uint32_t timeout_ms, ZU_bool* timed_out) {
    if (!take_and_lock(queue, queue->free_places, timeout_ms, timed_out))
        return 0;
    link_last(queue, value);
    give_and_unlock(queue, queue->stored_values);
    return 1;
}

ZU_bool ZU_queue_pop(ZU_queue* queue, void** value, uint32_t timeout_ms, ZU_bool* timed_out) {
    if (!take_and_lock(queue, queue->stored_values, timeout_ms, timed_out)) {
        *value = nullptr;
        return 0;
    }
    queue_node* node = unlink_first(queue);
    *value = node->value;
    const bool kept = keep_spare(queue, node);
    give_and_unlock(queue, queue->free_places);
    if (!kept)
        ZU_free(node);
    return 1;
}

int32_t ZU_queue_size(ZU_queue* queue) {
    return count_of(queue).load(std::memory_order_relaxed);
}

int32_t ZU_queue_max_size(ZU_queue* queue) {
    return queue->maximum_size;
}
