// Hash table: the caller's items in buckets that are circular lists, sorted by key.
#include "zu/zu_support.h"

namespace {

using list_link = ZU_hash_table_link;

constexpr bool wide = sizeof(void*) == 8;
static_assert(sizeof(ZU_hash_table) == (wide ? 48 : 28));
static_assert(offsetof(ZU_hash_table, buckets) == 8);
static_assert(offsetof(ZU_hash_table, key_offset) == (wide ? 16 : 12));
static_assert(offsetof(ZU_hash_table, hash) == (wide ? 24 : 16));
static_assert(offsetof(ZU_hash_table, compare) == (wide ? 32 : 20));
static_assert(offsetof(ZU_hash_table, release) == (wide ? 40 : 24));
static_assert(sizeof(ZU_hash_table_node) == 3 * sizeof(void*));
static_assert(sizeof(ZU_hash_table_iter) == (wide ? 32 : 16));
static_assert(offsetof(ZU_hash_table_iter, bucket) == sizeof(void*));
static_assert(offsetof(ZU_hash_table_iter, node) == (wide ? 16 : 8));
static_assert(offsetof(ZU_hash_table_iter, direction) == (wide ? 24 : 12));

constexpr int32_t forward = 0;
constexpr int32_t backward = 1;

// A link that is not a head is the first member of a node.
ZU_hash_table_node* node_of(list_link* at) {
    return reinterpret_cast<ZU_hash_table_node*>(at);
}

void* item_of(list_link* at) {
    return node_of(at)->item;
}

list_link* bucket_of(const ZU_hash_table* table, uint32_t hash) {
    return &table->buckets[hash % table->bucket_count];
}

const void* key_of(const ZU_hash_table* table, const void* item) {
    return static_cast<const uint8_t*>(item) + table->key_offset;
}

// The node with a key, or the one in front of which the key belongs. The search is inlined in every caller: its cost is
// mostly that of calls.
struct place {
    list_link* at;
    bool found;
};

[[gnu::always_inline]] inline place look_up(const ZU_hash_table* table, list_link* head, const void* key) {
    for (list_link* at = head->next; at != head; at = at->next) {
        __builtin_prefetch(at->next); // loads the next node while this item's key is loaded
        const int32_t order = table->compare(key, key_of(table, item_of(at)));
        if (order <= 0)
            return {at, order == 0};
    }
    return {head, false};
}

// The stored item with a key, or null.
[[gnu::always_inline]] inline list_link* find(const ZU_hash_table* table, const void* key) {
    const place found = look_up(table, bucket_of(table, table->hash(key)), key);
    return found.found ? found.at : nullptr;
}

void remove(ZU_hash_table* table, list_link* at) {
    at->previous->next = at->next;
    at->next->previous = at->previous;
    if (table->release)
        table->release(item_of(at));
    ZU_free(node_of(at));
    --table->count;
}

// Calls the function with every item, forward. It must not remove any.
template <class F>
uint32_t walk(const ZU_hash_table* table, F&& function) {
    if (table->count == 0)
        return 0;
    for (uint32_t i = 0; i < table->bucket_count; ++i) {
        list_link* const head = &table->buckets[i];
        for (list_link* at = head->next; at != head; at = at->next)
            function(item_of(at));
    }
    return table->count;
}

void start(ZU_hash_table* table, ZU_hash_table_iter* iter, int32_t direction) {
    iter->table = table;
    iter->direction = direction;
    iter->node = nullptr;
    if (table->count == 0)
        return;
    iter->bucket = direction == forward ? 0 : table->bucket_count - 1;
    iter->node = &table->buckets[iter->bucket];
    ZU_hash_table_next(iter);
}

void next_forward(ZU_hash_table_iter* iter) {
    const ZU_hash_table* table = iter->table;
    list_link* at = iter->node;
    iter->node = nullptr;
    for (; iter->bucket < table->bucket_count; ++iter->bucket) {
        list_link* const head = &table->buckets[iter->bucket];
        list_link* const next = at ? at->next : head->next;
        if (next != head) {
            iter->node = next;
            return;
        }
        at = nullptr; // later buckets start at their heads
    }
}

void next_backward(ZU_hash_table_iter* iter) {
    const ZU_hash_table* table = iter->table;
    list_link* at = iter->node;
    iter->node = nullptr;
    for (;; --iter->bucket) {
        list_link* const head = &table->buckets[iter->bucket];
        list_link* const previous = at ? at->previous : head->previous;
        if (previous != head) {
            iter->node = previous;
            return;
        }
        if (iter->bucket == 0)
            return;
        at = nullptr;
    }
}

} // namespace

