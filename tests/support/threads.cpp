#include "support/threads.h"

#include <atomic>

#include "zu/zu.h"

namespace zu_test {

sleeping_crew::sleeping_crew(int count, std::function<uint32_t(int)> wait)
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

std::vector<uint32_t> sleeping_crew::results() {
    threads_.join();
    return results_;
}

} // namespace zu_test
