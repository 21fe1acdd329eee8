// The bounded queue beside a deque with a mutex and two condition variables.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <thread>
#include <vector>

#include "zu/zu.h"

namespace {

constexpr int capacity = 1024;
constexpr int values_per_producer = 300000;

class queue_zu {
public:
    queue_zu() : queue_(ZU_queue_create(capacity)) {}
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
    void push(void* value) {
        {
            std::unique_lock<std::mutex> lock(mutex_);
            not_full_.wait(lock, [this] { return values_.size() < capacity; });
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
};

// Each row is run often, since what a busy machine adds is no property of the queue: the best run tells most.
void best_of_many(benchmark::internal::Benchmark* row) {
    row->Arg(1)
        ->Arg(2)
        ->UseRealTime()
        ->MeasureProcessCPUTime()
        ->Unit(benchmark::kMillisecond)
        ->Iterations(1)
        ->Repetitions(9);
    row->ReportAggregatesOnly()->ComputeStatistics(
        "best", [](const std::vector<double>& runs) { return *std::min_element(runs.begin(), runs.end()); });
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
BENCHMARK(hand_over<queue_zu>)->Apply(best_of_many);
BENCHMARK(hand_over<queue_deque>)->Apply(best_of_many);

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
