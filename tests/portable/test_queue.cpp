// The bounded queue: order, bounds, time-outs, and every value exactly once between many threads.
#include "support/portable.h"

namespace {

void* value(uintptr_t number) {
    return reinterpret_cast<void*>(number);
}

TEST(queue, is_first_in_first_out_within_its_bounds) {
    for (int32_t size : {0, INT32_MIN})
        EXPECT_EQ(code_of(ZU_queue_create(size)), codes::invalid_parameter) << size;
    ZU_queue* queue = ZU_queue_create(2);
    EXPECT_EQ(ZU_queue_max_size(queue), 2);
    for (uint32_t timeout_ms : {0u, 2u}) {
        ZU_bool timed_out = 77;
        void* out = value(1);
        SetLastError(4711);
        EXPECT_FALSE(ZU_queue_pop(queue, &out, timeout_ms, &timed_out));
        EXPECT_EQ(out, nullptr);
        EXPECT_EQ(timed_out, 1);
        for (const uintptr_t number : {1, 0, 3}) { // null is a value like any other
            EXPECT_EQ(ZU_queue_push(queue, value(number), timeout_ms, &timed_out), number != 3);
            EXPECT_EQ(timed_out, number == 3);
        }
        EXPECT_FALSE(ZU_queue_push(queue, value(3), timeout_ms, nullptr));
        EXPECT_EQ(ZU_queue_size(queue), 2);
        EXPECT_EQ(GetLastError(), 4711u) << "time-outs leave the code alone";
        for (const uintptr_t number : {1, 0}) {
            out = value(9);
            EXPECT_TRUE(ZU_queue_pop(queue, &out, timeout_ms, &timed_out));
            EXPECT_EQ(out, value(number));
            EXPECT_EQ(timed_out, 0);
        }
        EXPECT_EQ(ZU_queue_size(queue), 0);
    }
    ZU_queue_push(queue, value(1), 0, nullptr);
    ZU_queue_destroy(queue); // with a value in it, which is not the queue's
    ZU_queue_destroy(nullptr);
}

TEST(queue, serves_those_who_wait) {
    ZU_queue* queue = ZU_queue_create(1);
    void* out = nullptr;
    sleeping_crew consumers(2, [&](int) {
        void* popped = nullptr;
        ZU_queue_pop(queue, &popped, ZU_WAIT_INFINITE, nullptr);
        return static_cast<uint32_t>(reinterpret_cast<uintptr_t>(popped));
    });
    EXPECT_TRUE(ZU_queue_push(queue, value(1), 0, nullptr));
    EXPECT_FALSE(ZU_queue_pop(queue, &out, 0, nullptr)) << "it belongs to the one that waits";
    EXPECT_TRUE(ZU_queue_push(queue, value(2), ZU_WAIT_INFINITE, nullptr));
    EXPECT_EQ(consumers.results(), (std::vector<uint32_t>{1, 2}));
    ZU_queue_destroy(queue);
}

TEST(queue, many_producers_and_consumers) {
    constexpr uintptr_t threads = 8;
    const uintptr_t per_producer = built_with_sanitizer ? 2000 : 6000; // a sanitizer is slow
    for (const int32_t size : {3, 1000}) { // most threads have to wait, or few of them
        ZU_queue* queue = ZU_queue_create(size);
        std::atomic<uintptr_t> left{threads * per_producer};
        std::atomic<uint64_t> sum{0};
        crew crew;
        for (uintptr_t number = 0; number < threads; ++number) {
            crew.add([&, number] {
                std::minstd_rand random(static_cast<unsigned>(number) + 1);
                for (uintptr_t n = 1; n <= per_producer;) {
                    ZU_bool timed_out = 77;
                    const bool stored =
                        ZU_queue_push(queue, value(number << 16 | n), random() % 3, &timed_out);
                    EXPECT_EQ(timed_out, !stored);
                    n += stored;
                    if (random() % 10 == 0)
                        ZU_sleep(1); // so that some waits run out at the moment of a push
                }
            });
            crew.add([&, number, size] {
                std::minstd_rand random(static_cast<unsigned>(number) + 100);
                uintptr_t latest[threads] = {};
                while (left > 0) {
                    void* out;
                    ZU_bool timed_out;
                    if (!ZU_queue_pop(queue, &out, random() % 3, &timed_out)) {
                        EXPECT_EQ(std::pair(timed_out, out), std::pair(ZU_bool{1}, value(0)));
                        continue;
                    }
                    const uintptr_t from = reinterpret_cast<uintptr_t>(out) >> 16;
                    const uintptr_t n = reinterpret_cast<uintptr_t>(out) & 0xFFFF;
                    EXPECT_GT(n, std::exchange(latest[from], n));
                    sum += n;
                    --left;
                    EXPECT_LE(static_cast<uint32_t>(ZU_queue_size(queue)), static_cast<uint32_t>(size));
                }
            });
        }
        crew.join();
        EXPECT_EQ(sum.load(), threads * (per_producer * (per_producer + 1) / 2));
        // All places are free again, and no more than there were.
        for (int32_t i = 0; i <= size; ++i)
            EXPECT_EQ(ZU_queue_push(queue, value(1), 0, nullptr), i < size);
        ZU_queue_destroy(queue);
    }
}

} // namespace
