#include "support/child.h"

#include <unistd.h>

#include <cstdio>
#include <map>
#include <utility>

#include <gtest/gtest.h>

namespace zu_test {

static std::map<std::string, part::function>& parts() {
    static std::map<std::string, part::function> all;
    return all;
}

part::part(const char* its_name, function plays) : name(its_name) {
    parts()[name] = plays;
}

void report(const std::string& line) {
    std::printf("%s\n", line.c_str());
    std::fflush(stdout);
}

void wait_for_parent() {
    while (std::getchar() != EOF) {}
}

child::child(const part& plays, const words& arguments) {
    std::vector<const char*> list = {"test", "--part", plays.name};
    for (const std::string& word : arguments)
        list.push_back(word.c_str());
    list.push_back(nullptr);
    int input[2], output[2];
    make_pipe(input);
    make_pipe(output);
    std::fflush(stdout);
    const int own_input = dup(0), own_output = dup(1);
    dup2(input[0], 0);
    dup2(output[1], 1);
    process_ = start_own_program(list.data());
    dup2(own_input, 0);
    dup2(own_output, 1);
    for (const int unused : {own_input, own_output, input[0], output[1]})
        close(unused);
    to_ = input[1];
    from_ = output[0];
}

child::~child() {
    kill();
    close(from_);
}

std::string child::next_line() {
    std::string line;
    for (char byte = 0; read(from_, &byte, 1) == 1 && byte != '\n';) {
        if (byte != '\r')
            line += byte;
    }
    return line;
}

int child::finish() {
    if (process_ == 0)
        return -1;
    close(to_);
    return exit_code_of(std::exchange(process_, 0));
}

void child::kill() {
    if (process_ != 0)
        terminate(process_);
    finish();
}

} // namespace zu_test

int main(int count, char** arguments) {
    if (count > 2 && arguments[1] == std::string("--part"))
        return zu_test::parts().at(arguments[2])({arguments + 3, arguments + count});
    testing::InitGoogleTest(&count, arguments);
    return RUN_ALL_TESTS();
}
