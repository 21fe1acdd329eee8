// Thread locks, events, semaphores and waits: results, codes, and what must hold when many threads meet. About Linux:
// futexes stand for the objects, and whether a thread sleeps is read in /proc.
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

TEST(thread_lock, exclusion_recursion_and_fork) {
    ZU_lock_thread lock;
    int64_t counter = 0; // plain: only the lock keeps it right
    EXPECT_EQ(ZU_lock_thread_init_recursive(&lock), 1);
    crew workers;
    for (int i = 0; i < 8; ++i) {
        workers.add([&, i] {
            for (int round = 0; round < 20000; ++round) {
                const int depth = (round + i) % 3;
                for (int d = 0; d <= depth; ++d)
                    EXPECT_EQ(ZU_lock_thread_lock(&lock), 1);
                ++counter;
                for (int d = 0; d <= depth; ++d)
                    EXPECT_EQ(ZU_lock_thread_unlock(&lock), 1);
            }
        });
    }
    workers.join();
    EXPECT_EQ(counter, 8 * 20000);

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
    EXPECT_EQ(ZU_lock_thread_destroy(nullptr), 1);
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

TEST(atomics, wrap_around) {
    int32_t cell = 0x7FFFFFFF;
    EXPECT_EQ(ZU_atomic_inc_32(&cell), INT32_MIN);
    EXPECT_EQ(ZU_atomic_dec_32(&cell), INT32_MAX);
}

TEST(events, reset_modes_and_results) {
    for (ZU_bool manual : {0, 1}) {
        ZU_event* one = ZU_create_event(manual);
        SetLastError(4711);
        for (uint32_t timeout_ms : {0u, 2u})
            EXPECT_EQ(ZU_wait_for_event(one, timeout_ms), 0);
        EXPECT_EQ(GetLastError(), 4711u) << "a time-out leaves the code alone";
        EXPECT_TRUE(ZU_set_event(one));
        EXPECT_TRUE(ZU_set_event(one)) << "a second set adds nothing";
        EXPECT_EQ(ZU_wait_for_event(one, ZU_WAIT_INFINITE), 1);
        EXPECT_EQ(ZU_wait_for_event(one, 0), manual);
        ZU_set_event(one);
        EXPECT_TRUE(ZU_reset_event(one));
        EXPECT_EQ(ZU_wait_for_event(one, 0), 0);
        EXPECT_TRUE(ZU_destroy_event(one));
        EXPECT_TRUE(ZU_destroy_event(nullptr));
    }
}

TEST(semaphores, counts_bounds_and_the_timed_out_flag) {
    for (const auto& [initial, maximum] : {std::pair(2, 1), {0, 0}, {-1, 1}, {-2, -1}})
        EXPECT_EQ(code_of(ZU_sem_create(initial, maximum)), codes::invalid_parameter)
            << initial << " of " << maximum;
    ZU_sem* sem = ZU_sem_create(0, 1);
    ZU_bool flag = 77;
    EXPECT_FALSE(ZU_sem_wait(sem, 0, &flag));
    EXPECT_EQ(flag, 1);
    EXPECT_TRUE(ZU_sem_post(sem));
    EXPECT_EQ(code_of(ZU_sem_post(sem)), codes::too_many_posts) << "at its maximum";
    EXPECT_TRUE(ZU_sem_wait(sem, 0, &flag));
    EXPECT_EQ(flag, 0);
    EXPECT_FALSE(ZU_sem_wait(sem, 2, nullptr));
    EXPECT_TRUE(ZU_sem_destroy(sem));
    EXPECT_TRUE(ZU_sem_destroy(nullptr));

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

TEST(waits_for_several, results_refusals_and_what_is_taken) {
    ZU_event* events[65];
    for (ZU_event*& one : events)
        one = ZU_create_event(0);
    for (int32_t count : {0, -1, 65, INT32_MIN})
        EXPECT_EQ(code_of(ZU_wait_for_multiple_events(count, events, 0, 0) != -1), codes::invalid_parameter)
            << count;
    EXPECT_EQ(ZU_wait_for_multiple_events(64, events, 0, 1), 0);
    for (ZU_bool all : {0, 1}) {
        ZU_set_event(events[63]);
        ZU_set_event(events[2]);
        SetLastError(4711);
        EXPECT_EQ(ZU_wait_for_multiple_events(3, events, all, 1), all ? 0 : 3);
        EXPECT_EQ(GetLastError(), 4711u);
        EXPECT_EQ(ZU_wait_for_event(events[63], 0), 1);
        EXPECT_EQ(ZU_wait_for_event(events[2], 0), all) << "a failed wait for all takes nothing";
    }
    for (int i : {5, 3, 4})
        ZU_set_event(events[i]);
    for (int expected : {4, 5, 6, 0})
        EXPECT_EQ(ZU_wait_for_multiple_events(64, events, 0, 0), expected) << "the lowest index, each once";
    ZU_event* twice[] = {events[1], events[0], events[1]};
    EXPECT_EQ(code_of(ZU_wait_for_multiple_events(3, twice, 1, 0) != -1), codes::invalid_parameter);
    EXPECT_EQ(ZU_wait_for_multiple_events(3, twice, 0, 1), 0);
    for (ZU_event* one : events)
        EXPECT_TRUE(ZU_destroy_event(one));
}

// A sleeper that was released stays released, whatever happens before it runs.
TEST(sleepers, are_released_by_the_signal_itself) {
    const HANDLE manual = event(true, false), automatic = event(false, false), sem = semaphore(0, 1);
    const HANDLE two_events[] = {event(false, false), automatic}, both[] = {automatic, sem};
    {
        sleeping_crew three(3, [&](int) { return WaitForSingleObject(manual, INFINITE); });
        SetEvent(manual);
        ResetEvent(manual);
        EXPECT_EQ(three.results(), std::vector<uint32_t>(3, 0));
        EXPECT_EQ(WaitForSingleObject(manual, 0), timed_out);
    }
    {
        sleeping_crew three(3, [&](int i) {
            return i == 0 ? WaitForMultipleObjects(2, two_events, 0, INFINITE)
                          : WaitForSingleObject(automatic, INFINITE);
        });
        for (int i = 0; i < 3; ++i)
            SetEvent(automatic);
        ResetEvent(automatic);
        EXPECT_EQ(three.results(), (std::vector<uint32_t>{1, 0, 0}));
        EXPECT_EQ(WaitForSingleObject(automatic, 0), timed_out);
    }
    {
        sleeping_crew one(1, [&](int) { return WaitForMultipleObjects(2, both, 1, INFINITE); });
        SetEvent(automatic);
        EXPECT_EQ(WaitForSingleObject(automatic, INFINITE), WAIT_OBJECT_0)
            << "who waits for all holds nothing back";
        SetEvent(automatic);
        ReleaseSemaphore(sem, 1, nullptr);
        EXPECT_EQ(WaitForMultipleObjects(2, both, 0, 0), timed_out) << "both are taken by now";
        EXPECT_EQ(one.results(), std::vector<uint32_t>(1, 0));
    }
    const HANDLE gates[] = {manual, event(true, true)}, mixed[] = {automatic, manual};
    {
        sleeping_crew three(3, [&](int i) {
            return i == 2 ? WaitForSingleObject(automatic, INFINITE)
                          : WaitForMultipleObjects(2, i == 0 ? gates : mixed, 1, INFINITE);
        });
        SetEvent(automatic);
        EXPECT_EQ(WaitForSingleObject(automatic, 0), timed_out)
            << "the second cannot have it yet, so the third has";
        SetEvent(automatic);
        SetEvent(manual); // completes the first and the second
        ResetEvent(manual);
        EXPECT_EQ(three.results(), std::vector<uint32_t>(3, 0));
        EXPECT_EQ(WaitForSingleObject(automatic, 0), timed_out);
    }
}

// One token is passed on through automatic and manual events; a signal that is lost, or one too many, shows in the end.
TEST(sleepers, no_signal_is_lost_or_doubled) {
    constexpr int members = 8;
    HANDLE own[members];
    for (int i = 0; i < members; ++i)
        own[i] = event(i % 2 != 0, i == 0);
    const HANDLE over = event(true, false);
    std::atomic<int> holders{0};
    std::atomic<uint64_t> passes{0};
    crew workers;
    for (unsigned i = 0; i < members; ++i) {
        workers.add([&, i] {
            std::minstd_rand random(i + 1);
            const HANDLE watched[] = {own[i], over};
            for (;;) {
                const DWORD limit = random() % 3;
                const DWORD found =
                    random() % 2 != 0 ? WaitForSingleObject(own[i], limit)
                                      : WaitForMultipleObjects(2, watched, 0, limit == 0 ? INFINITE : limit);
                if (found == WAIT_OBJECT_0 + 1)
                    return;
                if (found == timed_out)
                    continue;
                ResetEvent(own[i]);
                EXPECT_EQ(holders.fetch_add(1), 0);
                if (random() % 4 == 0)
                    ResetEvent(own[random() % members]);
                if (++passes == 10'000)
                    SetEvent(over);
                holders.fetch_sub(1);
                SetEvent(own[random() % members]);
            }
        });
    }
    workers.join();
    EXPECT_EQ(std::count_if(own, own + members,
                            [](HANDLE one) { return WaitForSingleObject(one, 0) == WAIT_OBJECT_0; }),
              1);
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

// A waiter may end the object as soon as it is released, while its signaller is still on the way out.
TEST(sleepers, may_close_what_released_them) {
    for (int round = 0; round < 2000; ++round) {
        ZU_event* done = ZU_create_event(round % 2 != 0);
        std::thread signaller([&] { ZU_set_event(done); });
        EXPECT_EQ(ZU_wait_for_event(done, ZU_WAIT_INFINITE), 1);
        EXPECT_TRUE(ZU_destroy_event(done));
        signaller.join();
    }
}

} // namespace
