// The environment of a test's process.
#pragma once

#include <filesystem>
#include <string>

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

// The account of this process, and its program.
std::u16string own_user();
std::filesystem::path own_program();

} // namespace zu_test
