// Numbers that Linux alone prints or reads: long doubles of a size of their own, lengths and numbers beyond an
// int, and a locale's decimal point.
#include <cfloat>
#include <cmath>

#include "support/test.h"

namespace {

TEST(format_numbers, long_ones_and_a_decimal_point_of_several_bytes) {
    std::u16string area(25000, u'~');
    std::string expected(25000, '~');
    for (long double value : {0.0L, -0.5L, 1e15L / 3, LDBL_MAX, -LDBL_MIN / 3, -HUGE_VALL}) {
        for (std::string letter : {"La", "LA", "Le", "LE", "Lf", "LF", "Lg", "LG"}) {
            for (const char* start : {"%", "%-31", "%+#.9", "% 031.40", "%.17000", "%.20000"}) {
                const std::string format = start + letter;
                ASSERT_EQ(platform::_snwprintf(area.data(), area.size(), wide(format).c_str(), value),
                          std::snprintf(expected.data(), expected.size(), format.c_str(), value));
                EXPECT_STREQ(narrow(area.c_str()).c_str(), expected.c_str()) << format;
            }
        }
    }
    EXPECT_EQ(platform::_snwprintf(nullptr, 0, u"%2147483647d%d", 1, 1), -1) << "a length that is no int";
    EXPECT_EQ(platform::_snwprintf(nullptr, 0, u"%99999999999999999999d", 1), INT_MAX);
    EXPECT_EQ(platform::_wtoi(u"-99999999999999999999999"), 159383553) << "numbers that are read wrap";

    const file_place place;
    if (run_command("localedef -i ps_AF -f UTF-8 " + place.host_path("ps_AF.UTF-8")).exit_code != 0)
        GTEST_SKIP() << "the host cannot make the locale: no localedef, or not its sources";
    setenv("LOCPATH", place.host_path().c_str(), 1);
    ASSERT_STREQ(setlocale(LC_NUMERIC, "ps_AF.UTF-8"), "ps_AF.UTF-8");
    EXPECT_EQ(platform::_snwprintf(area.data(), area.size(), u"%.2f|%08.1f|%-7.1f|%e|%.1101f", 1.5, -0.5, 2.5,
                                   1e9, 0.5),
              1138);
    EXPECT_EQ(area.substr(0, 41), u"1\u066b50|-00000\u066b5|2\u066b5    |1\u066b000000e+09|0\u066b5000");
}

} // namespace
