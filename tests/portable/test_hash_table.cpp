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
    table_and_model(uint32_t buckets, ZU_hash_fn hash) {
        ZU_hash_table_init(&table, buckets, offsetof(item, key), hash, ascending, release);
        released.clear();
    }
    ~table_and_model() { ZU_hash_table_destroy(&table); }

    std::pair<uint32_t, int32_t> place_of(int32_t key) const {
        return {table.hash(&key) % ZU_hash_table_table_size(&table), key};
    }

    void forget(int32_t key) {
        expected.push_back(key);
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
        for (const item* each : order) {
            ASSERT_FALSE(ZU_hash_table_end(&at));
            ASSERT_EQ(ZU_hash_table_get_at(&at), each);
            if (pattern >> (static_cast<uint32_t>(each->key) % 32) & 1) {
                forget(each->key);
                ZU_hash_table_delete_at(&at);
            } else {
                ZU_hash_table_next(&at);
            }
        }
        ASSERT_TRUE(ZU_hash_table_end(&at));
    }

    ZU_hash_table table;
    std::map<std::pair<uint32_t, int32_t>, item*> model; // by bucket and key, as a forward walk goes
    std::vector<int32_t> expected;                       // to be released, in that order
};

TEST(hash_table, random_calls_against_a_model) {
    const std::pair<uint32_t, ZU_hash_fn> shapes[] = {
        {1000, [](const void* key) { return static_cast<uint32_t>(key_at(key)) * 2654435761u; }},
        {3, modulo_3},
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
            if (round % 5000 == 4998) {
                for (const bool again : {false, true}) { // all at once, and nothing
                    const size_t count = both.model.size();
                    for (const auto& [where, stored] : std::exchange(both.model, {}))
                        both.expected.push_back(where.second);
                    ASSERT_EQ(ZU_hash_table_clear(&both.table), count);
                    both.walk(again, 0);
                }
            } else if (round % 100 == 0) {
                both.walk(random() % 2, round % 5000 == 0 ? ~0u : random() & random());
            } else if (random() % 2 == 0) {
                auto* const added = new item{~uint64_t{0}, key};
                ASSERT_EQ(ZU_hash_table_insert(&both.table, added), present ? -1 : 0) << key;
                if (present)
                    delete added; // the caller's still
                else
                    both.model[both.place_of(key)] = added;
            } else { // often with the key that lies in the item
                const int32_t* wanted = present && random() % 2 ? &at->second->key : &key;
                if (present)
                    both.forget(key);
                ASSERT_EQ(ZU_hash_table_delete(&both.table, wanted), present ? 0 : -1);
            }
            ASSERT_EQ(std::exchange(released, {}), std::exchange(both.expected, {}));
            ASSERT_EQ(ZU_hash_table_count(&both.table), both.model.size());
        }
    }
}

TEST(hash_table, items_stored_by_a_release_and_other_callbacks) {
    static ZU_hash_table table;
    static item last{0, 5}, first{0, 3};
    ZU_hash_table_init(&table, 3, offsetof(item, key), modulo_3, ascending, [](void* stored) {
        if (stored == &last) // against its contract, stores an item in a bucket that is done
            ZU_hash_table_insert(&table, &first);
    });
    EXPECT_EQ(ZU_hash_table_enumerate(&table, [](void*) -> int32_t { std::abort(); }), 0u);
    ZU_hash_table_insert(&table, &last);
    EXPECT_EQ(ZU_hash_table_clear(&table), 1u) << "which ends with the last bucket";
    ZU_hash_table_destroy(&table);
    ZU_hash_table_destroy(nullptr);
    ZU_hash_table_init(&table, 1, offsetof(item, key), modulo_3, ascending, nullptr);
    EXPECT_EQ(ZU_hash_table_insert(&table, &first), 0);
    const auto tens = [](const void* a, const void* b) -> int32_t { return key_at(a) / 10 - key_at(b) / 10; };
    ZU_hash_table_reset_callback(&table, modulo_3, tens, nullptr);
    for (const int32_t key : {5, 10})
        EXPECT_EQ(ZU_hash_table_find(&table, &key, nullptr), key == 5 ? 0 : -1) << "by the new callback";
    ZU_hash_table_destroy(&table);
}

} // namespace
