// Numbers of the layer's own wide formatter beside the C library's, whose digits it takes.
#include <cfloat>
#include <cmath>

#include "support/test.h"

namespace {

template <class... Values>
std::string printed(const std::string& format, Values... values) {
    std::string text(static_cast<size_t>(std::snprintf(nullptr, 0, format.c_str(), values...)), 0);
    std::snprintf(text.data(), text.size() + 1, format.c_str(), values...);
    return text;
}

// One conversion in both formatters, into an area that is one unit too small, just fits, or has room for the terminator.
// An assertion for each of half a million cases would cost too much.
template <class Wide, class Narrow>
bool agree(const std::string& wide_format, Wide value, const std::string& format, Narrow other) {
    static unsigned calls = 0;
    const std::string expected = printed(format, other);
    const size_t length = expected.size(), room = std::max<size_t>(length + ++calls % 3, 1) - 1;
    std::string filled = (expected + '\0').substr(0, room);
    filled.resize(length + 2, '~');
    std::u16string area(length + 2, u'~');
    const std::u16string text = wide(wide_format);
    const int measured = platform::_snwprintf(nullptr, 0, text.c_str(), value);
    const int result = platform::_snwprintf(area.data(), room, text.c_str(), value);
    const int all = static_cast<int>(length);
    if (measured == all && result == (room < length ? -1 : all) && narrow(area) == filled)
        return true;
    ADD_FAILURE() << wide_format << " in " << room << " units gives " << measured << ", " << result << " and "
                  << narrow(area).c_str() << " in place of " << all << " and " << filled.c_str();
    return false;
}

// `start` is the percent sign with flags, width and precision.
void compare_integers(const std::string& start) {
    const bool is_of_signed_ones = start.find_first_of("+ ") != start.npos; // and nothing for the others
    for (char letter : std::string_view(is_of_signed_ones ? "di" : "diuoxX")) {
        for (int64_t value : {int64_t{0}, int64_t{-1}, int64_t{0x1FF}, int64_t{INT_MIN}, INT64_MIN}) {
            const int low = static_cast<int>(value);
            const auto word = static_cast<ptrdiff_t>(value);
            ASSERT_TRUE(agree(start + letter, low, start + letter, low));
            ASSERT_TRUE(agree(start + "hh" + letter, low, start + "h" + letter, low));
            for (const char* size : {"I32", "l"})
                ASSERT_TRUE(agree(start + size + letter, value, start + letter, low));
            for (const char* size : {"ll", "I64"})
                ASSERT_TRUE(agree(start + size + letter, value, start + "j" + letter, value));
            ASSERT_TRUE(agree(start + "I" + letter, word, start + "t" + letter, word));
        }
    }
}

void compare_floating_point(const std::string& start) {
    for (char letter : {'a', 'A', 'e', 'E', 'f', 'F', 'g', 'G'}) {
        for (double value : {0.0, -0.0, 0.5, 1.5, 2.5, -0.5, 0.1, 9.9999995, 1234.5678, 1e15, 1e100, -1e-100,
                             DBL_MAX, -DBL_MIN, 5e-324, double{INFINITY}, -double{INFINITY}, double{NAN}}) {
            const long double third = static_cast<long double>(value) / 3;
            ASSERT_TRUE(agree(start + letter, value, start + letter, value));
            ASSERT_TRUE(agree(start + "L" + letter, third, start + "L" + letter, third));
        }
    }
}

TEST(format_numbers, as_the_c_library_prints_them) {
    for (unsigned flags = 0; flags < 32 && !HasFailure(); ++flags) {
        std::string start = "%";
        for (unsigned i = 0; i < 5; ++i)
            start += std::string(flags >> i & 1, "-+ #0"[i]);
        for (const char* width : {"", "1", "6", "31"}) {
            for (const char* precision : {"", ".", ".1", ".9", ".40"}) {
                compare_integers(start + width + precision);
                compare_floating_point(start + width + precision);
            }
        }
    }
}

TEST(format_numbers, widths_and_precisions_beyond_any_area) {
    for (const char* text : {"500", "-500", "0500", "#.1099", ".1100", ".1101", "#.5000", "+09000.3000"}) {
        const std::string start = std::string("%") + text;
        for (char letter : {'a', 'e', 'f', 'g'}) {
            for (double value : {5e-324, -DBL_MAX, 0.0, 1.0 / 3, static_cast<double>(INFINITY)})
                EXPECT_TRUE(agree(start + letter, value, start + letter, value));
        }
        EXPECT_TRUE(agree(start + "d", -7, start + "d", -7));
    }
    for (const char* text : {"%.17000Lf", "%.20000Le"})
        EXPECT_TRUE(agree(text, LDBL_MIN / 3, text, LDBL_MIN / 3));
    EXPECT_EQ(platform::_snwprintf(nullptr, 0, u"%2147483647d%d", 1, 1), -1) << "a length that is no int";
    EXPECT_EQ(platform::_snwprintf(nullptr, 0, u"%99999999999999999999d", 1), INT_MAX);
}

TEST(format_numbers, a_decimal_point_of_several_bytes_is_one_character) {
    const file_place place;
    if (run_command("localedef -i ps_AF -f UTF-8 " + place.host_path("ps_AF.UTF-8")).exit_code != 0)
        GTEST_SKIP() << "the host cannot make the locale: no localedef, or not its sources";
    setenv("LOCPATH", place.host_path().c_str(), 1);
    ASSERT_STREQ(setlocale(LC_NUMERIC, "ps_AF.UTF-8"), "ps_AF.UTF-8");
    std::u16string area(2000, u'~');
    EXPECT_EQ(platform::_snwprintf(area.data(), area.size(), u"%.2f|%08.1f|%-7.1f|%e|%.1101f", 1.5, -0.5, 2.5,
                                   1e9, 0.5),
              1138);
    EXPECT_EQ(area.substr(0, 41), u"1\u066b50|-00000\u066b5|2\u066b5    |1\u066b000000e+09|0\u066b5000");
    setlocale(LC_NUMERIC, "C");
}

} // namespace
