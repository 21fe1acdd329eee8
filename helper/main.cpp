// zu-helper COMMAND [ARGUMENT...]: started by the library, not by hand.
#include <cstdio>
#include <cstring>

#include "helper/helper.h"

namespace {

struct command {
    const char* name;
    int (*run)(int count, char** arguments);
};

constexpr command commands[] = {
    {"ended", zu_helper::ended},
    {"logon", zu_helper::logon},
    {"service", zu_helper::service},
    {"unit", zu_helper::unit},
};

} // namespace

int main(int count, char** arguments) {
    for (const command& known : commands) {
        if (count > 1 && std::strcmp(arguments[1], known.name) == 0)
            return known.run(count - 2, arguments + 2);
    }
    std::fputs("zu-helper is a part of libzu, which starts it by itself.\n", stderr);
    return 2;
}
