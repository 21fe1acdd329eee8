// The layer's handles and waits that no function of the library reaches, locks in forked children, and overtaking on two
// processors of the host.
#include "support/test.h"

namespace {

using namespace platform;

constexpr DWORD timed_out = WAIT_TIMEOUT;
const HANDLE no_handle = nullptr, made_up = reinterpret_cast<HANDLE>(intptr_t{0x7654321});
const HANDLE this_process = reinterpret_cast<HANDLE>(intptr_t{-1});
const HANDLE this_thread = reinterpret_cast<HANDLE>(intptr_t{-2});

HANDLE event(bool manual_reset, bool signalled) {
    return CreateEventW(nullptr, manual_reset, signalled, nullptr);
}

HANDLE semaphore(int initial, int maximum) {
    return CreateSemaphoreW(nullptr, initial, maximum, nullptr);
}

TEST(handles, good_closed_null_and_made_up) {
    const HANDLE good = event(false, true), sem = semaphore(1, 1), closed = event(true, true);
    ASSERT_TRUE(CloseHandle(closed));
    DWORD exit_code;
    for (HANDLE bad : {no_handle, made_up, closed}) {
        const HANDLE list[] = {good, bad};
        EXPECT_EQ(code_of(CloseHandle(bad)), codes::invalid_handle);
        EXPECT_EQ(code_of(SetEvent(bad)), codes::invalid_handle);
        EXPECT_EQ(code_of(ResetEvent(bad)), codes::invalid_handle);
        EXPECT_EQ(code_of(ReleaseSemaphore(bad, 1, nullptr)), codes::invalid_handle);
        EXPECT_EQ(code_of(WaitForSingleObject(bad, 0) != WAIT_FAILED), codes::invalid_handle);
        EXPECT_EQ(code_of(WaitForMultipleObjects(2, list, 0, 0) != WAIT_FAILED), codes::invalid_handle);
        EXPECT_EQ(code_of(GetExitCodeThread(bad, &exit_code)), codes::invalid_handle);
    }
    EXPECT_EQ(code_of(SetEvent(sem)), codes::invalid_handle) << "of the wrong kind";
    EXPECT_EQ(code_of(ReleaseSemaphore(good, 1, nullptr)), codes::invalid_handle);
    EXPECT_EQ(code_of(GetExitCodeThread(good, &exit_code)), codes::invalid_handle);
    EXPECT_EQ(WaitForSingleObject(good, 0), WAIT_OBJECT_0) << "nothing above has taken it";
    for (HANDLE pseudo : {this_process, this_thread}) {
        EXPECT_EQ(WaitForSingleObject(pseudo, 1), timed_out);
        EXPECT_TRUE(CloseHandle(pseudo));
        EXPECT_FALSE(SetEvent(pseudo));
    }
}

TEST(semaphores, counts_near_the_largest) {
    const HANDLE many = semaphore(0x7FFFFFF0, 0x7FFFFFFF);
    int32_t before = 4711;
    for (int32_t count : {0x10, INT32_MAX, 0, -1})
        EXPECT_EQ(code_of(ReleaseSemaphore(many, count, &before)),
                  count > 0 ? codes::too_many_posts : codes::invalid_parameter)
            << count;
    EXPECT_EQ(before, 4711);
    EXPECT_TRUE(ReleaseSemaphore(many, 0xF, &before));
    EXPECT_EQ(before, 0x7FFFFFF0);
}

TEST(thread_lock, in_a_forked_child_and_after_the_end_of_its_owner) {
    ZU_lock_thread lock;
    ASSERT_EQ(ZU_lock_thread_init_recursive(&lock), 1);
    // The child's thread is still the owner of what it held; afterwards the lock works there as here.
    ZU_lock_thread_lock(&lock);
    const outcome child = run_child([&] {
        ZU_lock_thread_unlock(&lock);
        std::thread([&] { ZU_lock_thread_lock(&lock); }).join();
    });
    EXPECT_EQ(child.exit_code, 0);
    // A thread that ends with the lock leaves it taken, also for a thread that gets its place in memory.
    const outcome orphan = run_child([&] {
        ZU_lock_thread_unlock(&lock);
        std::thread([&] { ZU_lock_thread_lock(&lock); }).join();
        sleeping_crew next(1, [&](int) {
            ZU_lock_thread_lock(&lock);
            _exit(1);
            return 0u;
        });
        _exit(0);
    });
    EXPECT_EQ(orphan.exit_code, 0);
    ZU_lock_thread_unlock(&lock);
    EXPECT_EQ(ZU_lock_thread_destroy(&lock), 1);
}

// Two threads on two processors: a thread that is woken needs longer to get to the lock than the one that is there.
void keep_to_processor(int number) {
    cpu_set_t one;
    CPU_ZERO(&one);
    CPU_SET(number, &one);
    sched_setaffinity(0, sizeof one, &one);
}

// Counted are the times that a thread takes the lock again while another one sleeps for it.
TEST(thread_lock, overtaking) {
    ZU_lock_thread lock;
    ZU_lock_thread_init(&lock);
    std::atomic<int> takings{0};
    std::atomic<bool> over{false};
    crew workers;
    keep_to_processor(0);
    workers.add([&] {
        keep_to_processor(1);
        while (!over) {
            ZU_lock_thread_lock(&lock);
            ++takings;
            for (const uint32_t start = ZU_get_tick_count(); ZU_get_tick_count() - start < 2;) {}
            ZU_lock_thread_unlock(&lock);
        }
    });
    std::vector<int> overtakings;
    for (int before = 0; overtakings.size() < 15;) {
        while (takings == before)
            platform::Sleep(1);
        before = takings;
        ZU_lock_thread_lock(&lock);
        overtakings.push_back(takings - before);
        ZU_lock_thread_unlock(&lock);
    }
    over = true;
    std::sort(overtakings.begin(), overtakings.end());
    EXPECT_LE(overtakings[7], 3) << "half of the times";
}

// Whatever is posted is either taken by one wait or left over.
TEST(sleepers, waits_for_all_never_take_a_part) {
    constexpr unsigned kinds = 4;
    HANDLE sems[kinds];
    std::atomic<int64_t> posted[kinds] = {}, taken[kinds] = {};
    for (HANDLE& one : sems)
        one = semaphore(0, 1000);
    crew workers;
    for (unsigned i = 0; i < 8; ++i) {
        workers.add([&, i] {
            std::minstd_rand random(i + 77);
            for (int round = 0; round < 1000; ++round) {
                const unsigned first = random() % kinds, step = 1 + random() % (kinds - 1);
                const unsigned second = (first + step) % kinds;
                if (random() % 4 == 0) {
                    posted[first] +=
                        ReleaseSemaphore(sems[first], static_cast<int>(step), nullptr) ? step : 0;
                    continue;
                }
                const HANDLE pair[] = {sems[first], sems[second]};
                const bool all = random() % 3 == 0;
                const DWORD which = WaitForMultipleObjects(2, pair, all, random() % 3);
                taken[first] += which == 0;
                taken[second] += which == 1 || (which == 0 && all);
            }
        });
    }
    workers.join();
    for (unsigned k = 0; k < kinds; ++k) {
        while (WaitForSingleObject(sems[k], 0) == WAIT_OBJECT_0)
            ++taken[k];
        EXPECT_EQ(taken[k], posted[k]);
    }
}

// Another thread's ticks are counted, during sleeps and during waits of the same length: a busy machine stretches both.
TEST(sleepers, a_part_that_is_signalled_all_the_time_delays_no_time_out) {
    const HANDLE pair[] = {event(true, false), event(true, false)};
    std::atomic<uint64_t> ticks{0};
    std::atomic<bool> is_over{false};
    std::thread ticker([&] {
        for (; !is_over; ++ticks)
            Sleep(1);
    });
    std::thread signaller([&] {
        while (!is_over) {
            SetEvent(pair[0]);
            ResetEvent(pair[0]);
        }
    });
    uint64_t in_sleeps = 0, in_waits = 0;
    for (int round = 0; round < 20 || in_sleeps == 0; ++round) {
        const uint64_t start = ticks;
        Sleep(20);
        const uint64_t middle = ticks;
        EXPECT_EQ(WaitForMultipleObjects(2, pair, 1, 20), timed_out);
        in_sleeps += middle - start;
        in_waits += ticks - middle;
    }
    is_over = true;
    ticker.join();
    signaller.join();
    EXPECT_LT(in_waits, 4 * in_sleeps);
}

} // namespace
