// Named process locks: results, handles, and owners in other processes.
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
    EXPECT_EQ(code_of(open() != nullptr), codes::file_not_found);
    EXPECT_TRUE(ZU_lock_process_close(nullptr));
    EXPECT_TRUE(ZU_lock_process_destroy(nullptr));
}

TEST_F(process_lock, a_name_that_is_too_long) {
    EXPECT_EQ(code_of(ZU_lock_process_create(std::u16string(261, u'x').c_str()) != nullptr),
              codes::filename_too_long);
}

TEST_F(process_lock, an_owner_that_is_killed_leaves_it_abandoned_once) {
    for (const bool in_order : {false, true}) {
        child owner(holds, {name});
        owner.next_line();
        EXPECT_TRUE(is_there());
        if (!in_order)
            owner.kill();
        EXPECT_EQ(owner.finish(), in_order ? 0 : -1);
        EXPECT_EQ(code_of(open() != nullptr), codes::file_not_found) << "nobody has it";
    }
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

// It leaves the wait its lock.
TEST_F(process_lock, a_handle_closed_under_a_waiting_thread) {
    child owner(holds, {name});
    ASSERT_EQ(owner.next_line(), "held");
    ZU_lock_process kept = create();
    std::thread waiting([&] { EXPECT_FALSE(ZU_lock_process_lock(kept)) << "the owner was killed"; });
    ZU_sleep(100); // Time for it to fall asleep.
    EXPECT_TRUE(ZU_lock_process_close(kept));
    owner.kill();
    waiting.join();
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
