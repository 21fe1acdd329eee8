// The bounded queue beside a deque with a mutex and two condition variables.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <thread>
#include <vector>

#include "zu/zu.h"

namespace {

constexpr int usual_capacity = 1024;
constexpr int values_per_producer = 300000;

class queue_zu {
public:
    explicit queue_zu(int capacity = usual_capacity) : queue_(ZU_queue_create(capacity)) {}
    ~queue_zu() { ZU_queue_destroy(queue_); }
    void push(void* value) { ZU_queue_push(queue_, value, ZU_WAIT_INFINITE, nullptr); }
    void* pop() {
        void* value;
        ZU_queue_pop(queue_, &value, ZU_WAIT_INFINITE, nullptr);
        return value;
    }

private:
    ZU_queue* queue_;
};

class queue_deque {
public:
    explicit queue_deque(int capacity = usual_capacity) : capacity_(static_cast<size_t>(capacity)) {}
    void push(void* value) {
        {
            std::unique_lock<std::mutex> lock(mutex_);
            not_full_.wait(lock, [this] { return values_.size() < capacity_; });
            values_.push_back(value);
        }
        not_empty_.notify_one();
    }
    void* pop() {
        void* value;
        {
            std::unique_lock<std::mutex> lock(mutex_);
            not_empty_.wait(lock, [this] { return !values_.empty(); });
            value = values_.front();
            values_.pop_front();
        }
        not_full_.notify_one();
        return value;
    }

private:
    std::mutex mutex_;
    std::condition_variable not_full_, not_empty_;
    std::deque<void*> values_;
    const size_t capacity_;
};

// The best of many runs counts: a busy machine adds time that is no property of the queue.
void pairs_of_threads(benchmark::internal::Benchmark* row) {
    row->Arg(1)->Arg(2)->Arg(8)->UseRealTime()->Unit(benchmark::kMillisecond)->Iterations(1)->Repetitions(9);
}

template <class Queue>
void hand_over(benchmark::State& state) {
    const int pairs = static_cast<int>(state.range(0));
    for (auto _ : state) {
        Queue queue;
        std::vector<std::thread> threads;
        for (int i = 0; i < pairs; ++i) {
            threads.emplace_back([&] {
                for (int n = 0; n < values_per_producer; ++n)
                    queue.push(&queue);
            });
            threads.emplace_back([&] {
                for (int n = 0; n < values_per_producer; ++n)
                    benchmark::DoNotOptimize(queue.pop());
            });
        }
        for (std::thread& one : threads)
            one.join();
    }
    state.SetItemsProcessed(state.iterations() * pairs * values_per_producer);
}
BENCHMARK(hand_over<queue_zu>)->Apply(pairs_of_threads);
BENCHMARK(hand_over<queue_deque>)->Apply(pairs_of_threads);

// Nanoseconds for a hand-over before, during and after a second in which other threads keep every processor busy. A
// queue that has learnt that spinning does not pay should find out that it does again.
template <class Queue>
void busy_second(benchmark::State& state) {
    using clock = std::chrono::steady_clock;
    const int capacity = static_cast<int>(state.range(0)), pairs = static_cast<int>(state.range(1));
    for (auto _ : state) {
        Queue queue(capacity);
        std::atomic<int64_t> handed_over{0};
        std::atomic<bool> over{false}, is_busy{false};
        std::vector<std::thread> threads;
        for (int i = 0; i < pairs; ++i) {
            threads.emplace_back([&] {
                while (!over)
                    queue.push(&queue);
                queue.push(nullptr);
            });
            threads.emplace_back([&] {
                while (queue.pop())
                    handed_over.fetch_add(1, std::memory_order_relaxed);
            });
        }
        for (unsigned i = 0; i < 2 * std::thread::hardware_concurrency(); ++i) {
            threads.emplace_back([&] {
                while (!over) {
                    if (!is_busy)
                        std::this_thread::sleep_for(std::chrono::milliseconds(1));
                }
            });
        }
        for (const char* phase : {"before", "busy", "after"}) {
            is_busy = phase[1] == 'u';
            const int64_t first = handed_over;
            const auto start = clock::now();
            std::this_thread::sleep_for(std::chrono::seconds(1));
            const std::chrono::duration<double, std::nano> passed = clock::now() - start;
            state.counters[phase] =
                passed.count() / static_cast<double>(std::max<int64_t>(handed_over - first, 1));
        }
        over = true;
        for (std::thread& one : threads)
            one.join();
    }
}
BENCHMARK(busy_second<queue_zu>)->Args({16, 1})->Args({1, 2})->Iterations(1)->Repetitions(3)->UseRealTime();
BENCHMARK(busy_second<queue_deque>)
    ->Args({16, 1})
    ->Args({1, 2})
    ->Iterations(1)
    ->Repetitions(3)
    ->UseRealTime();

template <class Queue>
void push_and_pop(benchmark::State& state) {
    Queue queue;
    for (auto _ : state) {
        queue.push(&queue);
        benchmark::DoNotOptimize(queue.pop());
    }
}
BENCHMARK(push_and_pop<queue_zu>);
BENCHMARK(push_and_pop<queue_deque>);

} // namespace
