// The environment of a test's process.
#pragma once

#include <array>
#include <cstdint>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <string>

#include "zu/zu.h"

namespace zu_test {

// A sanitizer keeps memory of its own, and memory cannot be made scarce with a limit.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
inline constexpr bool built_with_sanitizer = true;
#else
inline constexpr bool built_with_sanitizer = false;
#endif

// Sets TZ, the zone in which the library, and the C library beside it, tell local time; null is the system's own.
void set_zone(const char* text);

// Whether this platform knows a zone by that text.
bool has_zone(const char* text);

// snprintf of the C library that the library calls.
int print_as_the_library(char* out, size_t size, const char* format, double value);

// Local time as the C library tells it, and the nine numbers with which its record begins, or which are the library's.
inline std::tm c_library_time(int64_t time) {
    const auto value = static_cast<std::time_t>(time);
    return *std::localtime(&value);
}
using numbers_of_tm = std::array<int32_t, 9>;
template <class record>
numbers_of_tm shown(const record& fields) {
    numbers_of_tm numbers;
    std::memcpy(&numbers, &fields, sizeof numbers);
    return numbers;
}
inline numbers_of_tm shown(ZU_time_t time) {
    ZU_tm fields;
    ZU_localtime(time, &fields);
    return shown(fields);
}

// The end of a page behind which nothing can be read or written; the page itself is the test's.
char16_t* end_of_page();

// The account of this process, its program, and its machine.
std::u16string own_user();
std::filesystem::path own_program();
inline std::u16string own_machine() {
    ZU_wchar name[65] = {};
    ZU_gethostname(name, 65);
    return name;
}

} // namespace zu_test
