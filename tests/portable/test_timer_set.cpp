// The timer set: its list, its thread, run-now requests, and callbacks that reach back into the set.
#include "support/portable.h"

namespace {

ZU_timer* every_second() {
    return ZU_timer_new_interval(u"2006-05-01 00:00", u"", u"", 0, 0, 1, u"", u"", u"", u"", nullptr);
}
ZU_timer* not_for_years() {
    return ZU_timer_new_daily(u"2037-05-01 08:00", u"", u"", 1, u"", u"", u"", nullptr);
}

// The user data of an entry: a key, what its callback does, and what has been seen of it.
struct task {
    int key;
    std::function<void(ZU_timer*)> action;
    std::atomic<int> calls{0}, freed{0};
    ZU_event* called = ZU_create_event(false);

    task(int k, std::function<void(ZU_timer*)> a = nullptr) : key(k), action(std::move(a)) {}
    ~task() { ZU_destroy_event(called); }
    bool wait() { return ZU_wait_for_event(called, 20000) == 1; } // long enough for what must happen
};
void call(void* user_data, ZU_timer* timer) {
    auto* t = static_cast<task*>(user_data);
    ++t->calls;
    if (t->action)
        t->action(timer);
    ZU_set_event(t->called);
}

struct scoped_set : ZU_timer_set {
    explicit scoped_set(uint32_t seconds) {
        const auto by_key = [](void* data, const void* key) {
            return static_cast<task*>(data)->key - *static_cast<const int*>(key);
        };
        ZU_timer_set_init(this, seconds, by_key, [](void* data) { ++static_cast<task*>(data)->freed; });
    }
    ~scoped_set() { ZU_timer_set_destroy(this); }

