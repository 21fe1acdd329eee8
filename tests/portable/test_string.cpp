// Growable strings: capacities, shared buffers, aliasing, zero characters, formatted appending beside the C library,
// message templates. Strings of fixed capacity, and byte buffers.
#include <cfloat>
#include <cmath>

#include "support/portable.h"

namespace {

using namespace std::string_literals;

struct string {
    ZU_s s = nullptr;

    explicit string(const std::u16string& text = u"") { append(text); }
    ~string() { ZU_s_destroy(&s); }
    string(const string&) = delete;

    void append(const std::u16string& text) {
        ZU_s_append_n(&s, text.c_str(), static_cast<uint32_t>(text.size()));
    }
    ZU_s_header& header() const { return reinterpret_cast<ZU_s_header*>(s)[-1]; }
    uint32_t capacity() const { return s ? header().capacity : 0; }
    std::u16string text() const { return {ZU_s_text(s), ZU_s_length(s)}; }
};

TEST(growable_string, null_and_counts_beyond_the_end) {
    ZU_s none = nullptr;
    ZU_s_destroy(nullptr);
    ZU_s_destroy(&none);
    ZU_s_clear(&none);
    ZU_s_make_lower(&none);
    ZU_s_insert(ZU_s_append_n(ZU_s_resize(ZU_s_reserve(&none, 0), 0), nullptr, 0), 0, nullptr);
    EXPECT_EQ(ZU_s_trim_end_c(&none, u'x') + ZU_s_replace_c(ZU_s_assign_s(&none, &none), u'x', u'y'), 0u);
    EXPECT_EQ(none, nullptr) << "nothing of this makes a buffer";
    EXPECT_EQ(std::u16string(ZU_s_text(none)), u"");

    string s(u"xyz");
    ZU_s_insert_n(ZU_s_append_n(&s.s, u"ab", 5), 1, u"cd", 5);
    ZU_s_append_n(ZU_s_insert_n(&s.s, 0xFFFFFFFF, u"end", 2), u"all", 0xFFFFFFFF);
    EXPECT_EQ(s.text(), u"xcdyzabenall");
    ZU_s_append_n(&s.s, u"", 100);
    EXPECT_EQ(s.capacity(), 127u) << "the room asked for is made, whatever the text has";
    ZU_s_append_n(&none, u"", 0xFFFFFFFF);
    EXPECT_EQ(ZU_s_length(none), 0u);
    ZU_s_destroy(&none);
}

// Sometimes another holder has the buffer too: it sees nothing of what is written, and is the last one afterwards.
TEST(growable_string, random_operations_beside_a_model) {
    std::mt19937 random(4711);
    const auto below = [&](size_t n) { return static_cast<uint32_t>(random() % n); };
    for (int round = 0; round < 300; ++round) {
        string s;
        std::u16string expected;
        for (int step = 0; step < 40; ++step) {
            const auto length = static_cast<uint32_t>(expected.size());
            const uint32_t at = below(length + 1), from = below(length + 1), n = below(48);
            const char16_t letter = static_cast<char16_t>(u'a' + below(26));
            std::u16string piece(below(below(10) == 0 ? 700 : 40), letter);
            const bool is_own = s.s && below(2) == 0; // from some place on, which may be the terminator's
            if (is_own)
                piece = expected.substr(from);
            const ZU_wchar* source = is_own ? s.s + from : piece.c_str();
            const uint32_t sum = n ? length + n : 0;
            const std::u16string before = expected;
            string held;
            if (s.s && below(4) == 0) {
                held.s = s.s;
                s.header().reference_count = 2;
            }
            uint32_t needed = 0, capacity = s.capacity();
            switch (below(9)) {
            case 0: ZU_s_append_n(&s.s, source, n), expected.append(piece, 0, n), needed = sum; break;
            case 1: ZU_s_insert_n(&s.s, at, source, n), expected.insert(at, piece, 0, n), needed = sum; break;
            case 2:
                ZU_s_append_sprintf(&s.s, u"%s<%d>", piece.c_str(), 7);
                expected += piece + u"<7>", capacity = s.capacity(); // which has a test of its own
                break;
            case 3: ZU_s_resize(&s.s, at + 3), expected.resize(std::min(length, at + 3)); break;
            case 4: ZU_s_reserve(&s.s, n), needed = n; break;
            case 5: ZU_s_clear(&s.s), expected.clear(); break;
            case 6:
                std::replace(expected.begin(), expected.end(), letter, u'-');
                ASSERT_EQ(ZU_s_replace_c(&s.s, letter, u'-'),
                          std::count(before.begin(), before.end(), letter));
                break;
            case 7:
                if (at < length) {
                    ASSERT_EQ(ZU_s_set_at(&s.s, at, letter), std::exchange(expected[at], letter));
                }
                break;
            default:
                expected.resize(expected.find_last_not_of(letter) + 1);
                ASSERT_EQ(ZU_s_trim_end_c(&s.s, letter), length - expected.size());
            }
            SCOPED_TRACE(testing::Message() << "round " << round << " step " << step);
            ASSERT_EQ(s.text(), expected);
            ASSERT_EQ(s.s ? s.s[ZU_s_length(s.s)] : 0, 0);
            if (held.s) {
                ASSERT_EQ(held.text(), before);
                ASSERT_EQ(held.header().reference_count, held.s == s.s ? 2 : 1);
            } else {
                ASSERT_EQ(s.capacity(), needed > capacity ? needed | 63 : capacity);
            }
        }
    }
}

TEST(growable_string, formatted_text_of_any_length_gets_room_in_steps) {
    SetLastError(4711);
    const std::pair<uint32_t, uint32_t> rows[] = {{0, 127},   {127, 127},       {128, 255},        {255, 255},
                                                  {256, 383}, {100000, 100095}, {2000000, 2000127}};
    for (const auto& [length, capacity] : rows) {
        const std::u16string text(length, u'x');
        string s;
        ZU_s_sprintf(&s.s, u"%s", text.c_str());
        EXPECT_TRUE(s.text() == text) << length; // too long to print
        EXPECT_EQ(s.capacity(), capacity) << length;
        ZU_s_sprintf(&s.s, u"");
        EXPECT_EQ(s.text(), u"");
    }
    for (uint32_t reserved : {63, 64}) {
        string s(u"x");
        ZU_s_append_sprintf(ZU_s_reserve(&s.s, reserved), u"y");
        EXPECT_EQ(s.capacity(), reserved == 63 ? 191u : 127u) << "63 characters more have to fit beforehand";
    }
    EXPECT_EQ(GetLastError(), 4711u);
}

TEST(growable_string, growing_cuts_at_the_first_zero_character) {
    const std::u16string long_text(1000, u'x');
    const std::pair<size_t, void (*)(ZU_s * s)> rows[] = {
        {3, [](ZU_s* s) { ZU_s_set_at(s, 3, 0); }},
        {5, [](ZU_s* s) { ZU_s_append_sprintf(ZU_s_resize(s, 5), u"%c%*d", 0, 900, 1); }},
        {990, [](ZU_s* s) { ZU_trim_end_char(*s + 990, u'x'); }}, // behind its back
    };
    for (const auto& [kept, put] : rows) {
        string s(long_text);
        put(&s.s);
        ZU_s_reserve(&s.s, s.capacity() + 1);
        EXPECT_EQ(s.text(), long_text.substr(0, kept));
    }
    string brief(u"abcdef");
    brief.s[3] = 0;
    ZU_s_insert_n(&brief.s, 5, u"xy", 100);
    EXPECT_EQ(brief.text(), u"abcxy") << "a place behind the cut is its end";
}

TEST(growable_string, assigning_characters_and_case) {
    string s(u"some text"), source(u"other@AZ[`az{\u00c4\u00e4\uff21"), none;
    ZU_s_assign_s(&s.s, &none.s);
    EXPECT_EQ(s.text(), u"");
    EXPECT_EQ(s.capacity(), 63u) << "the buffer stays";
    ZU_s_assign_s(&s.s, &source.s);
    EXPECT_EQ(s.text(), source.text());
    EXPECT_EQ(ZU_s_set_at(&s.s, 1, u'T'), u't');
    EXPECT_EQ(ZU_s_replace_c(&s.s, u'o', u'0'), 1u);
    ZU_s_make_lower(&s.s);
    ZU_s_make_upper(&source.s);
    ZU_s_swap(&s.s, &source.s);
    EXPECT_EQ(source.text(), u"0ther@az[`az{\u00c4\u00e4\uff21");
    EXPECT_EQ(s.text(), u"OTHER@AZ[`AZ{\u00c4\u00e4\uff21");
}

// One conversion, whose output has room for its terminator alone, for nothing behind it, or not enough. An assertion
// for each of half a million cases would cost too much.
template <class Value>
bool agree(const std::string& conversion, Value value, const std::string& expected) {
    static unsigned calls = 0;
    const size_t length = expected.size(), first_room = 127 + ++calls % 3;
    const size_t before = first_room - std::min(length, first_room);
    string s;
    ZU_s_sprintf(&s.s, wide("%*s" + conversion).c_str(), static_cast<int>(before), u"", value);
    if (std::u16string_view(ZU_s_text(s.s)).substr(before)
        == std::u16string(expected.begin(), expected.end()))
        return true;
    ADD_FAILURE() << conversion << " behind " << before << ": " << narrow(s.text()) << ", not " << expected;
    return false;
}

template <class Value>
std::string printed(const std::string& format, Value value) {
    static char text[12000];
    if constexpr (std::is_same_v<Value, double>)
        return {text, static_cast<size_t>(print_as_the_library(text, sizeof text, format.c_str(), value))};
    return {text, static_cast<size_t>(std::snprintf(text, sizeof text, format.c_str(), value))};
}

// `start` is the percent sign with flags, width and precision.
void compare_integers(const std::string& start) {
    const bool is_of_signed_ones = start.find_first_of("+ ") != start.npos; // and nothing for the others
    for (char letter : std::string_view(is_of_signed_ones ? "di" : "diuoxX")) {
        for (int64_t value : {int64_t{0}, int64_t{-1}, int64_t{0x1FF}, int64_t{INT_MIN}, INT64_MIN}) {
            const int low = static_cast<int>(value);
            const auto word = static_cast<ptrdiff_t>(value);
            ASSERT_TRUE(agree(start + "hh" + letter, value, printed(start + "h" + letter, low)));
            for (const char* size : {"", "I32", "l"})
                ASSERT_TRUE(agree(start + size + letter, value, printed(start + letter, low)));
            for (const char* size : {"ll", "I64"})
                ASSERT_TRUE(agree(start + size + letter, value, printed(start + "j" + letter, value)));
            ASSERT_TRUE(agree(start + "I" + letter, word, printed(start + "t" + letter, word)));
        }
    }
}

void compare_floating_point(const std::string& start) {
    for (char letter : {'a', 'A', 'e', 'E', 'f', 'F', 'g', 'G'}) {
        for (double value : {0.0, -0.0, 0.5, 1.5, 2.5, -0.5, 0.1, 9.9999995, 1234.5678, 1e15, 1e100, -1e-100,
                             DBL_MAX, -DBL_MIN, 5e-324, double{INFINITY}, -double{INFINITY}, double{NAN}})
            ASSERT_TRUE(agree(start + letter, value, printed(start + letter, value)));
    }
}

// Calls the function with every combination of flags, width and precision; or without the rare ones, in which a precision
// changes what # or 0 means.
void for_each_start(const char* high_precision, bool with_rare, void (*compare)(const std::string& start)) {
    for (unsigned flags = 0; flags < 32 && !testing::Test::HasFailure(); ++flags) {
        std::string start = "%";
        for (unsigned i = 0; i < 5; ++i)
            start += std::string(flags >> i & 1, "-+ 0#"[i]);
        for (const char* width : {"", "1", "6", "31"}) {
            for (const char* precision : {"", ".", ".1", ".9", high_precision})
                if (with_rare || !*precision || flags < 8)
                    compare(start + width + precision);
        }
    }
}

TEST(format_numbers, whole_numbers_as_the_c_library_prints_them) {
    for_each_start(".12", false, compare_integers);
}

TEST(format_numbers, floating_point_as_the_c_library_prints_it) {
    for_each_start(".40", true, compare_floating_point);
}

TEST(format_numbers, widths_and_precisions_beyond_any_area) {
    for (const std::string start :
         {"%500", "%-500", "%0500", "%#.1099", "%.1100", "%.1101", "%#.5000", "%+09000.3000"}) {
        for (char letter : {'a', 'e', 'f', 'g'}) {
            for (double value : {5e-324, -DBL_MAX, 0.0, 1.0 / 3, double{INFINITY}})
                EXPECT_TRUE(agree(start + letter, value, printed(start + letter, value)));
        }
        EXPECT_TRUE(start.find('.') != start.npos || agree(start + "d", -7, printed(start + "d", -7)));
    }
}

// Most texts are those of results/.
TEST(format_texts, rare_conversions) {
    string s;
    int stored = 7;
    ZU_s_sprintf(&s.s, u"%5%|%-%|%n%d|%06.d|%06.d|%-6.d|", &stored, 42, 0, 5, 0);
    EXPECT_EQ(s.text(), u"%|%|42|      |     5|      |");
    EXPECT_EQ(stored, 7) << "%n takes its argument";
    for_each_start(".60", true, compare_integers); // not after a failure: Wine would overrun its area
}

TEST(format_texts, nothing_is_read_behind_a_precision) {
    string s;
    const std::vector<char16_t> wide_open = {u'a', u'b', u'c'};
    const std::vector<char> narrow_open = {'a', 'b'};
    ZU_s_sprintf(&s.s, u"%.3s|%.2S|%.0s|%.s", wide_open.data(), narrow_open.data(), u"", u"ab");
    EXPECT_EQ(s.text(), u"abc|ab||");
}

TEST(message_template, inserts_line_ends_and_conversions_of_its_own) {
    const auto* none = static_cast<const ZU_wchar*>(nullptr);
    std::u16string most, most_text, signs, sign_text;
    for (int i = 0; i < 128; ++i)
        most += u"%1", most_text += u"one", signs += u"%%", sign_text += u'%';
    const std::pair<std::u16string, std::u16string> rows[] = {
        // clang-format off
        {u"", u""}, {u"%1 and %3%n", u"one and (null)\r\n"}, {u"%2%1%2", u"twoonetwo"}, {u"100%% of %2%", u"100% of two"},
        {u"%%1", u"%1"}, {u"%-5s|%y", u"(null)|y"}, {u"text %0", u""}, {most, most_text}, {most + u"%1", u""},
        {most + u"%d", u""}, {most + signs, most_text + sign_text},
        {u"%*d %1", u""}, {u"% -+#.*ls", u""}, {u"%1%*", u"one"}, // a number would be an address
        {u"%1%-%%*e", u""}, {u"%h%%*d", u""}, {u"%.1.%*c", u""}, {u"%I64%%*d", u""}, {u"%1%%*d", u"one%*d"},
        {u"%2%s|%1", u"twoone|(null)"}, // its own conversion takes the second insert, and "%1" what follows: nothing
        {u"%" + std::u16string(62, u'0') + u"21", u"two1"}, // a number has 63 digits at most
        // clang-format on
    };
    for (const auto& [message, expected] : rows) {
        string s(u"before");
        const int32_t length = ZU_s_format_message(&s.s, message.c_str(), u"one", u"two", none);
        EXPECT_EQ(s.text(), expected);
        EXPECT_EQ(length, static_cast<int32_t>(expected.size()));
    }
}

TEST(fixed_string, the_block_follows_the_length_that_was_held) {
    ZU_fixed_s s = {}, copy = {};
    ZU_fixed_s_create(&s, nullptr);
    EXPECT_EQ(s.text, nullptr);
    ZU_fixed_s_create(&s, u"abcdef");
    const ZU_wchar* block = s.text;
    ZU_fixed_s_assign(&s, s.text + 5);
    EXPECT_EQ(s.text, block) << "large enough by the length held";
    EXPECT_EQ(std::u16string(s.text), u"f");
    ZU_fixed_s_assign(&s, s.text + 3); // what is left of "abcdef" behind the terminator, longer than "f"
    EXPECT_EQ(std::u16string(s.text), u"def") << "the new block is filled before the old one goes";
    EXPECT_EQ(s.length, 3u);
    ZU_fixed_s_assign_s(&s, &s);
    ZU_fixed_s_assign_s(&copy, &s);
    EXPECT_EQ(std::u16string(copy.text), u"def");
    EXPECT_NE(copy.text, s.text);
    ZU_fixed_s_destroy(&s);
    ZU_fixed_s_assign_s(&copy, &s);
    EXPECT_EQ(copy.text, nullptr);
    EXPECT_EQ(copy.length, 0u);
}

TEST(fixed_string, the_serialised_form_counts_bytes_of_the_encoding) {
    const std::tuple<const ZU_wchar*, uint32_t, std::string> rows[] = {
        {nullptr, ZU_ENCODING_UTF8, "\0\0\0\0"s},
        {u"\u20ac", ZU_ENCODING_UTF8, "\3\0\0\0\xe2\x82\xac"s},
        {u"abc", 77, "\0\0\0\0"s}};
    for (const auto& [text, encoding, bytes] : rows) {
        ZU_fixed_s s = {};
        ZU_fixed_s_create(&s, text);
        uint8_t* block = nullptr;
        const int32_t size = ZU_fixed_s_to_buffer(&s, encoding, &block);
        EXPECT_EQ(std::string(block, block + size), bytes);
        ZU_free(block);
        ZU_fixed_s_destroy(&s);
    }
}

TEST(buffer, growth_and_ownership) {
    ZU_buf b = {}, other = {};
    ZU_buf_append(&b, 0, "", 0);
    EXPECT_EQ(b.data, nullptr);
    uint8_t* data = ZU_buf_get_ex(&b, 5, 0);
    EXPECT_EQ(ZU_buf_get_ex(&b, 8, 0), data);
    ZU_buf_append(&b, 0, "12345678", 8);
    ZU_buf_append(&b, 8, "9", 1);
    EXPECT_EQ(std::string(b.data, b.data + 9), "123456789");
    ZU_buf_append(&b, 9, b.data + 4, 5); // its own bytes, which move to a larger block
    ZU_buf_append(&b, 10, b.data + 9, 4);
    EXPECT_EQ(std::string(b.data, b.data + 14), "12345678955678");
    ZU_buf_append(&other, 1000, "beyond what there is", 20);
    EXPECT_EQ(std::string(other.data + 1000, other.data + 1020), "beyond what there is");
    ZU_buf_destroy(&other);
    data = b.data;
    EXPECT_EQ(ZU_buf_swap(&b, &other), &b);
    EXPECT_EQ(b.data, nullptr);
    uint32_t capacity = 0;
    EXPECT_EQ(ZU_buf_detach(&other, &capacity), data);
    EXPECT_EQ(capacity, 16u);
    EXPECT_EQ(ZU_buf_detach(&other, nullptr), nullptr);
    ZU_free(data);
    ZU_buf_get_ex(&b, 1, 0);
    ZU_buf_destroy(&b);
    EXPECT_EQ(b.data, nullptr);
    EXPECT_EQ(b.capacity, 0u);
    ZU_buf_destroy(nullptr);
}

} // namespace
