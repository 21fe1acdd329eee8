// Dynamic array: growth, order, and lists of texts.
#include "support/portable.h"

namespace {

using list = std::vector<std::u16string>;

list texts(const ZU_DA& array) {
    list all;
    for (uint32_t i = 0; i < array.count; ++i)
        all.emplace_back(static_cast<const ZU_wchar*>(array.items[i]));
    return all;
}

TEST(array, random_adds_and_deletes_against_a_model) {
    uint32_t capacity = 5; // places that the caller made, in a block no larger than that
    ZU_DA array{0, capacity, static_cast<void**>(ZU_malloc(capacity * sizeof(void*)))};
    std::vector<void*> model;
    std::mt19937 random(1);
    for (int round = 0; round < 5000; ++round) {
        if (random() % 5 != 0) {
            const uint32_t size = random() % 40;
            auto* const added = static_cast<uint8_t*>(ZU_DANewItem(&array, size));
            ASSERT_TRUE(std::all_of(added, added + size, [](uint8_t byte) { return byte == 0; }));
            std::memset(added, 0xFF, size); // so that a block used again is not zero by chance
            if (model.size() == capacity)
                capacity += 4;
            model.push_back(added);
        } else {
            const size_t index = random() % (model.size() + 2);
            const bool present = index < model.size();
            if (random() % 2 == 0)
                ASSERT_EQ(ZU_DADeleteItemByIndex(&array, static_cast<uint32_t>(index)), present);
            else
                ASSERT_EQ(ZU_DADeleteItemByValue(&array, present ? model[index] : &model), present);
            if (present) {
                model.erase(model.begin() + static_cast<ptrdiff_t>(index));
                ASSERT_EQ(array.items[model.size()], nullptr) << "the place that became free";
            }
        }
        ASSERT_EQ(std::pair(size_t{array.count}, size_t{array.capacity}),
                  std::pair(model.size(), size_t{capacity}))
            << "in fours, and never less";
    }
    EXPECT_TRUE(std::equal(model.begin(), model.end(), array.items));
    ZU_DAFreeItems(&array);
    EXPECT_EQ(array.items, nullptr);
    EXPECT_EQ(std::pair(array.count, array.capacity), std::pair(0u, 0u));
    EXPECT_FALSE(ZU_DADeleteItemByIndex(&array, 0) || ZU_DADeleteItemByValue(&array, nullptr));
    ZU_DAFreeItems(&array);
}

TEST(array, lists_of_texts) {
    ZU_DA array, copy{};
    std::memset(&array, 0xAB, sizeof array);
    ZU_DAInit(&array);
    for (const std::u16string text : {u"a", u"bc", u"", u"bc", u"BC", u"bcd"})
        ZU_DADupItem(&array, text.c_str(), static_cast<uint32_t>((text.size() + 1) * sizeof(char16_t)));
    EXPECT_EQ(ZU_DADupStrings(&copy, &array), 6u);
    EXPECT_TRUE(ZU_DADeleteStringByContent(&array, u"bc"));
    EXPECT_EQ(texts(array), (list{u"a", u"", u"bc", u"BC", u"bcd"})) << "the first alone";
    EXPECT_TRUE(ZU_DADeleteStringByContent(&array, u""));
    EXPECT_FALSE(ZU_DADeleteStringByContent(&array, u"") || ZU_DADeleteStringByContent(&array, u"b"));
    EXPECT_EQ(texts(copy), (list{u"a", u"bc", u"", u"bc", u"BC", u"bcd"})) << "copies of their own";
    EXPECT_EQ(ZU_DADupStrings(&array, &array), 4u) << "from itself";
    EXPECT_EQ(texts(array), (list{u"a", u"bc", u"BC", u"bcd", u"a", u"bc", u"BC", u"bcd"}));
    ZU_DAFreeItems(&copy);
    ZU_DAFreeItems(&array);
}

} // namespace
