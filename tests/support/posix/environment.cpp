#include "support/environment.h"

#include <cstdlib>

namespace zu_test {

void set_variable(const char* name, const char* value) {
    value ? setenv(name, value, 1) : unsetenv(name);
}

bool has_zone(const char*) {
    return true;
}

} // namespace zu_test
