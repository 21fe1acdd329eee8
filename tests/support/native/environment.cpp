#include "support/environment.h"

#include <windows.h>

#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>

namespace zu_test {

// The runtime's own copy is what _tzset reads; an empty value removes the variable.
void set_zone(const char* text) {
    _putenv((std::string("TZ=") + (text ? text : "")).c_str());
    _tzset();
}

// The runtime reads a name of three letters, an offset, and a second name for the daylight saving of the USA. It has no
// names of the zone database.
bool has_zone(const char* text) {
    return std::strchr(text, '/') == nullptr;
}

// The compiler has a snprintf of its own, which prints other exponents.
int print_as_the_library(char* out, size_t size, const char* format, double value) {
    return _snprintf(out, size, format, value);
}

char16_t* end_of_page() {
    constexpr size_t page = 4096;
    static void* const pages = VirtualAlloc(nullptr, 2 * page, MEM_RESERVE, PAGE_NOACCESS);
    return static_cast<char16_t*>(VirtualAlloc(pages, page, MEM_COMMIT, PAGE_READWRITE)) + page / 2;
}

std::u16string own_user() {
    char16_t name[257] = {};
    DWORD size = 257;
    GetUserNameW(reinterpret_cast<wchar_t*>(name), &size);
    return name;
}

std::filesystem::path own_program() {
    wchar_t program[MAX_PATH];
    GetModuleFileNameW(nullptr, program, MAX_PATH);
    return program;
}

} // namespace zu_test
