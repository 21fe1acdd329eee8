// Growable strings: capacities, shared buffers, aliasing, formatted appending, message templates.
#include <string>

#include <gtest/gtest.h>

#include "zu/zu.h"

namespace {

// A string of the test's own; `shared` pretends that others hold its buffer too.
struct string {
    ZU_s s = nullptr;

    string() = default;
    explicit string(const std::u16string& text) { append(text); }
    ~string() {
        if (s)
            header().reference_count = 1;
        ZU_s_destroy(&s);
    }

    void append(const std::u16string& text) {
        ZU_s_append_n(&s, text.c_str(), static_cast<uint32_t>(text.size()));
    }
    ZU_s_header& header() const { return reinterpret_cast<ZU_s_header*>(s)[-1]; }
    uint32_t capacity() const { return s ? header().capacity : 0; }
    std::u16string text() const { return {ZU_s_text(s), ZU_s_length(s)}; }
};

TEST(growable_string, null_is_the_empty_string) {
    ZU_s_destroy(nullptr);
    ZU_s s = nullptr;
    ZU_s_destroy(&s);
    ZU_s_clear(&s);
    ZU_s_make_lower(&s);
    EXPECT_EQ(ZU_s_reserve(&s, 0), &s);
    EXPECT_EQ(ZU_s_resize(&s, 0), &s);
    EXPECT_EQ(ZU_s_append_n(&s, nullptr, 0), &s);
    EXPECT_EQ(ZU_s_insert(&s, 0, nullptr), &s);
    EXPECT_EQ(ZU_s_insert(&s, 0, u""), &s);
    EXPECT_EQ(ZU_s_trim_end_c(&s, u'x'), 0u);
    EXPECT_EQ(ZU_s_replace_c(&s, u'x', u'y'), 0u);
    EXPECT_EQ(s, nullptr) << "nothing of this makes a buffer";
    EXPECT_EQ(std::u16string(ZU_s_text(s)), u"");
}

TEST(growable_string, room_grows_in_steps_of_64) {
    const struct {
        uint32_t asked, capacity;
    } rows[] = {{1, 63}, {63, 63}, {64, 127}, {127, 127}, {128, 191}, {1000, 1023}, {100000, 100031}};
    for (const auto& row : rows) {
        string reserved;
        ZU_s_reserve(&reserved.s, row.asked);
        EXPECT_EQ(reserved.capacity(), row.capacity) << row.asked;
    }
    string built;
    for (uint32_t length = 1; length <= 1000; ++length) {
        const ZU_s before = built.s;
        const uint32_t capacity = built.capacity();
        built.append(u"x");
        ASSERT_EQ(built.capacity(), length | 63u);
        if (length <= capacity) {
            ASSERT_EQ(built.s, before) << "room enough";
        }
    }
    EXPECT_EQ(built.text(), std::u16string(1000, u'x'));
}

TEST(growable_string, counts_beyond_the_text_take_what_there_is) {
    string s(u"xyz");
    ZU_s_append_n(&s.s, u"ab", 5);
    EXPECT_EQ(s.text(), u"xyzab");
    ZU_s_insert_n(&s.s, 1, u"cd", 5);
    EXPECT_EQ(s.text(), u"xcdyzab");
    ZU_s_insert_n(&s.s, 0xFFFFFFFF, u"end", 2);
    EXPECT_EQ(s.text(), u"xcdyzaben");
    ZU_s_append_n(&s.s, u"all", 0xFFFFFFFF);
    EXPECT_EQ(s.text(), u"xcdyzabenall");
    EXPECT_EQ(s.capacity(), 63u);
    ZU_s_append_n(&s.s, u"", 100);
    EXPECT_EQ(s.capacity(), 127u) << "the room asked for is made, whatever the text has";
}

TEST(growable_string, format_message) {
    string s;
    EXPECT_EQ(ZU_s_format_message(&s.s, u"%1 and %2%n", u"a", static_cast<const ZU_wchar*>(nullptr)), 14);
    EXPECT_EQ(s.text(), u"a and (null)\r\n");
    EXPECT_EQ(ZU_s_format_message(&s.s, u"100%% of %2, %1 and %2%", u"one", u"two"), 24);
    EXPECT_EQ(s.text(), u"100% of two, one and two");
}

} // namespace
