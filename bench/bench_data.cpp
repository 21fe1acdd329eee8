// Digest, encodings, hash table and array.
#include <openssl/evp.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <random>
#include <string>
#include <unordered_map>
#include <vector>

#include <benchmark/benchmark.h>

#include "zu/zu.h"

namespace {

constexpr uint32_t mebibyte = 1u << 20;

std::vector<uint8_t> random_bytes(uint32_t count) {
    std::mt19937 random(1);
    std::vector<uint8_t> bytes(count);
    std::generate(bytes.begin(), bytes.end(), [&] { return static_cast<uint8_t>(random()); });
    return bytes;
}

void count_bytes(benchmark::State& state, size_t bytes) {
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(bytes));
}

// ---- Digest ----

void md5(benchmark::State& state) {
    const auto bytes = random_bytes(static_cast<uint32_t>(state.range(0)));
    uint8_t digest[16];
    for (auto _ : state) {
        ZU_md5_hash(bytes.data(), static_cast<uint32_t>(bytes.size()), digest);
        benchmark::DoNotOptimize(digest);
    }
    count_bytes(state, bytes.size());
}

void md5_openssl(benchmark::State& state) {
    const auto bytes = random_bytes(static_cast<uint32_t>(state.range(0)));
    EVP_MD* const algorithm = EVP_MD_fetch(nullptr, "MD5", nullptr);
    EVP_MD_CTX* const context = EVP_MD_CTX_new();
    uint8_t digest[16];
    for (auto _ : state) {
        EVP_DigestInit_ex(context, algorithm, nullptr);
        EVP_DigestUpdate(context, bytes.data(), bytes.size());
        EVP_DigestFinal_ex(context, digest, nullptr);
        benchmark::DoNotOptimize(digest);
    }
    EVP_MD_CTX_free(context);
    EVP_MD_free(algorithm);
    count_bytes(state, bytes.size());
}

BENCHMARK(md5)->Arg(64)->Arg(mebibyte);
BENCHMARK(md5_openssl)->Arg(64)->Arg(mebibyte);

// ---- Encodings, in bytes of data for both ways ----

using encode_fn = uint32_t (*)(const uint8_t*, uint32_t, ZU_wchar*, uint32_t*);
using decode_fn = uint32_t (*)(const ZU_wchar*, uint32_t, uint8_t*, uint32_t*);

void encode(benchmark::State& state, encode_fn function) {
    const auto bytes = random_bytes(mebibyte);
    std::u16string text(2 * mebibyte, u'\0');
    for (auto _ : state) {
        uint32_t size = 2 * mebibyte;
        if (function(bytes.data(), mebibyte, text.data(), &size) != 0)
            state.SkipWithError("encoding failed");
        benchmark::ClobberMemory();
    }
    count_bytes(state, mebibyte);
}

void decode(benchmark::State& state, encode_fn encode_function, decode_fn function) {
    auto bytes = random_bytes(mebibyte);
    std::u16string text(2 * mebibyte, u'\0');
    uint32_t characters = 2 * mebibyte;
    encode_function(bytes.data(), mebibyte, text.data(), &characters);
    for (auto _ : state) {
        uint32_t size = mebibyte;
        if (function(text.data(), characters, bytes.data(), &size) != 0)
            state.SkipWithError("decoding failed");
        benchmark::ClobberMemory();
    }
    count_bytes(state, mebibyte);
}

uint32_t hex_encode(const uint8_t* bytes, uint32_t count, ZU_wchar* text, uint32_t* size) {
    ZU_bin2hex(bytes, count, text);
    *size = 2 * count;
    return 0;
}

uint32_t hex_decode(const ZU_wchar* text, uint32_t count, uint8_t* bytes, uint32_t*) {
    return ZU_hex2bin(text, count, bytes);
}

uint32_t base64_general(const uint8_t* bytes, uint32_t count, ZU_wchar* text, uint32_t* size) {
    return ZU_bin2basex(ZU_W("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/"), 6, bytes,
                        count, text, size);
}

