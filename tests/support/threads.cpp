#include "support/threads.h"

#include <sched.h>
#include <unistd.h>

#include <atomic>
#include <fstream>
#include <string>

namespace zu_test {

void crew::join() {
    for (std::thread& one : threads_)
        one.join();
    threads_.clear();
}

void wait_until_asleep(int thread_id) {
    const std::string name = "/proc/self/task/" + std::to_string(thread_id) + "/stat";
    // Asleep several times in a row: not just in passing, at a lock on the way.
    for (int seen = 0; seen < 5;) {
        std::string line;
        std::getline(std::ifstream(name), line);
        const size_t state = line.rfind(')') + 2;
        seen = state < line.size() && line[state] == 'S' ? seen + 1 : 0;
        usleep(200);
    }
}

sleeping_crew::sleeping_crew(int count, std::function<uint32_t(int)> wait)
    : results_(static_cast<size_t>(count), 0xFFFFFFFF) {
    for (int i = 0; i < count; ++i) {
        std::atomic<int> thread_id{0};
        threads_.add([this, i, wait, &thread_id] {
            thread_id = gettid();
            results_[static_cast<size_t>(i)] = wait(i);
        });
        while (thread_id == 0)
            sched_yield();
        wait_until_asleep(thread_id);
    }
}

std::vector<uint32_t> sleeping_crew::results() {
    threads_.join();
    return results_;
}

} // namespace zu_test
