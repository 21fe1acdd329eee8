#include "support/environment.h"

#include <cstdlib>
#include <string>

namespace zu_test {

// The runtime's own copy is what _tzset reads; an empty value removes the variable.
void set_variable(const char* name, const char* value) {
    _putenv((std::string(name) + "=" + (value ? value : "")).c_str());
}

} // namespace zu_test
