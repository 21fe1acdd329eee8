#include "support/environment.h"

#include <pwd.h>
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

std::u16string own_user() {
    return std::filesystem::path(getpwuid(geteuid())->pw_name).u16string();
}

std::filesystem::path own_program() {
    return std::filesystem::read_symlink("/proc/self/exe");
}

} // namespace zu_test
