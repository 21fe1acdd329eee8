// Hash table: against a map in its order, with hashes that collide and items removed in the midst of a walk.
#include "support/portable.h"

namespace {

struct item {
    uint64_t before_key;
    int32_t key;
};

std::vector<int32_t> released;

int32_t key_at(const void* key) {
    return *static_cast<const int32_t*>(key);
}

uint32_t modulo_3(const void* key) {
    return static_cast<uint32_t>(key_at(key)) % 3;
}

int32_t ascending(const void* a, const void* b) {
    return key_at(a) < key_at(b) ? -7 : key_at(a) > key_at(b) ? 1 : 0;
}

void release(void* stored) {
    released.push_back(static_cast<item*>(stored)->key);
    delete static_cast<item*>(stored);
}

struct table_and_model {
    using place = std::pair<uint32_t, int32_t>; // bucket and key

    table_and_model(uint32_t buckets, ZU_hash_fn hash) {
        ZU_hash_table_init(&table, buckets, offsetof(item, key), hash, ascending, release);
        released.clear();
    }
    ~table_and_model() { ZU_hash_table_destroy(&table); }

    place place_of(int32_t key) const { return {table.hash(&key) % ZU_hash_table_table_size(&table), key}; }

    void insert(int32_t key) {
        auto* const added = new item{~uint64_t{0}, key};
        const bool is_new = model.try_emplace(place_of(key), added).second;
        ASSERT_EQ(ZU_hash_table_insert(&table, added), is_new ? 0 : -1) << key;
        if (!is_new)
            delete added; // the caller's still
    }

    void check_and_forget_released(const std::vector<int32_t>& expected) {
        ASSERT_EQ(released, expected);
        released.clear();
        for (const int32_t key : expected)
            model.erase(place_of(key));
    }

    // Walks either way and removes what the bits of a pattern say; every item is seen once, in the model's order.
    void walk(bool backward, uint32_t pattern) {
        std::vector<item*> order, enumerated;
        for (const auto& [where, stored] : model)
            order.push_back(stored);
        const auto collect = [](void* stored, void* context) -> int32_t {
            static_cast<std::vector<item*>*>(context)->push_back(static_cast<item*>(stored));
            return -1;
        };
        ASSERT_EQ(ZU_hash_table_enumerate2(&table, collect, &enumerated), model.size());
        ASSERT_EQ(enumerated, order);
        ZU_hash_table_iter at;
        backward ? ZU_hash_table_rbegin(&table, &at) : ZU_hash_table_begin(&table, &at);
        if (backward)
            std::reverse(order.begin(), order.end());
        for (const item* expected : order) {
            ASSERT_FALSE(ZU_hash_table_end(&at));
            ASSERT_EQ(ZU_hash_table_get_at(&at), expected);
            const int32_t key = expected->key;
            if (pattern >> (static_cast<uint32_t>(key) % 32) & 1) {
                ZU_hash_table_delete_at(&at);
                check_and_forget_released({key});
            } else {
                ZU_hash_table_next(&at);
            }
        }
        ASSERT_TRUE(ZU_hash_table_end(&at));
        ASSERT_EQ(ZU_hash_table_count(&table), model.size());
    }

    ZU_hash_table table;
    std::map<place, item*> model; // in the order of a forward walk
};

TEST(hash_table, random_calls_against_a_model) {
    const std::pair<uint32_t, ZU_hash_fn> shapes[] = {
        {1000, [](const void* key) { return static_cast<uint32_t>(key_at(key)) * 2654435761u; }},
        {64, modulo_3},
        {7, [](const void*) { return 0xFFFFFFFFu; }}};
    for (const auto& [buckets, hash] : shapes) {
        SCOPED_TRACE(buckets);
        table_and_model both(buckets, hash);
        std::mt19937 random(buckets);
        for (int round = 0; round < 20000 && !testing::Test::HasFatalFailure(); ++round) {
            const int32_t key = static_cast<int32_t>(random() % 301) - 150;
            void* found = nullptr;
            const auto at = both.model.find(both.place_of(key));
            const bool present = at != both.model.end();
            ASSERT_EQ(ZU_hash_table_find(&both.table, &key, &found), present ? 0 : -1) << key;
            ASSERT_EQ(found, present ? at->second : nullptr) << key;
            if (round % 100 == 0) {
                both.walk(random() % 2, random() & random());
            } else if (random() % 2 == 0) {
                both.insert(key);
            } else { // often with the key that lies in the item
                const int32_t* wanted = present && random() % 2 ? &at->second->key : &key;
                ASSERT_EQ(ZU_hash_table_delete(&both.table, wanted), present ? 0 : -1);
                both.check_and_forget_released(std::vector<int32_t>(present, key));
            }
        }
        both.walk(false, ~0u); // removing all in one walk
    }
}

TEST(hash_table, empty_and_destroyed_tables) {
    table_and_model both(3, modulo_3);
    ZU_hash_table& table = both.table;
    for (int round = 0; round < 2; ++round) {
        both.walk(round == 0, 0);
        EXPECT_EQ(ZU_hash_table_enumerate(&table, [](void*) -> int32_t { std::abort(); }), 0u);
        EXPECT_EQ(ZU_hash_table_clear(&table), 0u);
        for (int32_t key : {4, 3, 5, 0, 7, 7})
            both.insert(key);
        EXPECT_EQ(ZU_hash_table_clear(&table), 5u);
        both.check_and_forget_released({0, 3, 4, 7, 5}); // in the order of a walk
    }
    static ZU_hash_table* const changed = &table;
    static item last{0, 5}, first{0, 3};
    ZU_hash_table_insert(&table, &last);
    table.release = [](void* stored) { // against its contract, stores an item in a bucket that is done
        if (stored == &last)
            ZU_hash_table_insert(changed, &first);
    };
    EXPECT_EQ(ZU_hash_table_clear(&table), 1u) << "which ends with the last bucket";
    ZU_hash_table_destroy(&table);
    ZU_hash_table_destroy(nullptr);
    ZU_hash_table_init(&table, 1, offsetof(item, key), modulo_3, ascending, nullptr);
    item on_the_stack{0, 1};
    EXPECT_EQ(ZU_hash_table_insert(&table, &on_the_stack), 0);
    const auto tens = [](const void* a, const void* b) -> int32_t { return key_at(a) / 10 - key_at(b) / 10; };
    ZU_hash_table_reset_callback(&table, modulo_3, tens, nullptr);
    for (const int32_t key : {5, 10})
        EXPECT_EQ(ZU_hash_table_find(&table, &key, nullptr), key == 5 ? 0 : -1) << "by the new callback";
}

} // namespace
