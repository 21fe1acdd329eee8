// The holiday calendar: order, growth, and use by several threads at once.
#include "support/portable.h"

namespace {

using days = std::vector<std::pair<uint32_t, uint32_t>>;

class holidays : public testing::Test {
protected:
    holidays() { EXPECT_TRUE(ZU_timer_holidays_init(&calendar)); }
    ~holidays() override { ZU_timer_holidays_destroy(&calendar); }

    bool call(ZU_bool (*function)(ZU_timer_holidays*, const ZU_holiday*), uint32_t month, uint32_t day) {
        const ZU_holiday holiday{month, day};
        return function(&calendar, &holiday);
    }
    bool add(uint32_t month, uint32_t day) { return call(ZU_timer_holidays_add, month, day); }
    bool del(uint32_t month, uint32_t day) { return call(ZU_timer_holidays_del, month, day); }
    bool find(uint32_t month, uint32_t day) { return call(ZU_timer_holidays_find, month, day); }
    days all() {
        auto* entries = reinterpret_cast<ZU_holiday*>(this); // to be overwritten
        const uint32_t count = ZU_timer_holidays_get_all(&calendar, &entries);
        EXPECT_EQ(entries == nullptr, count == 0);
        EXPECT_EQ(static_cast<uint32_t>(ZU_timer_holidays_count(&calendar)), count);
        days copy;
        for (uint32_t i = 0; i < count; ++i)
            copy.emplace_back(entries[i].month, entries[i].day);
        ZU_free(entries);
        return copy;
    }

    ZU_timer_holidays calendar;
};

TEST_F(holidays, keep_their_order_and_refuse_repeats) {
    EXPECT_EQ(all(), days{});
    EXPECT_TRUE(add(12, 25));
    EXPECT_TRUE(add(1, 1));
    EXPECT_FALSE(add(12, 25));
    EXPECT_TRUE(add(25, 12)) << "the pair counts, not its sum";
    EXPECT_TRUE(add(0, 30)) << "values are not checked";
    EXPECT_FALSE(del(1, 2));
    EXPECT_TRUE(del(1, 1));
    EXPECT_EQ(all(), (days{{12, 25}, {25, 12}, {0, 30}}));
    EXPECT_TRUE(del(0, 30));
    EXPECT_TRUE(del(12, 25));
    EXPECT_TRUE(find(25, 12));
    EXPECT_FALSE(find(12, 25)) << "a deleted day stands beyond the count";
    ZU_timer_holidays_destroy(nullptr);
    ZU_timer_holidays_destroy(&calendar);
    EXPECT_TRUE(ZU_timer_holidays_init(&calendar));
    EXPECT_EQ(all(), days{}) << "it can start again";
}

TEST_F(holidays, threads_that_fill_and_ask_at_once) {
    crew fillers;
    for (uint32_t month = 0; month < 4; ++month) {
        fillers.add([this, month] {
            for (uint32_t day = 0; day < 200; ++day) {
                EXPECT_TRUE(add(month, day));
                EXPECT_TRUE(find(month, day));
                EXPECT_EQ(day % 2 == 0 && del(month, day), day % 2 == 0);
            }
        });
    }
    fillers.join();
    EXPECT_EQ(all().size(), 400u);
    EXPECT_GE(calendar.capacity, 400u);
    EXPECT_LE(calendar.capacity, 408u);
    EXPECT_EQ(calendar.capacity % 8, 0u);
    const ZU_holiday* entries = calendar.entries;
    EXPECT_EQ(ZU_timer_holidays_clear(&calendar), 400);
    EXPECT_FALSE(find(2, 1));
    EXPECT_TRUE(add(2, 1));
    EXPECT_EQ(calendar.entries, entries);
}

} // namespace
