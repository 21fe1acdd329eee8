// Growable strings: capacities, shared buffers, aliasing, zero characters, formatted appending, message templates.
#include "support/test.h"

namespace {

struct string {
    ZU_s s = nullptr;

    string() = default;
    explicit string(const std::u16string& text) { append(text); }
    ~string() { ZU_s_destroy(&s); }
    string(const string&) = delete;

    void append(const std::u16string& text) {
        ZU_s_append_n(&s, text.c_str(), static_cast<uint32_t>(text.size()));
    }
    ZU_s_header& header() const { return reinterpret_cast<ZU_s_header*>(s)[-1]; }
    uint32_t capacity() const { return s ? header().capacity : 0; }
    std::u16string text() const { return {ZU_s_text(s), ZU_s_length(s)}; }
};

TEST(growable_string, null_is_the_empty_string_and_counts_take_what_there_is) {
    ZU_s none = nullptr;
    ZU_s_destroy(nullptr);
    ZU_s_destroy(&none);
    ZU_s_clear(&none);
    ZU_s_make_lower(&none);
    ZU_s_insert(ZU_s_append_n(ZU_s_resize(ZU_s_reserve(&none, 0), 0), nullptr, 0), 0, nullptr);
    EXPECT_EQ(ZU_s_trim_end_c(&none, u'x') + ZU_s_replace_c(ZU_s_assign_s(&none, &none), u'x', u'y'), 0u);
    EXPECT_EQ(none, nullptr) << "nothing of this makes a buffer";
    EXPECT_EQ(std::u16string(ZU_s_text(none)), u"");

    string s(u"xyz"), empty;
    ZU_s_insert_n(ZU_s_append_n(&s.s, u"ab", 5), 1, u"cd", 5);
    ZU_s_append_n(ZU_s_insert_n(&s.s, 0xFFFFFFFF, u"end", 2), u"all", 0xFFFFFFFF);
    EXPECT_EQ(s.text(), u"xcdyzabenall");
    ZU_s_append_n(&s.s, u"", 100);
    EXPECT_EQ(s.capacity(), 127u) << "the room asked for is made, whatever the text has";
    ZU_s_append_n(&empty.s, u"", 0xFFFFFFFF);
    EXPECT_EQ(empty.text(), u"");
}

// Text and capacity as they have to be, told by a standard string.
struct model {
    std::u16string text;
    uint32_t capacity = 0;

