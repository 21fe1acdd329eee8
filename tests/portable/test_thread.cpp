// Threads, their ends and exit codes, and sleeping.
#include "support/portable.h"

namespace {

uint32_t give_back(void* argument) {
    return *static_cast<uint32_t*>(argument);
}

TEST(threads, hand_on_their_exit_codes) {
    uint32_t collected = 4711;
    for (uint32_t code : {42u, 0u, 259u, 0xFFFFFFFFu}) {
        EXPECT_EQ(ZU_thread_wait_for_termination(ZU_thread_create(give_back, &code), &collected), 0);
        EXPECT_EQ(collected, code);
        EXPECT_EQ(ZU_thread_wait_for_termination(ZU_thread_create_ex(give_back, &code, code % 2), nullptr),
                  0);
    }
}

TEST(threads, have_ended_their_variables_when_their_end_has_been_waited_for) {
    static std::atomic<int> destroyed{0};
    struct counted {
        ~counted() {
            ZU_sleep(1);
            ++destroyed;
        }
    };
    const auto touch = [](void*) -> uint32_t {
        static thread_local counted variable;
        return reinterpret_cast<uintptr_t>(&variable) != 0;
    };
    for (int round = 1; round <= 200; ++round) {
        ASSERT_EQ(ZU_thread_wait_for_termination(ZU_thread_create(touch, nullptr), nullptr), 0);
        ASSERT_EQ(destroyed.load(), round) << "the thread's variables end before it does";
    }
}

TEST(clocks, sleeping_takes_its_time) {
    const uint32_t before = ZU_get_tick_count();
    ZU_sleep(0);
    ZU_sleep(30);
    EXPECT_GE(ZU_get_tick_count() - before + 16, 30u) << "the native count has steps of up to 16 ms";
}

} // namespace
