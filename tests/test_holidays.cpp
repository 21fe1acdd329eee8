// The holiday calendar: order, growth, and use by several threads at once.
#include "support/test.h"

namespace {

using days = std::vector<std::pair<uint32_t, uint32_t>>;

class holidays : public testing::Test {
protected:
    holidays() { EXPECT_TRUE(ZU_timer_holidays_init(&calendar)); }
    ~holidays() override { ZU_timer_holidays_destroy(&calendar); }

    bool add(uint32_t month, uint32_t day) { return call(ZU_timer_holidays_add, month, day); }
    bool del(uint32_t month, uint32_t day) { return call(ZU_timer_holidays_del, month, day); }
    bool find(uint32_t month, uint32_t day) { return call(ZU_timer_holidays_find, month, day); }
    days all() {
        auto* entries = reinterpret_cast<ZU_holiday*>(this); // to be overwritten
        const uint32_t count = ZU_timer_holidays_get_all(&calendar, &entries);
        EXPECT_EQ(entries == nullptr, count == 0);
        days copy;
        for (uint32_t i = 0; i < count; ++i)
            copy.emplace_back(entries[i].month, entries[i].day);
        ZU_free(entries);
        return copy;
    }

    ZU_timer_holidays calendar;

private:
    bool call(ZU_bool (*function)(ZU_timer_holidays*, const ZU_holiday*), uint32_t month, uint32_t day) {
        const ZU_holiday holiday{month, day};
        return function(&calendar, &holiday);
    }
};

TEST_F(holidays, keep_their_order_and_refuse_repeats) {
    EXPECT_EQ(all(), days{});
    EXPECT_TRUE(add(12, 25));
    EXPECT_FALSE(add(12, 25));
    EXPECT_EQ(ZU_timer_holidays_count(&calendar), 1);
    EXPECT_TRUE(add(1, 1));
    EXPECT_TRUE(add(25, 12)) << "the pair counts, not its sum";
    EXPECT_TRUE(add(0, 30)) << "values are not checked";
    EXPECT_FALSE(del(1, 2));
    EXPECT_TRUE(del(1, 1));
    EXPECT_EQ(all(), (days{{12, 25}, {25, 12}, {0, 30}}));
    EXPECT_TRUE(del(0, 30));
    EXPECT_TRUE(del(12, 25));
    EXPECT_EQ(all(), (days{{25, 12}}));
    EXPECT_TRUE(find(25, 12));
    EXPECT_FALSE(find(12, 25)) << "a deleted day stands beyond the count";
}

TEST_F(holidays, room_grows_by_eight_and_stays) {
    for (uint32_t day = 1; day <= 9; ++day) {
        EXPECT_TRUE(add(2, day));
        EXPECT_EQ(calendar.capacity, day <= 8 ? 8u : 16u);
    }
    const ZU_holiday* entries = calendar.entries;
    EXPECT_EQ(ZU_timer_holidays_clear(&calendar), 9);
    EXPECT_EQ(ZU_timer_holidays_count(&calendar), 0);
    EXPECT_FALSE(find(2, 1));
    for (uint32_t day = 1; day <= 16; ++day)
        EXPECT_TRUE(add(3, day));
    EXPECT_EQ(calendar.entries, entries);
    EXPECT_EQ(calendar.capacity, 16u);
    EXPECT_TRUE(find(3, 16));
    EXPECT_TRUE(del(3, 16)) << "the last of a full array";
    EXPECT_EQ(ZU_timer_holidays_clear(&calendar), 15);
    ZU_timer_holidays_destroy(nullptr);
    ZU_timer_holidays_destroy(&calendar);
    EXPECT_TRUE(calendar.capacity == 0 && calendar.count == 0 && !calendar.entries);
    EXPECT_TRUE(ZU_timer_holidays_init(&calendar)) << "it can start again";
}

TEST_F(holidays, threads_fill_and_ask_at_once) {
    constexpr uint32_t threads = 4, each = 200;
    crew fillers;
    for (uint32_t t = 0; t < threads; ++t) {
        fillers.add([this, t] {
            for (uint32_t i = 0; i < each; ++i) {
                EXPECT_TRUE(add(t, i));
                EXPECT_TRUE(find(t, i));
                if (i % 2) {
                    EXPECT_TRUE(del(t, i));
                }
            }
        });
    }
    fillers.join();
    EXPECT_EQ(ZU_timer_holidays_count(&calendar), static_cast<int32_t>(threads * each / 2));
    EXPECT_EQ(all().size(), threads * each / 2);
}

} // namespace
