#include "support/environment.h"

#include <pwd.h>
#include <time.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>

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

} // namespace zu_test
