// Threads of a test.
#pragma once

#include <cstdint>
#include <functional>
#include <thread>
#include <vector>

namespace zu_test {

// Threads that are joined at the end of the scope.
class crew {
public:
    void add(std::function<void()> body) { threads_.emplace_back(std::move(body)); }
    void join() { threads_.clear(); }

private:
    std::vector<std::jthread> threads_;
};

// Threads that each call a waiting function. The constructor returns when all of them are asleep in it, in the order
// of their numbers.
class sleeping_crew {
public:
    sleeping_crew(int count, std::function<uint32_t(int)> wait);
    std::vector<uint32_t> results(); // of the waits, when all are over

private:
    std::vector<uint32_t> results_;
    crew threads_;
};

// Returns when the thread of this process with that identifier is asleep.
void wait_until_asleep(uint32_t thread_id);

} // namespace zu_test
