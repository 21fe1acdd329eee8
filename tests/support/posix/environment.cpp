#include "support/environment.h"

#include <pwd.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>

namespace zu_test {

void set_variable(const char* name, const char* value) {
    value ? setenv(name, value, 1) : unsetenv(name);
}

bool has_zone(const char*) {
    return true;
}

std::u16string own_user() {
    return std::filesystem::path(getpwuid(geteuid())->pw_name).u16string();
}

} // namespace zu_test