    ZU_timer* add(ZU_timer* timer, task& t) {
        ZU_timer_set_add(this, timer, &t, call);
        return timer;
    }
    int del(int key) { return ZU_timer_set_del(this, &key); }
    int find(int key) { return ZU_timer_set_find(this, &key); }
    bool has_request() { return std::atomic_ref(run_now).load() != nullptr; }
    // The keys that a visitor with these answers sees.
    std::string visit(std::function<int32_t(task&)> answer = [](task&) { return 0; }) {
        std::pair<std::string, decltype(answer)> context{"", answer};
        const auto visitor = [](void* c, ZU_timer*, void* data, ZU_timer_callback callback) {
            auto& [seen, answer_for] = *static_cast<decltype(context)*>(c);
            seen += callback == call ? std::to_string(static_cast<task*>(data)->key) : "?";
            return answer_for(*static_cast<task*>(data));
        };
        ZU_timer_set_enumerate(this, visitor, &context);
        return context.first;
    }
};

TEST(timer_set, keeps_its_entries_in_order) {
    task one(1), two(2), three(3);
    {
        scoped_set set(1);
        ZU_timer_set_add(&set, nullptr, &one, call);
        EXPECT_EQ(ZU_timer_set_count(&set), 0);
        for (task* t : {&one, &two, &one, &three, &one})
            set.add(not_for_years(), *t);
        EXPECT_EQ(set.visit(), "12131");
        EXPECT_EQ(set.find(1), 3);
        EXPECT_EQ(set.del(1), 3);
        EXPECT_EQ(set.del(1), 0);
        EXPECT_EQ(ZU_timer_set_count(&set), 2);
        set.add(not_for_years(), one);
        EXPECT_EQ(set.visit([](task&) { return 1; }), "2") << "stopped at the first";
        EXPECT_EQ(set.visit([](task& t) { return t.key == 3 ? 2 : -1; }), "231");
        EXPECT_EQ(ZU_timer_set_clear(&set), 2u);
        EXPECT_EQ(ZU_timer_set_count(&set), 0);
        set.add(not_for_years(), three);
    }
    EXPECT_EQ(one.freed * 100 + two.freed * 10 + three.freed, 412) << "the last one by destroy";
    ZU_timer_set_destroy(nullptr);
}

TEST(timer_set, calls_back_what_is_due_and_starts_again) {
    scoped_set set(1);
    ZU_timer_set_shutdown(&set);
    ZU_time_t scheduled = 0;
    task due(1, [&](ZU_timer*timer) { scheduled = timer->last; }), sleeping(2);
    ZU_wchar a_moment_ago[20];
    ZU_write_time_t(ZU_time() - 5, a_moment_ago);
    set.add(every_second(), due);
    set.add(ZU_timer_new_daily(a_moment_ago, u"", u"", 1, u"", u"", u"", nullptr), sleeping);
    for (const bool clock_goes_back : {false, true}) {
        EXPECT_FALSE(ZU_timer_set_alive(&set));
        const ZU_time_t started = ZU_time();
        ASSERT_TRUE(ZU_timer_set_startup(&set));
        const ZU_thread* thread = set.thread;
        EXPECT_TRUE(ZU_timer_set_startup(&set));
        EXPECT_TRUE(ZU_timer_set_alive(&set));
        EXPECT_EQ(set.thread, thread) << "no second thread";
        if (clock_goes_back) { // as if it had done so since the start: the low mark follows
            ZU_lock_thread_lock(&set.lock);
            set.low_mark = INT32_MAX;
            ZU_lock_thread_unlock(&set.lock);
        }
        for (int firing = 1; firing <= 2; ++firing)
            ASSERT_TRUE(due.wait()) << firing;
        ZU_timer_set_shutdown(&set);
        EXPECT_LE(set.low_mark, ZU_time());
        EXPECT_GE(scheduled, started);
        ZU_wait_for_event(due.called, 0);
    }
    EXPECT_EQ(sleeping.calls, 0) << "what lies before the start is not made up";
}

TEST(timer_set, stops_after_the_entry_that_it_is_at) {
    scoped_set set(1);
    task second(2), first(1, [&](ZU_timer*) {
        ZU_set_event(first.called);
        while (std::atomic_ref(set.stop).load() == 0)
            ZU_sleep(1);
    });
    for (task* t : {&first, &second})
        set.add(every_second(), *t);
    ASSERT_TRUE(ZU_timer_set_startup(&set));
    ASSERT_TRUE(first.wait());
    ZU_timer_set_shutdown(&set);
    EXPECT_EQ(second.calls, 0);

    scoped_set without_wait(0); // also without entries, it must notice that it is to stop
    ASSERT_TRUE(ZU_timer_set_startup(&without_wait));
    ZU_timer_set_shutdown(&without_wait);
}

TEST(timer_set, run_now_needs_no_schedule) {
    task tasks[] = {1, 2, 3, 4};
    scoped_set set(3600), other(1);
    ASSERT_TRUE(ZU_timer_set_startup(&set));
    ZU_timer_set_run_now(&set, other.add(not_for_years(), tasks[0]));
    EXPECT_FALSE(set.has_request());
    std::vector<ZU_timer*> timers;
    for (task& t : tasks)
        timers.push_back(set.add(not_for_years(), t));
    crew callers;
    set.visit([&](task&) { // under the lock, so that all of them find it held and no request pending
        for (ZU_timer* timer : timers)
            callers.add([&set, timer] { ZU_timer_set_run_now(&set, timer); });
        ZU_sleep(100);
        return 1;
    });
    for (task& t : tasks)
        EXPECT_TRUE(t.wait()) << t.key;
    callers.join();
    ZU_timer_set_shutdown(&set);
    for (task& t : tasks)
        EXPECT_EQ(t.calls, 1) << t.key;
}

TEST(timer_set, end_of_a_request) {
    scoped_set set(1);
    task one(1), two(2);
    for (const bool starts : {false, true}) {
        ZU_timer_set_run_now(&set, set.add(not_for_years(), one));
        EXPECT_TRUE(set.has_request()) << "nobody serves it";
        ZU_timer_set_run_now(&set, set.add(not_for_years(), two)); // dropped, and does not wait
        EXPECT_EQ(set.del(2), 1);
        EXPECT_TRUE(set.has_request());
        if (starts)
            ASSERT_TRUE(ZU_timer_set_startup(&set));
        else
            EXPECT_EQ(set.del(1), 1);
        EXPECT_FALSE(set.has_request());
    }
    ZU_timer_set_run_now(&set, set.add(not_for_years(), two));
    EXPECT_TRUE(two.wait());
    EXPECT_EQ(one.calls, 0);
}

TEST(timer_set, callbacks_use_their_own_set) {
    scoped_set set(1);
    task added(4), gone(2), visited(3);
    task busy(1, [&](ZU_timer*) {
        if (busy.calls > 1)
            return;
        EXPECT_EQ(ZU_timer_set_count(&set), 3);
        EXPECT_EQ(set.find(2), 1);
        EXPECT_EQ(set.del(2), 1) << "the entry behind this one";
        EXPECT_EQ(set.visit([](task& t) { return t.key == 3 ? 2 : 0; }), "13");
        set.add(every_second(), added);
    });
    for (task* t : {&busy, &gone, &visited})
        set.add(every_second(), *t);
    ASSERT_TRUE(ZU_timer_set_startup(&set));
    ASSERT_TRUE(added.wait()) << "in the same scan";
    ZU_timer_set_shutdown(&set);
    EXPECT_EQ(set.visit(), "14");
    EXPECT_EQ(gone.calls + visited.calls, 0);
    EXPECT_EQ(gone.freed + visited.freed, 2);
}

TEST(timer_set, serves_many_threads_at_once) {
    scoped_set set(1);
    task due(0);
    set.add(every_second(), due);
    ASSERT_TRUE(ZU_timer_set_startup(&set));
    std::atomic<bool> stop{false};
    crew threads;
    for (int key = 1; key <= 4; ++key) {
        threads.add([&, key] {
            task own(key);
            for (int round = 1; !stop; ++round) {
                ZU_timer* timer = set.add(not_for_years(), own);
                EXPECT_TRUE(ZU_timer_set_alive(&set));
                EXPECT_GE(ZU_timer_set_count(&set), 2);
                set.visit([&](task& t) { return t.key == key && timer->ops->next(timer) > 0 ? 1 : 0; });
                if (round % 500 == 1)
                    ZU_timer_set_run_now(&set, timer);
                EXPECT_EQ(set.find(key), 1);
                EXPECT_EQ(set.del(key), 1);
                EXPECT_EQ(own.freed, round);
            }
        });
    }
    for (int firing = 1; firing <= 2; ++firing)
        EXPECT_TRUE(due.wait()) << firing;
    stop = true;
    threads.join();
    EXPECT_EQ(set.visit(), "0");
}

} // namespace
