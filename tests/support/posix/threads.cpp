#include "support/threads.h"

#include <unistd.h>

#include <fstream>
#include <string>

namespace zu_test {

void wait_until_asleep(uint32_t thread_id) {
    const std::string name = "/proc/self/task/" + std::to_string(thread_id) + "/stat";
    // Asleep several times in a row: not just in passing, at a lock on the way.
    for (int seen = 0; seen < 5;) {
        std::string line;
        std::getline(std::ifstream(name), line);
        const size_t state = line.rfind(')') + 2;
        seen = state < line.size() && line[state] == 'S' ? seen + 1 : 0;
        usleep(200);
    }
}

} // namespace zu_test
