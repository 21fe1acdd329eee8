#include "support/environment.h"

#include <pwd.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cstdlib>

namespace zu_test {

void set_variable(const char* name, const char* value) {
    value ? setenv(name, value, 1) : unsetenv(name);
}

bool has_zone(const char*) {
    return true;
}

std::u16string own_user() {
    const std::string name = getpwuid(geteuid())->pw_name;
    std::u16string upper(name.size(), 0);
    std::transform(name.begin(), name.end(), upper.begin(), toupper);
    return upper;
}

} // namespace zu_test
