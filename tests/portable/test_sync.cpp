// Threads, their locks, events, semaphores and waits: results, codes, and what must hold when many threads meet.
#include "support/portable.h"

namespace {

TEST(thread_lock, exclusion_and_recursion) {
    ZU_lock_thread lock;
    int64_t counter = 0; // plain: only the lock keeps it right
    EXPECT_EQ(ZU_lock_thread_init_recursive(&lock), 1);
    crew workers;
    for (int i = 0; i < 8; ++i) {
        workers.add([&, i] {
            for (int round = 0; round < 20000; ++round) {
                for (int depth = (round + i) % 3; depth >= 0; --depth)
                    EXPECT_EQ(ZU_lock_thread_lock(&lock), 1);
                ++counter;
                for (int depth = (round + i) % 3; depth >= 0; --depth)
                    EXPECT_EQ(ZU_lock_thread_unlock(&lock), 1);
            }
        });
    }
    workers.join();
    EXPECT_EQ(counter, 8 * 20000);
    EXPECT_EQ(ZU_lock_thread_destroy(&lock), 1);
    EXPECT_EQ(ZU_lock_thread_destroy(nullptr), 1);
}

// Destroyed at the end of the program.
ZU_event* event(bool manual_reset, bool signalled = false) {
    static std::vector<std::unique_ptr<ZU_event, decltype([](ZU_event* one) { ZU_destroy_event(one); })>> all;
    all.emplace_back(ZU_create_event(manual_reset));
    if (signalled)
        ZU_set_event(all.back().get());
    return all.back().get();
}

// 0: out of time; else the number of the event that ended the wait, from 1.
uint32_t wait(ZU_event* one, uint32_t timeout_ms = ZU_WAIT_INFINITE) {
    return static_cast<uint32_t>(ZU_wait_for_event(one, timeout_ms));
}

uint32_t wait(ZU_event* (&two)[2], bool all, uint32_t timeout_ms = ZU_WAIT_INFINITE) {
    return static_cast<uint32_t>(ZU_wait_for_multiple_events(2, two, all, timeout_ms));
}

TEST(events, reset_modes_and_results) {
    for (const bool manual : {false, true}) {
        ZU_event* one = event(manual);
        SetLastError(4711);
        for (uint32_t timeout_ms : {0u, 2u})
            EXPECT_EQ(wait(one, timeout_ms), 0u);
        EXPECT_EQ(GetLastError(), 4711u) << "a time-out leaves the code alone";
        EXPECT_TRUE(ZU_set_event(one));
        EXPECT_TRUE(ZU_set_event(one)) << "a second set adds nothing";
        EXPECT_EQ(wait(one), 1u);
        EXPECT_EQ(wait(one, 0), manual);
        EXPECT_TRUE(ZU_reset_event(one));
        EXPECT_EQ(wait(one, 0), 0u);
    }
    ZU_event* events[64];
    std::generate_n(events, 63, [] { return event(false); });
    events[63] = event(false, true);
    EXPECT_EQ(ZU_wait_for_multiple_events(64, events, 0, 1), 64);
    EXPECT_TRUE(ZU_destroy_event(nullptr));
    EXPECT_TRUE(ZU_sem_destroy(nullptr));
    int32_t cell = 0x7FFFFFFF;
    EXPECT_EQ(ZU_atomic_inc_32(&cell), INT32_MIN);
    EXPECT_EQ(ZU_atomic_dec_32(&cell), INT32_MAX);
}

// A sleeper that was released stays released, whatever happens before it runs.
TEST(sleepers, are_released_by_the_signal_itself) {
    ZU_event *const manual = event(true), *const automatic = event(false), *const second = event(false);
    ZU_event *two_events[] = {event(false), automatic}, *both[] = {automatic, second};
    {
        sleeping_crew three(3, [&](int) { return wait(manual); });
        ZU_set_event(manual);
        ZU_reset_event(manual);
        EXPECT_EQ(three.results(), std::vector<uint32_t>(3, 1));
        EXPECT_EQ(wait(manual, 0), 0u);
    }
    {
        sleeping_crew three(3, [&](int i) { return i == 0 ? wait(two_events, false) : wait(automatic); });
        for (int i = 0; i < 3; ++i)
            ZU_set_event(automatic);
        ZU_reset_event(automatic);
        EXPECT_EQ(three.results(), (std::vector<uint32_t>{2, 1, 1}));
        EXPECT_EQ(wait(automatic, 0), 0u);
    }
    {
        sleeping_crew one(1, [&](int) { return wait(both, true); });
        ZU_set_event(automatic);
        EXPECT_EQ(wait(automatic), 1u) << "who waits for all holds nothing back";
        ZU_set_event(automatic);
        ZU_set_event(second);
        EXPECT_EQ(wait(both, false, 0), 0u) << "both are taken by now";
        EXPECT_EQ(one.results(), std::vector<uint32_t>(1, 1));
    }
    ZU_event *gates[] = {manual, event(true, true)}, *mixed[] = {automatic, manual};
    {
        sleeping_crew three(
            3, [&](int i) { return i == 2 ? wait(automatic) : wait(i == 0 ? gates : mixed, true); });
        ZU_set_event(automatic);
        EXPECT_EQ(wait(automatic, 0), 0u) << "the second cannot have it yet, so the third has";
        ZU_set_event(automatic);
        ZU_set_event(manual); // completes the first and the second
        ZU_reset_event(manual);
        EXPECT_EQ(three.results(), std::vector<uint32_t>(3, 1));
        EXPECT_EQ(wait(automatic, 0), 0u);
    }
}

// One token is passed on through automatic and manual events, sometimes together with a gate that is there for all. A
// signal that is lost, or one too many, shows in the end, and so does a wait for both that takes one of them.
TEST(sleepers, no_signal_is_lost_or_doubled) {
    constexpr int members = 8;
    ZU_event* own[members];
    for (int i = 0; i < members; ++i)
        own[i] = event(i % 2 != 0, i == 0);
    ZU_event *const over = event(true), *const gate = event(false, true);
    std::atomic<int> holders{0}, gate_holders{0};
    std::atomic<uint64_t> passes{0};
    crew workers;
    for (unsigned i = 0; i < members; ++i) {
        workers.add([&, i] {
            std::minstd_rand random(i + 1);
            ZU_event *watched[] = {own[i], over}, *guarded[] = {own[i], gate}, *either[] = {gate, own[i]};
            for (;;) {
                const uint32_t limit = random() % 3, way = random() % 4;
                const uint32_t found = way == 0   ? wait(either, false, limit)
                                       : way == 1 ? wait(guarded, true, limit)
                                       : way == 2
                                           ? wait(own[i], limit)
                                           : wait(watched, false, limit == 0 ? ZU_WAIT_INFINITE : limit);
                if (way == 3 && found == 2)
                    return;
                if (way < 2 && found == 1) {
                    EXPECT_EQ(gate_holders.fetch_add(1), 0);
                    std::this_thread::yield();
                    gate_holders.fetch_sub(1);
                    ZU_set_event(gate);
                }
                if (found != (way == 0 ? 2 : 1))
                    continue;
                ZU_reset_event(own[i]);
                EXPECT_EQ(holders.fetch_add(1), 0);
                if (random() % 4 == 0)
                    ZU_reset_event(own[random() % members]);
                if (++passes == 30'000)
                    ZU_set_event(over);
                holders.fetch_sub(1);
                ZU_set_event(own[random() % members]);
            }
        });
    }
    workers.join();
    EXPECT_EQ(std::count_if(own, own + members, [](ZU_event* one) { return wait(one, 0) == 1; }), 1);
    EXPECT_EQ(wait(gate, 0), 1u);
}

TEST(sleepers, a_part_that_is_signalled_all_the_time_delays_no_time_out) {
    ZU_event* pair[] = {event(false), event(false)};
    std::atomic<bool> is_over{false};
    crew others;
    others.add([&] {
        for (; !is_over; ZU_reset_event(pair[0]))
            ZU_set_event(pair[0]);
    });
    for (int round = 0; round < 20; ++round)
        EXPECT_EQ(wait(pair, true, 20), 0u) << "and it ends";
    is_over = true;
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

TEST(semaphores, hand_out_what_there_is_and_no_more) {
    ZU_sem* const sem = ZU_sem_create(3, 3);
    int32_t inside = 0;
    crew workers;
    for (int i = 0; i < 6; ++i) {
        workers.add([&, i] {
            for (int round = 0; round < 3000; ++round) {
                ZU_bool timed_out = 7;
                const ZU_bool taken = ZU_sem_wait(sem, i % 2 ? ZU_WAIT_INFINITE : round % 3, &timed_out);
                EXPECT_EQ(timed_out, !taken);
                if (!taken)
                    continue;
                EXPECT_LE(ZU_atomic_inc_32(&inside), 3);
                std::this_thread::yield();
                ZU_atomic_dec_32(&inside);
                EXPECT_TRUE(ZU_sem_post(sem));
            }
        });
    }
    workers.join();
    EXPECT_EQ(code_of(ZU_sem_post(sem)), codes::too_many_posts) << "all are back";
    EXPECT_TRUE(ZU_sem_destroy(sem));
}

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

// Of calls for which the platform may remember something for each thread.
std::u16string answers() {
    return taken(ZU_get_actual_file_name(u"T:\\FILE")) + taken(ZU_get_ip_address_by_host_name(u"1.2.3"));
}

struct late_question {
    ~late_question() {
        ZU_sleep(1);
        last = answers();
        ++ended;
    }
    static inline std::u16string last;
    static inline std::atomic<int> ended{0};
};

TEST(threads, ask_the_library_to_their_last_breath_which_is_waited_for) {
    const scratch place;
    const started_library library;
    place.write("file", "data");
    const auto ask = [](void*) -> uint32_t {
        static thread_local late_question question;
        return static_cast<uint32_t>(answers().size());
    };
    for (int round = 1; round <= 200; ++round) {
        ASSERT_EQ(ZU_thread_wait_for_termination(ZU_thread_create(ask, nullptr), nullptr), 0);
        ASSERT_EQ(late_question::ended, round) << "before the end of the thread was told";
        ASSERT_EQ(std::exchange(late_question::last, u""), u"file1.2.0.3");
    }
}

// Another process, which tells its identifier and what its clock shows.
const part tells("tells", [](const words&) {
    report(std::to_string(ZU_get_current_process_id()) + ' ' + std::to_string(ZU_get_tick_count()));
    return 0;
});

TEST(identifiers, and_ticks_are_those_of_the_machine) {
    const uint32_t start = ZU_get_tick_count(), own = ZU_get_current_thread_id();
    uint32_t process = 0, ticks = 0;
    std::istringstream(child(tells).next_line()) >> process >> ticks;
    EXPECT_NE(process, ZU_get_current_process_id());
    EXPECT_LE(ticks - start, ZU_get_tick_count() - start) << "one clock for all";
    std::thread([&] { EXPECT_NE(ZU_get_current_thread_id(), own); }).join();
}

TEST(clocks, sleeping_takes_its_time) {
    const uint32_t before = ZU_get_tick_count();
    ZU_sleep(0);
    ZU_sleep(30);
    EXPECT_GE(ZU_get_tick_count() - before + 16, 30u) << "the native count has steps of up to 16 ms";
}

} // namespace
