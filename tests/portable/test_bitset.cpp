// Bitsets: growth on every access, the value of new bits, and the text form.
#include "support/portable.h"

namespace {

std::u16string text_of(const ZU_bitset* bitset, bool low_first) {
    ZU_s text = nullptr;
    ZU_s_insert(&text, 0, u"what was there before");
    ZU_bitset_to_str(bitset, low_first, &text);
    const std::u16string copy(ZU_s_text(text), ZU_s_length(text));
    ZU_s_destroy(&text);
    return copy;
}

TEST(bitset, random_calls_against_a_model) {
    std::mt19937 random(5);
    for (int set = 0; set < 200; ++set) {
        const bool fill = set % 2, growable = set % 4 < 2;
        const uint32_t size = random() % 70 + !growable;
        ZU_bitset* const bitset = ZU_new_bitset(size, fill ? 0x80 : 0, growable);
        std::vector<bool> model(size, fill);
        for (int round = 0; round < 300; ++round) {
            // A set of fixed size holds whole bytes, of which the last bits carry the fill as well.
            const uint32_t index = random() % (growable ? model.size() + 50 : (size + 7) / 8 * 8);
            if (index >= model.size())
                model.resize(index + 1, fill);
            const auto call = std::array{ZU_test_bit, ZU_clear_bit, ZU_set_bit}[random() % 3];
            ASSERT_EQ(call(bitset, index), model[index]) << index;
            if (call != ZU_test_bit)
                model[index] = call == ZU_set_bit;
            ASSERT_EQ(ZU_bitset_size(bitset), growable ? model.size() : size);
        }
        std::u16string text;
        for (uint32_t i = 0; i < ZU_bitset_size(bitset); ++i)
            text.push_back(model[i] ? u'1' : u'0');
        EXPECT_EQ(text_of(bitset, true), text);
        EXPECT_EQ(text_of(bitset, false), std::u16string(text.rbegin(), text.rend()));
        ZU_free_bitset(bitset);
    }
}

TEST(bitset, empty_large_and_null) {
    ZU_bitset* bitset = ZU_new_bitset(0, 1, 1);
    EXPECT_EQ(text_of(bitset, true), u"");
    EXPECT_EQ(ZU_clear_bit(bitset, 1000000), 1) << "a bit that was there to be cleared by growing alone";
    EXPECT_TRUE(text_of(bitset, true) == std::u16string(1000000, u'1') + u'0');
    ZU_free_bitset(bitset);
    ZU_free_bitset(nullptr);

    bitset = ZU_new_bitset(0xFFFFFFFF, 0, 0);
    EXPECT_EQ(ZU_set_bit(bitset, 0xFFFFFFFE), 0) << "the last bit of the largest set";
    EXPECT_EQ(ZU_test_bit(bitset, 0xFFFFFFFE), 1);
    ZU_free_bitset(bitset);
}

} // namespace
