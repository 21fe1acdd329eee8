// Hash table: against a model of its order, with hashes that collide and items removed in the midst of a walk.
#include "support/test.h"

namespace {

struct item {
    uint64_t before_key;
    int32_t key;
    int32_t version;
};

std::vector<int32_t> released;

int32_t key_at(const void* key) {
    return *static_cast<const int32_t*>(key);
}

// Spread, all in few buckets, all in one, and beyond 31 bits.
uint32_t hash_spread(const void* key) {
    return static_cast<uint32_t>(key_at(key)) * 2654435761u;
}
uint32_t hash_few(const void* key) {
    return static_cast<uint32_t>(key_at(key)) % 3;
}
uint32_t hash_one(const void*) {
    return 0xFFFFFFFFu;
}

int32_t ascending(const void* a, const void* b) {
    return key_at(a) < key_at(b) ? -7 : key_at(a) > key_at(b) ? 1 : 0;
}

void release(void* stored) {
    released.push_back(static_cast<item*>(stored)->key);
    delete static_cast<item*>(stored);
}

class table_and_model {
public:
    table_and_model(uint32_t buckets, ZU_hash_fn hash) : buckets_(buckets), hash_(hash) {
        ZU_hash_table_init(&table, buckets, offsetof(item, key), hash, ascending, release);
        released.clear();
    }
    ~table_and_model() { ZU_hash_table_destroy(&table); }

    void insert(int32_t key) {
        auto added = std::make_unique<item>(item{~uint64_t{0}, key, ++version_});
        const int32_t expected = model.count(place(key)) ? -1 : 0;
        ASSERT_EQ(ZU_hash_table_insert(&table, added.get()), expected) << key;
        if (expected == 0)
            model[place(key)] = added.release();
    }

    void find(int32_t key) {
        void* found = nullptr;
        const auto at = model.find(place(key));
        ASSERT_EQ(ZU_hash_table_find(&table, &key, &found), at == model.end() ? -1 : 0) << key;
        ASSERT_EQ(found, at == model.end() ? nullptr : at->second) << key;
    }

    // Half of the time with a key that lies in the item that goes.
    void remove(int32_t key, bool by_own_key) {
        const auto at = model.find(place(key));
        const bool present = at != model.end();
        ASSERT_EQ(ZU_hash_table_delete(&table, present && by_own_key ? &at->second->key : &key),
                  present ? 0 : -1);
        if (present) {
            ASSERT_EQ(released, std::vector<int32_t>{key});
            model.erase(at);
        }
        released.clear();
    }

    // Walks either way and removes what the bits of a pattern say; every item is seen once, in the model's order.
    void walk(bool backward, uint32_t pattern) {
        std::vector<std::pair<std::pair<uint32_t, int32_t>, item*>> order(model.begin(), model.end());
        if (backward)
            order.assign(model.rbegin(), model.rend());
        ZU_hash_table_iter at;
        backward ? ZU_hash_table_rbegin(&table, &at) : ZU_hash_table_begin(&table, &at);
        for (const auto& [where, expected] : order) {
            ASSERT_FALSE(ZU_hash_table_end(&at));
            ASSERT_EQ(ZU_hash_table_get_at(&at), expected);
            if (pattern >> (static_cast<uint32_t>(where.second) % 32) & 1) {
                ZU_hash_table_delete_at(&at);
                ASSERT_EQ(released, std::vector<int32_t>{where.second});
                released.clear();
                model.erase(where);
            } else {
                ZU_hash_table_next(&at);
            }
        }
        ASSERT_TRUE(ZU_hash_table_end(&at));
        ASSERT_EQ(ZU_hash_table_count(&table), model.size());
    }

    void enumerate() {
        std::vector<item*> seen, expected;
        for (const auto& entry : model)
            expected.push_back(entry.second);
        const auto collect = [](void* stored, void* context) -> int32_t {
            static_cast<std::vector<item*>*>(context)->push_back(static_cast<item*>(stored));
            return -1;
        };
        ASSERT_EQ(ZU_hash_table_enumerate2(&table, collect, &seen), model.size());
        ASSERT_EQ(seen, expected);
    }

    ZU_hash_table table;
    std::map<std::pair<uint32_t, int32_t>, item*> model; // in the order of a forward walk

private:
    std::pair<uint32_t, int32_t> place(int32_t key) const { return {hash_(&key) % buckets_, key}; }