BENCHMARK_CAPTURE(encode, base64, ZU_bin2base64);
BENCHMARK_CAPTURE(encode, base64_by_the_general_engine, base64_general);
BENCHMARK_CAPTURE(encode, base32, ZU_bin2base32);
BENCHMARK_CAPTURE(encode, hex, hex_encode);
BENCHMARK_CAPTURE(decode, base64, ZU_bin2base64, ZU_base642bin);
BENCHMARK_CAPTURE(decode, base32, ZU_bin2base32, ZU_base322bin);
BENCHMARK_CAPTURE(decode, hex, hex_encode, hex_decode);

void encode_openssl(benchmark::State& state) {
    const auto bytes = random_bytes(mebibyte);
    std::vector<uint8_t> text(2 * mebibyte);
    for (auto _ : state)
        benchmark::DoNotOptimize(EVP_EncodeBlock(text.data(), bytes.data(), mebibyte));
    count_bytes(state, mebibyte);
}

void decode_openssl(benchmark::State& state) {
    auto bytes = random_bytes(2 * mebibyte);
    std::vector<uint8_t> text(2 * mebibyte);
    const int characters = EVP_EncodeBlock(text.data(), bytes.data(), mebibyte);
    for (auto _ : state)
        benchmark::DoNotOptimize(EVP_DecodeBlock(bytes.data(), text.data(), characters));
    count_bytes(state, mebibyte);
}

BENCHMARK(encode_openssl)->Name("encode/base64_openssl");
BENCHMARK(decode_openssl)->Name("decode/base64_openssl");

// ---- Hash table at a load of 1 ----
//
// The table finds items that live elsewhere; so does the standard map of pointers. The map of values holds its items
// itself, which is one memory access less. Keys are numbers, or texts of some length as names of tasks have it.

struct item {
    uint32_t key;
    uint64_t value;
};

uint32_t mix(uint32_t key) {
    return key * 2654435761u;
}

struct mixer {
    size_t operator()(uint32_t key) const noexcept { return mix(key); }
};

uint32_t hash_number(const void* key) {
    return mix(*static_cast<const uint32_t*>(key));
}

int32_t compare_numbers(const void* key, const void* stored) {
    const uint32_t a = *static_cast<const uint32_t*>(key), b = *static_cast<const uint32_t*>(stored);
    return a < b ? -1 : int32_t{a > b};
}

struct named_item {
    std::string name;
    uint64_t value;
};

uint32_t hash_name(const void* key) {
    return static_cast<uint32_t>(std::hash<std::string>{}(*static_cast<const std::string*>(key)));
}

int32_t compare_names(const void* key, const void* stored) {
    return static_cast<const std::string*>(key)->compare(*static_cast<const std::string*>(stored));
}

std::vector<uint32_t> numbers(int64_t count) {
    std::mt19937 random(2);
    std::vector<uint32_t> keys(static_cast<size_t>(count));
    std::generate(keys.begin(), keys.end(), [&] { return static_cast<uint32_t>(random()); });
    return keys;
}

std::vector<std::string> names(int64_t count) {
    std::vector<std::string> keys;
    for (uint32_t number : numbers(count))
        keys.push_back("/var/spool/tasks/" + std::to_string(number));
    return keys;
}

// Runs the finds in another order than that of the insertions.
template <class Key, class Find>
void find_all(benchmark::State& state, std::vector<Key> keys, Find&& find) {
    std::shuffle(keys.begin(), keys.end(), std::mt19937(3));
    for (auto _ : state) {
        for (const Key& key : keys)
            benchmark::DoNotOptimize(uint64_t{find(key)});
    }
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * keys.size()));
}