void ZU_hash_table_init(ZU_hash_table* table, uint32_t bucket_count, uint32_t key_offset, ZU_hash_fn hash,
                        ZU_compare_fn compare, ZU_free_fn release) {
    *table = {};
    table->bucket_count = bucket_count;
    table->key_offset = key_offset;
    ZU_hash_table_reset_callback(table, hash, compare, release);
    table->buckets = zu::allocate<list_link>(bucket_count);
    for (uint32_t i = 0; i < bucket_count; ++i)
        table->buckets[i] = {&table->buckets[i], &table->buckets[i]};
}

void ZU_hash_table_reset_callback(ZU_hash_table* table, ZU_hash_fn hash, ZU_compare_fn compare,
                                  ZU_free_fn release) {
    table->hash = hash;
    table->compare = compare;
    table->release = release;
}

uint32_t ZU_hash_table_count(const ZU_hash_table* table) {
    return table->count;
}

uint32_t ZU_hash_table_table_size(const ZU_hash_table* table) {
    return table->bucket_count;
}

int32_t ZU_hash_table_insert(ZU_hash_table* table, void* item) {
    const void* const key = key_of(table, item);
    const place place = look_up(table, bucket_of(table, table->hash(key)), key);
    if (place.found)
        return -1;
    auto* const added = zu::allocate<ZU_hash_table_node>();
    *added = {{place.at, place.at->previous}, item};
    place.at->previous->next = &added->link;
    place.at->previous = &added->link;
    ++table->count;
    return 0;
}

int32_t ZU_hash_table_find(const ZU_hash_table* table, const void* key, void** item) {
    list_link* const at = find(table, key);
    if (!at)
        return -1;
    if (item)
        *item = item_of(at);
    return 0;
}

int32_t ZU_hash_table_delete(ZU_hash_table* table, const void* key) {
    list_link* const at = find(table, key);
    if (!at)
        return -1;
    remove(table, at);
    return 0;
}

uint32_t ZU_hash_table_clear(ZU_hash_table* table) {
    const uint32_t count = table->count;
    for (uint32_t i = 0; i < table->bucket_count && table->count != 0; ++i) {
        list_link* const head = &table->buckets[i];
        while (head->next != head)
            remove(table, head->next);
    }
    return count;
}

void ZU_hash_table_destroy(ZU_hash_table* table) {
    if (!table)
        return;
    ZU_hash_table_clear(table);
    ZU_free(table->buckets);
    *table = {};
}

uint32_t ZU_hash_table_enumerate(const ZU_hash_table* table, ZU_enumerate_fn callback) {
    return walk(table, [callback](void* item) { callback(item); });
}

uint32_t ZU_hash_table_enumerate2(const ZU_hash_table* table, ZU_enumerate2_fn callback, void* context) {
    return walk(table, [callback, context](void* item) { callback(item, context); });
}

void ZU_hash_table_begin(ZU_hash_table* table, ZU_hash_table_iter* iter) {
    start(table, iter, forward);
}

void ZU_hash_table_rbegin(ZU_hash_table* table, ZU_hash_table_iter* iter) {
    start(table, iter, backward);
}

void ZU_hash_table_next(ZU_hash_table_iter* iter) {
    if (iter->direction == forward)
        next_forward(iter);
    else
        next_backward(iter);
}

ZU_bool ZU_hash_table_end(const ZU_hash_table_iter* iter) {
    return iter->node == nullptr;
}

void* ZU_hash_table_get_at(const ZU_hash_table_iter* iter) {
    return item_of(iter->node);
}

void ZU_hash_table_delete_at(ZU_hash_table_iter* iter) {
    list_link* const at = iter->node;
    ZU_hash_table_next(iter);
    remove(iter->table, at);
}
