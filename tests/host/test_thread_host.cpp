// Threads of the host: their ends, stacks and identifiers, and the order of arrival at their locks, which the platform
// leaves open; both in forked children.
#include <pthread.h>

#include "support/test.h"

namespace {

uint32_t give_back(void* argument) {
    return *static_cast<uint32_t*>(argument);
}

TEST(threads, are_gone_when_their_end_has_been_waited_for) {
    uint32_t code = 4711;
    ZU_thread* exits = ZU_thread_create([](void*) -> uint32_t { pthread_exit(nullptr); }, nullptr);
    EXPECT_EQ(ZU_thread_wait_for_termination(exits, &code), 0) << "it ends without returning";
    EXPECT_EQ(code, 0u);
    const auto threads = [] {
        return std::distance(std::filesystem::directory_iterator("/proc/self/task"), {});
    };
    long after_the_first = 0; // which brings a helper of the thread sanitizer with it, which stays
    for (int round = 1; round <= 200; ++round) {
        ASSERT_EQ(ZU_thread_wait_for_termination(ZU_thread_create(give_back, &code), nullptr), 0);
        if (round == 1)
            after_the_first = threads();
    }
    // The kernel takes an ended thread off its list a moment after the join.
    while (threads() > after_the_first)
        platform::Sleep(1);
}

// The layer forgets a thread in the destructor of a key. That of a later key runs after it, and asks once more.
TEST(threads, may_ask_when_the_layer_has_forgotten_them) {
    static int32_t last = -1;
    static const auto look = [] {
        ZU_stat status;
        return ZU_stat64(u"C:\\", &status);
    };
    std::thread([] {
        pthread_key_t later;
        EXPECT_EQ(look(), 0);
        pthread_key_create(&later, [](void*) { last = look(); });
        pthread_setspecific(later, &last);
    }).join();
    EXPECT_EQ(last, 0);
}

TEST(thread_lock, in_a_forked_child_and_after_the_end_of_its_owner) {
    ZU_lock_thread lock;
    const auto has_own_identifiers = [] {
        return int(ZU_get_current_process_id()) == getpid() && int(ZU_get_current_thread_id()) == gettid();
    };
    EXPECT_TRUE(has_own_identifiers());
    ASSERT_EQ(ZU_lock_thread_init_recursive(&lock), 1);
    // The child's thread is still the owner of what it held; afterwards the lock works there as here. A thread that
    // ends with it leaves it taken, also for a thread that gets its place in memory.
    ZU_lock_thread_lock(&lock);
    const outcome child = run_child([&] {
        ZU_lock_thread_unlock(&lock);
        std::thread([&] { ZU_lock_thread_lock(&lock); }).join();
        sleeping_crew next(1, [&](int) -> uint32_t {
            ZU_lock_thread_lock(&lock);
            _exit(1);
        });
        _exit(has_own_identifiers() ? 42 : 2);
    });
    EXPECT_EQ(child.exit_code, 42);
    ZU_lock_thread_unlock(&lock);
    EXPECT_EQ(ZU_lock_thread_destroy(&lock), 1);
}

TEST(threads, a_stack_that_does_not_fit_fails_with_code_8) {
    if (built_with_sanitizer)
        GTEST_SKIP() << "a sanitizer's shadow memory does not live under an address-space limit";
    const outcome child = run_child([] {
        const rlimit limit{1u << 30, 1u << 30};
        setrlimit(RLIMIT_AS, &limit);
        uint32_t code = code_of(ZU_thread_create_ex(give_back, nullptr, 3u << 30));
        _exit(ZU_thread_wait_for_termination(ZU_thread_create_ex(give_back, &code, 1 << 20), &code) ? 1
                                                                                                    : code);
    });
    EXPECT_EQ(child.exit_code, static_cast<int>(codes::not_enough_memory));
}

// Counted are the times that another thread takes the lock again while this one sleeps for it. On one processor, and
// as a batch, a thread that is woken does not interrupt the one that runs: that alone could get it the lock.
TEST(thread_lock, giving_it_back_lets_a_sleeper_go_first) {
    ZU_lock_thread lock;
    ZU_lock_thread_init(&lock);
    std::atomic<int> counter{0}, over{0};
    cpu_set_t one{};
    CPU_SET(sched_getcpu(), &one);
    sched_setaffinity(0, sizeof one, &one);
    const sched_param plain{};
    sched_setscheduler(0, SCHED_BATCH, &plain);
    const std::jthread other([&] {
        for (; !over; ZU_lock_thread_unlock(&lock)) {
            ZU_lock_thread_lock(&lock);
            ++counter;
            for (const uint32_t start = ZU_get_tick_count(); ZU_get_tick_count() - start < 2;) {}
        }
    });
    int often_overtaken = 0;
    for (int before = 0, i = 0; i < 60; ++i) {
        while (counter == before)
            platform::Sleep(1);
        before = counter;
        ZU_lock_thread_lock(&lock);
        often_overtaken += counter - before > 3;
        ZU_lock_thread_unlock(&lock);
    }
    over = 1;
    EXPECT_LE(often_overtaken, 2);
}

TEST(clocks, ticks_count_from_the_start_of_the_system) {
    double uptime = 0;
    std::ifstream("/proc/uptime") >> uptime;
    EXPECT_LT(ZU_get_tick_count() - static_cast<uint32_t>(static_cast<uint64_t>(uptime * 1000)), 60000u);
}

} // namespace
