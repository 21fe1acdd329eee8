#include "support/environment.h"

#include <pwd.h>
#include <sys/mman.h>
#include <time.h>
#include <unistd.h>

#include <cstdlib>

namespace zu_test {

void set_zone(const char* text) {
    text ? setenv("TZ", text, 1) : unsetenv("TZ");
    tzset();
}

bool has_zone(const char*) {
    return true;
}

int print_as_the_library(char* out, size_t size, const char* format, double value) {
    return std::snprintf(out, size, format, value);
}

char16_t* end_of_page() {
    static const auto page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    static void* const pages = mmap(nullptr, 2 * page, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    mprotect(pages, page, PROT_READ | PROT_WRITE);
    return static_cast<char16_t*>(pages) + page / 2;
}

std::u16string own_user() {
    return std::filesystem::path(getpwuid(geteuid())->pw_name).u16string();
}

std::filesystem::path own_program() {
    return std::filesystem::read_symlink("/proc/self/exe");
}

} // namespace zu_test
