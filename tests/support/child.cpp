#include "support/child.h"

#include <cstdio>

#include <gtest/gtest.h>

namespace zu_test {

const part* part::first_ = nullptr;

part::part(const char* its_name, function plays) : name(its_name), plays_(plays), next_(first_) {
    first_ = this;
}

int part::play(const std::string& name, const words& arguments) {
    for (const part* one = first_; one; one = one->next_) {
        if (one->name == name)
            return one->plays_(arguments);
    }
    return 127;
}

void report(const std::string& line) {
    std::printf("%s\n", line.c_str());
    std::fflush(stdout);
}

void wait_for_parent() {
    while (std::getchar() != EOF) {}
}

} // namespace zu_test

int main(int count, char** arguments) {
    if (count > 2 && arguments[1] == std::string("--part"))
        return zu_test::part::play(arguments[2], {arguments + 3, arguments + count});
    testing::InitGoogleTest(&count, arguments);
    return RUN_ALL_TESTS();
}