    void grow(size_t n) { capacity = capacity < n ? static_cast<uint32_t>(n) | 63 : capacity; }
    void insert(size_t at, const std::u16string& added, size_t n) {
        grow(n ? text.size() + n : 0);
        text.insert(at, added.substr(0, n));
    }
    void append_formatted(const std::u16string& added) {
        if (text.size() + 63 > capacity)
            grow(text.size() + 127);
        while (text.size() + added.size() > capacity)
            grow(capacity + 128);
        text += added;
    }
};

TEST(growable_string, long_sequences_of_operations_keep_text_and_capacity) {
    std::mt19937 random(4711);
    const auto below = [&](size_t n) { return static_cast<uint32_t>(random() % n); };
    for (int round = 0; round < 300; ++round) {
        string s;
        model expected;
        for (int step = 0; step < 40; ++step) {
            const std::u16string piece(below(below(10) == 0 ? 700 : 40),
                                       static_cast<char16_t>(u'a' + below(26)));
            const uint32_t n = below(piece.size() + 8);
            const size_t length = expected.text.size();
            const uint32_t at = below(length + 1);
            switch (below(8)) {
            case 0:
                ZU_s_append_n(&s.s, piece.c_str(), n);
                expected.insert(length, piece, n);
                break;
            case 1:
                ZU_s_insert_n(&s.s, at, piece.c_str(), n);
                expected.insert(at, piece, n);
                break;
            case 2: // its own text, from some place on; the terminator is such a place too
                ZU_s_append_n(&s.s, s.s ? s.s + at : u"", n);
                expected.insert(length, expected.text.substr(at), n);
                break;
            case 3:
                ZU_s_insert_n(&s.s, at, s.s ? s.s + at / 2 : u"", n);
                expected.insert(at, expected.text.substr(at / 2), n);
                break;
            case 4:
                ZU_s_append_sprintf(&s.s, u"%s<%d>", piece.c_str(), 7);
                expected.append_formatted(piece + u"<7>");
                break;
            case 5:
                ZU_s_resize(&s.s, at + 3);
                expected.text.resize(std::min<size_t>(length, at + 3));
                break;
            case 6:
                ZU_s_reserve(&s.s, n);
                expected.grow(n);
                break;
            default:
                const size_t kept = expected.text.find_last_not_of(piece.c_str()[0]) + 1;
                ASSERT_EQ(ZU_s_trim_end_c(&s.s, piece.c_str()[0]), length - kept);
                expected.text.resize(kept);
            }
            ASSERT_TRUE(s.text() == expected.text && s.capacity() == expected.capacity
                        && (!s.s || s.s[ZU_s_length(s.s)] == 0))
                << "round " << round << " step " << step;
        }
    }
}

TEST(growable_string, growing_cuts_at_the_first_zero_character) {
    const std::u16string long_text(1000, u'x');
    const struct {
        const char* how;
        void (*put)(ZU_s* s);
        size_t kept;
    } rows[] = {
        {"set", [](ZU_s* s) { ZU_s_set_at(s, 3, 0); }, 3},
        {"replaced", [](ZU_s* s) { (*s)[2] = u'y', ZU_s_replace_c(s, u'y', 0); }, 2},
        {"formatted", [](ZU_s* s) { ZU_s_resize(s, 5), ZU_s_append_sprintf(s, u"%c%*d", 0, 900, 1); }, 5},
        {"trimmed behind its back", [](ZU_s* s) { ZU_trim_end_char(*s + 990, u'x'); }, 990},
    };
    for (const auto& row : rows) {
        string s(long_text);
        s.append(std::u16string(100, u'x')); // a second growth: the text is known by now
        ZU_s_resize(&s.s, 1000);
        row.put(&s.s);
        ZU_s_reserve(&s.s, s.capacity() + 1);
        EXPECT_EQ(s.text(), long_text.substr(0, row.kept)) << row.how;
        EXPECT_EQ(s.header().reference_count, 1);
    }
    string brief(u"abcdef");
    brief.s[3] = 0;
    ZU_s_insert_n(&brief.s, 5, u"xy", 100);
    EXPECT_EQ(brief.text(), u"abcxy") << "a place behind the cut is its end";
}

// Other holders see nothing of what an operation does, and the last of them still has the text.
TEST(growable_string, a_shared_buffer_is_copied_before_it_is_written) {
    const struct {
        const char* name;
        void (*change)(ZU_s* s);
        std::u16string after;
    } rows[] = {
        {"append", [](ZU_s* s) { ZU_s_append_n(s, u"x", 1); }, u"TextTextx"},
        {"insert", [](ZU_s* s) { ZU_s_insert(s, 0, u"x"); }, u"xTextText"},
        {"format", [](ZU_s* s) { ZU_s_append_sprintf(s, u"%d", 1); }, u"TextText1"},
        {"set", [](ZU_s* s) { ZU_s_set_at(s, 0, u't'); }, u"textText"},
        {"resize", [](ZU_s* s) { ZU_s_resize(s, 2); }, u"Te"},
        {"trim", [](ZU_s* s) { ZU_s_trim_end_c(s, u't'); }, u"TextTex"},
        {"replace", [](ZU_s* s) { ZU_s_replace_c(s, u'T', u't'); }, u"texttext"},
        {"clear", [](ZU_s* s) { ZU_s_clear(s); }, u""},
        {"reserve", [](ZU_s* s) { ZU_s_reserve(s, 200); }, u"TextText"},
    };
    for (const auto& row : rows) {
        string first(u"TextText"), second;
        ZU_s_reserve(&first.s, 150); // room for everything: only the count asks for a copy
        second.s = first.s;
        first.header().reference_count = 2;
        ZU_s_reserve(&second.s, 150);
        EXPECT_EQ(first.s, second.s) << "room enough, and nothing to be written";
        row.change(&second.s);
        EXPECT_EQ(second.text(), row.after) << row.name;
        EXPECT_TRUE(first.text() == u"TextText" && first.header().reference_count == 1 && first.s != second.s)
            << row.name;
    }
}

TEST(growable_string, assigning_characters_and_case) {
    string s(u"some text"), source(u"other@AZ[`az{\u00c4\u00e4\uff21");
    const ZU_s none = nullptr;
    ZU_s_assign_s(&s.s, &none);
    EXPECT_EQ(s.text(), u"");
    EXPECT_EQ(s.capacity(), 63u) << "the buffer stays";
    ZU_s_assign_s(&s.s, &source.s);
    EXPECT_EQ(s.text(), source.text());
    EXPECT_EQ(ZU_s_set_at(&s.s, 1, u'T'), u't');
    EXPECT_EQ(ZU_s_replace_c(&s.s, u'o', u'0'), 1u);
    ZU_s_make_lower(&s.s);
    EXPECT_EQ(s.text(), u"0ther@az[`az{\u00c4\u00e4\uff21");
    ZU_s_swap(&s.s, &source.s);
    ZU_s_make_upper(&source.s);
    EXPECT_EQ(source.text(), u"0THER@AZ[`AZ{\u00c4\u00e4\uff21");
}

TEST(growable_string, formatted_text_of_any_length) {
    SetLastError(4711);
    for (uint32_t length : {0u, 63u, 127u, 128u, 200u, 255u, 256u, 100000u, 2000000u}) {
        model expected;
        expected.append_formatted(std::u16string(length, u'x'));
        string s;
        ZU_s_sprintf(&s.s, u"%s", expected.text.c_str());
        EXPECT_TRUE(s.text() == expected.text) << length;
        EXPECT_EQ(s.capacity(), expected.capacity) << length;
        ZU_s_sprintf(&s.s, u"");
        EXPECT_EQ(s.text(), u"");
    }
    EXPECT_EQ(GetLastError(), 4711u);
}

TEST(message_template, inserts_line_ends_and_conversions_of_its_own) {
    const auto* none = static_cast<const ZU_wchar*>(nullptr);
    std::u16string most, most_text;
    for (int i = 0; i < 128; ++i)
        most += u"%1", most_text += u"one";
    const struct {
        std::u16string message, expected;
    } rows[] = {
        // clang-format off
        {u"", u""}, {u"%1 and %3%n", u"one and (null)\r\n"}, {u"%2%1%2", u"twoonetwo"}, {u"100%% of %2%", u"100% of two"},
        {u"%%1", u"%1"}, {u"%-5s|%y", u"(null)|y"}, {u"text %0", u""}, {most, most_text}, {most + u"%1", u""},
        {u"%2%s|%1", u"twoone|(null)"}, // its own conversion takes the second insert, and "%1" what follows: nothing
        {u"%" + std::u16string(62, u'0') + u"21", u"two1"}, // a number has 63 digits at most
        // clang-format on
    };
    for (const auto& row : rows) {
        string s(u"before");
        EXPECT_EQ(ZU_s_format_message(&s.s, row.message.c_str(), u"one", u"two", none),
                  static_cast<int32_t>(row.expected.size()));
        EXPECT_EQ(s.text(), row.expected);
    }
}

TEST(growable_string, what_no_block_can_hold_is_memory_that_ran_out) {
    if (address_space_is_not_limited())
        GTEST_SKIP() << "a sanitizer's shadow memory does not live under an address-space limit";
    const auto report = [](void (*exhaust)(ZU_s*)) {
        return run_child([=] {
                   const rlimit limit{1u << 30, 1u << 30};
                   ZU_s s = nullptr;
                   if (setrlimit(RLIMIT_AS, &limit) == 0)
                       exhaust(&s);
               })
            .error_output;
    };
    const std::string start = "error (ZU_memory):Failed to allocate memory. size:";
    EXPECT_EQ(report([](ZU_s* s) { ZU_s_reserve(s, 0x30000000); }), start + "1610612876. errno:12.\n");
    EXPECT_EQ(report([](ZU_s* s) { ZU_s_reserve(s, 0xFFFFFFFF); }).rfind(start, 0), 0u);
    EXPECT_EQ(report([](ZU_s* s) { ZU_s_sprintf(s, u"%2147483647d%5d", 1, 1); }).rfind(start, 0), 0u);
}

} // namespace
