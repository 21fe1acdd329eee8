// Named process locks: results, handles, owners in other processes, many processes that meet, some of which are killed.
#include "support/portable.h"

namespace {

// A name of this test alone.
struct process_lock : testing::Test {
    ZU_lock_process create() const { return ZU_lock_process_create(wide_name.c_str()); }
    ZU_lock_process open() const { return ZU_lock_process_open(wide_name.c_str()); }
    bool is_there() const {
        ZU_lock_process opened = open();
        ZU_lock_process_close(opened);
        return opened != nullptr;
    }
    const scratch place;
    const std::string name = "zutest" + std::to_string(ZU_get_current_process_id());
    const std::u16string wide_name = wide(name);
};

// Another process, which holds the lock of that name until it is killed or told to end.
const part holds("holds", [](const words& arguments) {
    ZU_lock_process lock = ZU_lock_process_create(wide(arguments[0]).c_str());
    report(lock && ZU_lock_process_lock(lock) ? "held" : "failed");
    wait_for_parent();
    return 0;
});

void expect_free(ZU_lock_process lock) {
    EXPECT_TRUE(ZU_lock_process_lock_timeout(lock, 0));
    EXPECT_TRUE(ZU_lock_process_unlock(lock));
}

// The file that a lock guards holds the number of visits, and behind it the process that made the last one.
struct guarded_file {
    ~guarded_file() { ZU_close_file(file); }
    int64_t visits() const { return transfer(ZU_read_file, 0) >> 32; }
    // False when another process has written meanwhile.
    bool visit(std::chrono::microseconds duration) const {
        const int64_t own = (visits() + 1) << 32 | ZU_get_current_process_id();
        const auto end = std::chrono::steady_clock::now() + duration;
        transfer(ZU_write_file, own);
        do
            std::this_thread::yield();
        while (std::chrono::steady_clock::now() < end);
        return transfer(ZU_read_file, 0) == own;
    }
    int64_t transfer(auto* call, int64_t value) const {
        uint32_t done = 0;
        return ZU_seek_file(file, 0, nullptr, ZU_SEEK_BEGIN) && call(file, &value, 8, &done) ? value : -1;
    }
    static constexpr uint32_t flags =
        ZU_FILE_READ | ZU_FILE_WRITE | ZU_FILE_OPEN_ALWAYS | ZU_FILE_SHARE_READ | ZU_FILE_SHARE_WRITE;
    ZU_file* const file = ZU_open_file(u"T:\\guarded", flags, nullptr);
};

// Goes in and out of the lock of that name so many times, with a time limit for each wait, a time inside, and a new
// handle each time, beside one that it keeps or not.
const part visits("visits", [](const words& arguments) {
    const std::u16string name = wide(arguments[0]);
    const auto limit_ms = static_cast<uint32_t>(std::stoul(arguments[1]));
    const std::chrono::microseconds inside(std::stoi(arguments[2]));
    const guarded_file guarded;
    if (arguments[3] == "keeps")
        ZU_lock_process_create(name.c_str());
    report("runs");
    for (int rounds = std::stoi(arguments[4]); rounds > 0; --rounds) {
        ZU_lock_process lock = ZU_lock_process_create(name.c_str());
        const bool taken = ZU_lock_process_lock_timeout(lock, limit_ms) || limit_ms == ZU_WAIT_INFINITE;
        const bool alone = !taken || guarded.visit(inside);
        // Where the wait has ended without the lock, the lock may be owned all the same, since its owner was killed.
        if ((!ZU_lock_process_unlock(lock) && taken) || !alone || !ZU_lock_process_close(lock))
            ZU_create_dir(u"T:\\fault", nullptr);
    }
    return 0;
});

const std::string for_ever = std::to_string(ZU_WAIT_INFINITE), all_the_time = std::to_string(INT_MAX);

TEST_F(process_lock, recursion_ownership_and_results) {
    ZU_lock_process lock = create(), again = ZU_lock_process_create_everyone(wide_name.c_str());
    EXPECT_EQ(GetLastError(), codes::already_exists);
    EXPECT_TRUE(ZU_lock_process_lock(lock));
    EXPECT_TRUE(ZU_lock_process_lock_timeout(again, 0)) << "the owner, through another handle";
    EXPECT_TRUE(ZU_lock_process_unlock(lock));
    std::thread([&] {
        SetLastError(4711);
        EXPECT_FALSE(ZU_lock_process_lock_timeout(lock, 2)) << "locked twice and unlocked once";
        EXPECT_EQ(GetLastError(), 4711u);
        EXPECT_FALSE(ZU_lock_process_unlock(lock));
    }).join();
    EXPECT_TRUE(ZU_lock_process_unlock(again));
    std::thread([&] { expect_free(lock); }).join();

    const std::u16string long_name(254, u'\u00e9');
    ZU_lock_process long_lock = ZU_lock_process_create((long_name + u"A").c_str());
    const std::pair<std::u16string, uint32_t> names[] = {{u"Local\\" + wide_name, codes::already_exists},
                                                         {long_name + u"A", codes::already_exists},
                                                         {long_name + u"a", codes::none}}; // case matters
    for (const auto& [wanted, code] : names) {
        ZU_lock_process one = ZU_lock_process_create(wanted.c_str());
        EXPECT_EQ(GetLastError(), code) << narrow(wanted);
        EXPECT_TRUE(ZU_lock_process_close(one)) << narrow(wanted);
    }
    EXPECT_TRUE(ZU_lock_process_close(long_lock));

    for (ZU_lock_process one : {again, lock})
        EXPECT_TRUE(ZU_lock_process_close(one));
    for (const auto call : {ZU_lock_process_close, ZU_lock_process_lock, ZU_lock_process_unlock})
        EXPECT_EQ(code_of(call(lock)), codes::invalid_handle) << "it is closed";
    ZU_event* const next = ZU_create_event(false);
    EXPECT_EQ(code_of(ZU_lock_process_unlock(lock)), codes::invalid_handle) << "the event has its number now";
    ZU_destroy_event(next);
    EXPECT_EQ(code_of(open() != nullptr), codes::file_not_found);
    EXPECT_TRUE(ZU_lock_process_close(nullptr));
    EXPECT_TRUE(ZU_lock_process_destroy(nullptr));
}

TEST_F(process_lock, an_owner_that_is_killed_leaves_it_abandoned_once) {
    child owner(holds, {name});
    ASSERT_EQ(owner.next_line(), "held");
    ZU_lock_process lock = create();
    EXPECT_EQ(GetLastError(), codes::already_exists);
    SetLastError(4711);
    EXPECT_FALSE(ZU_lock_process_lock_timeout(lock, 60));
    EXPECT_EQ(GetLastError(), 4711u) << "a time-out";
    std::thread killer([&] {
        ZU_sleep(20);
        owner.kill();
    });
    EXPECT_FALSE(ZU_lock_process_lock_timeout(lock, 60000)) << "abandoned";
    killer.join();
    EXPECT_TRUE(ZU_lock_process_unlock(lock)) << "it is owned anyway";
    for (ZU_lock_process one : {lock, ZU_lock_process_create(nullptr)}) {
        expect_free(one);
        std::thread([&] { ZU_lock_process_lock(one); }).join();
        EXPECT_FALSE(ZU_lock_process_lock_timeout(one, 0)) << "a thread ended";
        EXPECT_TRUE(ZU_lock_process_unlock(one));
        expect_free(one);
        EXPECT_TRUE(ZU_lock_process_close(one));
    }
    EXPECT_FALSE(is_there());
}

// Counted are the visits of two other processes, which take the lock again at once, while this one sleeps for it.
TEST_F(process_lock, giving_one_back_lets_a_sleeper_go_first) {
    const guarded_file guarded;
    ZU_lock_process lock = create();
    const child others[] = {child(visits, {name, for_ever, "2000", "keeps", all_the_time}),
                            child(visits, {name, for_ever, "2000", "keeps", all_the_time})};
    int often_overtaken = 0;
    for (int64_t before = 0, i = 0; i < 40; ++i) {
        while (guarded.visits() == before)
            ZU_sleep(1);
        before = guarded.visits();
        EXPECT_TRUE(ZU_lock_process_lock_timeout(lock, i % 2 ? 60000 : ZU_WAIT_INFINITE));
        often_overtaken += guarded.visits() - before > 4;
        EXPECT_TRUE(ZU_lock_process_unlock(lock));
    }
    EXPECT_LE(often_overtaken, 20);
    EXPECT_TRUE(ZU_lock_process_close(lock));
}

TEST_F(process_lock, made_and_closed_all_the_time) {
    child visitors[] = {child(visits, {name, for_ever, "0", "closes", "3000"}),
                        child(visits, {name, for_ever, "0", "closes", "3000"}),
                        child(visits, {name, for_ever, "0", "closes", "3000"})};
    for (child& one : visitors)
        EXPECT_EQ(one.finish(), 0);
    EXPECT_EQ(guarded_file().visits(), 9000);
    EXPECT_FALSE(place.exists("fault"));
}

TEST_F(process_lock, killed_processes) {
    std::minstd_rand random(7);
    std::unique_ptr<child> visitors[8];
    for (int kills = 0; kills < 200; ++kills) {
        std::unique_ptr<child>& one = visitors[random() % 8];
        one.reset(); // which kills it
        one = std::make_unique<child>(visits,
                                      words{name, random() % 2 ? "3" : for_ever, "0", "keeps", all_the_time});
        ZU_sleep(random() % 5);
    }
    std::fill_n(visitors, 8, nullptr);
    EXPECT_GT(guarded_file().visits(), 200);
    for (int round = 0; round < 30; ++round) {
        child one(visits, {name, for_ever, "0", round % 2 ? "closes" : "keeps", all_the_time});
        one.next_line();
        ZU_sleep(round / 2);
        one.kill();
        ZU_lock_process lock = create();
        EXPECT_EQ(GetLastError(), codes::none);
        ZU_lock_process_lock_timeout(lock, 20000); // owned afterwards, and maybe abandoned
        EXPECT_TRUE(ZU_lock_process_unlock(lock)) << round << ' ' << GetLastError();
        expect_free(lock);
        EXPECT_TRUE(ZU_lock_process_close(lock));
    }
    EXPECT_FALSE(place.exists("fault"));
    EXPECT_FALSE(is_there());
}

// The wait goes on, with the lock that it was for.
TEST_F(process_lock, a_handle_closed_under_a_waiting_thread) {
    child owner(holds, {name});
    ASSERT_EQ(owner.next_line(), "held");
    ZU_lock_process kept = create();
    sleeping_crew waiting(1, [&](int) { return code_of(ZU_lock_process_lock(kept)); });
    EXPECT_TRUE(ZU_lock_process_close(kept));
    owner.kill();
    EXPECT_EQ(waiting.results()[0], no_code) << "it was abandoned";
    EXPECT_FALSE(is_there());
}

// A call works on the lock that its handle was for, or fails with 6.
TEST_F(process_lock, handles_exchanged_under_its_users) {
    ZU_lock_process kept = create();
    std::atomic<ZU_lock_process> changing{create()};
    std::atomic<int> taken{0};
    std::atomic<bool> over{false};
    int counter = 0; // plain: only the lock keeps it right
    crew users;
    for (int i = 0; i < 2; ++i) {
        users.add([&] {
            while (!over) {
                ZU_lock_process lock = changing;
                if (!ZU_lock_process_lock_timeout(lock, 1))
                    continue;
                ++counter;
                ++taken;
                EXPECT_TRUE(ZU_lock_process_unlock(lock) || ZU_lock_process_unlock(kept));
            }
        });
    }
    for (int i = 0; i < 20000; ++i)
        EXPECT_TRUE(ZU_lock_process_close(changing.exchange(create())));
    over = true;
    users.join();
    EXPECT_EQ(counter, taken);
    EXPECT_TRUE(ZU_lock_process_close(changing));
    EXPECT_TRUE(ZU_lock_process_close(kept));
    EXPECT_FALSE(is_there());
}

} // namespace