template <class Item, class Key>
void find_in_table(benchmark::State& state, const std::vector<Key>& keys, ZU_hash_fn hash,
                   ZU_compare_fn compare) {
    ZU_hash_table table;
    ZU_hash_table_init(&table, static_cast<uint32_t>(keys.size()), 0, hash, compare,
                       [](void* stored) { delete static_cast<Item*>(stored); });
    for (const Key& key : keys) {
        auto item = std::make_unique<Item>(Item{key, 1});
        if (ZU_hash_table_insert(&table, item.get()) == 0)
            item.release();
    }
    find_all(state, keys, [&table](const Key& key) {
        void* found = nullptr;
        ZU_hash_table_find(&table, &key, &found);
        return static_cast<Item*>(found)->value;
    });
    ZU_hash_table_destroy(&table);
}

template <class Item, class Hash, class Key>
void find_in_map_of_pointers(benchmark::State& state, const std::vector<Key>& keys) {
    std::unordered_map<Key, std::unique_ptr<Item>, Hash> map(keys.size());
    for (const Key& key : keys)
        map.emplace(key, std::make_unique<Item>(Item{key, 1}));
    find_all(state, keys, [&map](const Key& key) { return map.find(key)->second->value; });
}

template <class Item, class Hash, class Key>
void find_in_map_of_values(benchmark::State& state, const std::vector<Key>& keys) {
    std::unordered_map<Key, Item, Hash> map(keys.size());
    for (const Key& key : keys)
        map.emplace(key, Item{key, 1});
    find_all(state, keys, [&map](const Key& key) { return map.find(key)->second.value; });
}

void find_number_table(benchmark::State& state) {
    find_in_table<item>(state, numbers(state.range(0)), hash_number, compare_numbers);
}
void find_number_map_of_pointers(benchmark::State& state) {
    find_in_map_of_pointers<item, mixer>(state, numbers(state.range(0)));
}
void find_number_map_of_values(benchmark::State& state) {
    find_in_map_of_values<item, mixer>(state, numbers(state.range(0)));
}
void find_name_table(benchmark::State& state) {
    find_in_table<named_item>(state, names(state.range(0)), hash_name, compare_names);
}
void find_name_map_of_pointers(benchmark::State& state) {
    find_in_map_of_pointers<named_item, std::hash<std::string>>(state, names(state.range(0)));
}
void find_name_map_of_values(benchmark::State& state) {
    find_in_map_of_values<named_item, std::hash<std::string>>(state, names(state.range(0)));
}

void sizes(benchmark::internal::Benchmark* row) {
    row->Arg(1000)->Arg(30000)->Arg(1000000);
}

BENCHMARK(find_number_table)->Apply(sizes);
BENCHMARK(find_number_map_of_pointers)->Apply(sizes);
BENCHMARK(find_number_map_of_values)->Apply(sizes);
BENCHMARK(find_name_table)->Apply(sizes);
BENCHMARK(find_name_map_of_pointers)->Apply(sizes);
BENCHMARK(find_name_map_of_values)->Apply(sizes);

// ---- Hash table: the described steps alone: heads that are pairs of links, a node for each item, and the two callbacks

class bare_table {
public:
    explicit bare_table(size_t size) : heads_(size) {
        for (link& head : heads_)
            head = {&head, &head};
    }
    ~bare_table() {
        for (link& head : heads_) {
            while (head.next != &head)
                remove(head.next);
        }
    }
    item* find(uint32_t key) {
        const place found = look_up(key);
        return found.is_hit ? item_of(found.at) : nullptr;
    }
    void insert(item* one) {
        const place found = look_up(one->key);
        if (found.is_hit)
            return;
        auto* const added = static_cast<node*>(std::malloc(sizeof(node)));
        *added = {{found.at, found.at->previous}, one};
        found.at->previous = added->links.previous->next = &added->links;
    }
    void remove(uint32_t key) {
        if (const place found = look_up(key); found.is_hit)
            remove(found.at);
    }

private:
    struct link {
        link *next, *previous;
    };
    struct node {
        link links;
        item* of;
    };
    struct place {
        link* at;
        bool is_hit;
    };

