// Threads of a test.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <thread>
#include <vector>

#include "zu/zu.h"

namespace zu_test {

// Threads that are joined at the end of the scope.
class crew {
public:
    void add(std::function<void()> body) { threads_.emplace_back(std::move(body)); }
    void join() { threads_.clear(); }

private:
    std::vector<std::jthread> threads_;
};

// Returns when the thread of this process with that identifier is asleep.
void wait_until_asleep(uint32_t thread_id);

// Threads that each call a waiting function. The constructor returns when all of them are asleep in it, in the order
// of their numbers.
class sleeping_crew {
public:
    sleeping_crew(int count, const std::function<uint32_t(int)>& wait)
        : results_(static_cast<size_t>(count), 0xFFFFFFFF) {
        for (int i = 0; i < count; ++i) {
            std::atomic<uint32_t> thread_id{0};
            threads_.add([this, i, wait, &thread_id] {
                thread_id = ZU_get_current_thread_id();
                results_[static_cast<size_t>(i)] = wait(i);
            });
            while (thread_id == 0)
                std::this_thread::yield();
            wait_until_asleep(thread_id);
        }
    }
    std::vector<uint32_t> results() { // of the waits, when all are over
        threads_.join();
        return results_;
    }

private:
    std::vector<uint32_t> results_;
    crew threads_;
};

} // namespace zu_test