    uint32_t buckets_;
    ZU_hash_fn hash_;
    int32_t version_ = 0;
};

TEST(hash_table, random_calls_against_a_model) {
    const struct {
        uint32_t buckets;
        ZU_hash_fn hash;
    } shapes[] = {{1, hash_spread}, {64, hash_spread}, {1000, hash_spread}, {64, hash_few}, {7, hash_one}};
    for (const auto& shape : shapes) {
        SCOPED_TRACE(shape.buckets);
        table_and_model both(shape.buckets, shape.hash);
        std::mt19937 random(shape.buckets);
        for (int round = 0; round < 20000 && !testing::Test::HasFatalFailure(); ++round) {
            const int32_t key = static_cast<int32_t>(random() % 301) - 150;
            switch (random() % 100) {
            case 0: both.walk(random() % 2, random() & random()); break;
            case 1: both.enumerate(); break;
            default:
                switch (random() % 3) {
                case 0: both.insert(key); break;
                case 1: both.find(key); break;
                case 2: both.remove(key, random() % 2 == 0); break;
                }
            }
        }
        both.walk(false, ~0u);
        EXPECT_EQ(ZU_hash_table_count(&both.table), 0u) << "removing all in one walk";
    }
}

TEST(hash_table, empty_tables_clear_and_use_after_destroy) {
    table_and_model both(3, hash_few);
    ZU_hash_table& table = both.table;
    for (int round = 0; round < 2; ++round) {
        both.walk(false, 0);
        both.walk(true, 0);
        EXPECT_EQ(ZU_hash_table_enumerate(&table, [](void*) -> int32_t { std::abort(); }), 0u);
        EXPECT_EQ(ZU_hash_table_clear(&table), 0u);

        for (int32_t key : {4, 3, 5, 0, 7, 7})
            both.insert(key);
        EXPECT_EQ(released, std::vector<int32_t>()) << "a duplicate is the caller's still";
        EXPECT_EQ(ZU_hash_table_clear(&table), 5u);
        EXPECT_EQ(released, (std::vector<int32_t>{0, 3, 4, 7, 5})) << "in the order of a walk";
        EXPECT_EQ(ZU_hash_table_table_size(&table), 3u) << "the buckets stay";
        released.clear();
        both.model.clear();
    }
    ZU_hash_table_destroy(&table);
    EXPECT_TRUE(table.count == 0 && table.bucket_count == 0 && !table.buckets && table.key_offset == 0);
    EXPECT_TRUE(!table.hash && !table.compare && !table.release);
    ZU_hash_table_destroy(nullptr);
    ZU_hash_table_init(&table, 1, offsetof(item, key), hash_one, ascending, nullptr);
    item on_the_stack{0, 1, 0};
    EXPECT_EQ(ZU_hash_table_insert(&table, &on_the_stack), 0);
    EXPECT_EQ(ZU_hash_table_find(&table, &on_the_stack.key, nullptr), 0);
}

// What is remembered of the old hash must not decide anything.
TEST(hash_table, replaced_callbacks_find_what_is_in_the_bucket) {
    table_and_model both(1, hash_spread);
    for (int32_t key = 0; key < 10; ++key)
        both.insert(key);
    ZU_hash_table_reset_callback(&both.table, hash_few, ascending, release);
    for (int32_t key = -1; key <= 10; ++key)
        both.find(key);
    // Keys that are equal by the new callback, although their hashes never were.
    const auto found = [&both](int32_t key, ZU_compare_fn compare) {
        ZU_hash_table_reset_callback(&both.table, hash_spread, compare, nullptr);
        return ZU_hash_table_find(&both.table, &key, nullptr) == 0;
    };
    const auto tens = [](const void* a, const void* b) -> int32_t { return key_at(a) / 10 - key_at(b) / 10; };
    EXPECT_TRUE(found(5, tens));
    EXPECT_FALSE(found(10, tens));
    // By the opposite order 9 comes before the first item, 0, and the search ends there.
    EXPECT_FALSE(found(9, [](const void* a, const void* b) -> int32_t { return key_at(b) - key_at(a); }));
    ZU_hash_table_reset_callback(&both.table, hash_spread, ascending, release);
}

} // namespace