    static item* item_of(link* at) { return reinterpret_cast<node*>(at)->of; }
    static void remove(link* at) {
        at->previous->next = at->next;
        at->next->previous = at->previous;
        std::free(at);
    }
    place look_up(uint32_t key) {
        link* const head = &heads_[hash_(&key) % static_cast<uint32_t>(heads_.size())];
        for (link* at = head->next; at != head; at = at->next) {
            const int32_t order = compare_(&key, &item_of(at)->key);
            if (order <= 0)
                return {at, order == 0};
        }
        return {head, false};
    }

    std::vector<link> heads_;
    volatile ZU_hash_fn hash_ = hash_number; // volatile: they are called, as no compiler knows which they are
    volatile ZU_compare_fn compare_ = compare_numbers;
};

void find_number_bare(benchmark::State& state) {
    const auto keys = numbers(state.range(0));
    bare_table table(keys.size());
    std::vector<std::unique_ptr<item>> items; // made as the rows above make theirs: each next to its node
    for (uint32_t key : keys)
        table.insert(items.emplace_back(std::make_unique<item>(item{key, 1})).get());
    find_all(state, keys, [&table](uint32_t key) { return table.find(key)->value; });
}
BENCHMARK(find_number_bare)->Apply(sizes);

// ---- Hash table: keys that are not there, and items put in and taken out again, beside the map of values

void miss_table(benchmark::State& state) {
    const auto keys = numbers(state.range(0));
    std::vector<item> items;
    for (uint32_t key : keys)
        items.push_back({key, 1});
    ZU_hash_table table;
    ZU_hash_table_init(&table, static_cast<uint32_t>(keys.size()), 0, hash_number, compare_numbers, nullptr);
    for (item& one : items)
        ZU_hash_table_insert(&table, &one);
    find_all(state, keys, [&table](uint32_t key) {
        key ^= 0x5A5A5A5A;
        return ZU_hash_table_find(&table, &key, nullptr) == 0;
    });
    ZU_hash_table_destroy(&table);
}

void miss_map(benchmark::State& state) {
    const auto keys = numbers(state.range(0));
    std::unordered_map<uint32_t, item, mixer> map(keys.size());
    for (uint32_t key : keys)
        map.emplace(key, item{key, 1});
    find_all(state, keys, [&map](uint32_t key) { return map.count(key ^ 0x5A5A5A5A); });
}

void miss_bare(benchmark::State& state) {
    const auto keys = numbers(state.range(0));
    std::vector<item> items;
    for (uint32_t key : keys)
        items.push_back({key, 1});
    bare_table table(keys.size());
    for (item& one : items)
        table.insert(&one);
    find_all(state, keys, [&table](uint32_t key) { return table.find(key ^ 0x5A5A5A5A) == nullptr; });
}

// The times of one way alone: the other is paused.
template <class Insert, class Remove>
void insert_and_delete(benchmark::State& state, Insert&& insert, Remove&& remove, bool measures_insert) {
    auto keys = numbers(state.range(0));
    const auto shuffled = [keys]() mutable {
        std::shuffle(keys.begin(), keys.end(), std::mt19937(3));
        return keys;
    }();
    for (auto _ : state) {
        if (!measures_insert)
            state.PauseTiming();
        for (size_t i = 0; i < keys.size(); ++i)
            insert(i, keys[i]);
        measures_insert ? state.PauseTiming() : state.ResumeTiming();
        for (uint32_t key : shuffled)
            remove(key);
        if (measures_insert)
            state.ResumeTiming();
    }
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * keys.size()));
}

void change_table(benchmark::State& state, bool measures_insert) {
    std::vector<item> items(static_cast<size_t>(state.range(0)));
    ZU_hash_table table;
    ZU_hash_table_init(&table, static_cast<uint32_t>(items.size()), 0, hash_number, compare_numbers, nullptr);
    const auto insert = [&](size_t i, uint32_t key) {
        items[i] = {key, 1};
        ZU_hash_table_insert(&table, &items[i]);
    };
    insert_and_delete(
        state, insert, [&](uint32_t key) { ZU_hash_table_delete(&table, &key); }, measures_insert);
    ZU_hash_table_destroy(&table);
}

void change_map(benchmark::State& state, bool measures_insert) {
    std::unordered_map<uint32_t, item, mixer> map(static_cast<size_t>(state.range(0)));
    const auto insert = [&](size_t, uint32_t key) { map.emplace(key, item{key, 1}); };
    insert_and_delete(
        state, insert, [&](uint32_t key) { map.erase(key); }, measures_insert);
}

void change_bare(benchmark::State& state, bool measures_insert) {
    std::vector<item> items(static_cast<size_t>(state.range(0)));
    bare_table table(items.size());
    const auto insert = [&](size_t i, uint32_t key) {
        items[i] = {key, 1};
        table.insert(&items[i]);
    };
    insert_and_delete(
        state, insert, [&](uint32_t key) { table.remove(key); }, measures_insert);
}

BENCHMARK(miss_table)->Arg(1000000);
BENCHMARK(miss_bare)->Arg(1000000);
BENCHMARK(miss_map)->Arg(1000000);
BENCHMARK_CAPTURE(change_table, insert, true)->Arg(1000000);
BENCHMARK_CAPTURE(change_map, insert, true)->Arg(1000000);
BENCHMARK_CAPTURE(change_bare, insert, true)->Arg(1000000);
BENCHMARK_CAPTURE(change_table, delete, false)->Arg(1000000);
BENCHMARK_CAPTURE(change_bare, delete, false)->Arg(1000000);
BENCHMARK_CAPTURE(change_map, delete, false)->Arg(1000000);

// ---- A block of 64 bytes ----

void block_zu(benchmark::State& state) {
    for (auto _ : state) {
        void* block = ZU_malloc(64);
        benchmark::DoNotOptimize(block);
        ZU_free(block);
    }
}

void block_malloc(benchmark::State& state) {
    for (auto _ : state) {
        void* block = std::malloc(64);
        benchmark::DoNotOptimize(block);
        std::free(block);
    }
}

BENCHMARK(block_zu);
BENCHMARK(block_malloc);

// ---- Array: append items one by one ----

void append_array(benchmark::State& state) {
    for (auto _ : state) {
        ZU_DA array;
        ZU_DAInit(&array);
        for (int64_t i = 0; i < state.range(0); ++i)
            benchmark::DoNotOptimize(ZU_DANewItem(&array, sizeof(item)));
        ZU_DAFreeItems(&array);
    }
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * state.range(0));
}

void append_vector(benchmark::State& state) {
    for (auto _ : state) {
        std::vector<std::unique_ptr<item>> array;
        for (int64_t i = 0; i < state.range(0); ++i)
            benchmark::DoNotOptimize(array.emplace_back(std::make_unique<item>()).get());
    }
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * state.range(0));
}

// The described steps alone: four places more each time they are full, and a cleared block for each item.
void append_array_bare(benchmark::State& state) {
    for (auto _ : state) {
        void** places = nullptr;
        size_t count = 0;
        for (int64_t i = 0; i < state.range(0); ++i) {
            if (count % 4 == 0)
                places = static_cast<void**>(std::realloc(places, (count + 4) * sizeof(void*)));
            places[count++] = std::memset(std::malloc(sizeof(item)), 0, sizeof(item));
            benchmark::DoNotOptimize(places[count - 1]);
        }
        std::for_each(places, places + count, std::free);
        std::free(places);
    }
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * state.range(0));
}

BENCHMARK(append_array)->Arg(100)->Arg(100000);
BENCHMARK(append_array_bare)->Arg(100)->Arg(100000);
BENCHMARK(append_vector)->Arg(100)->Arg(100000);

} // namespace
