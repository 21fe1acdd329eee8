#include "support/child.h"

#include <unistd.h>

#include <cstdio>
#include <map>
#include <utility>

#include <gtest/gtest.h>

#include "support/environment.h"

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

static std::string text_until(int descriptor, std::string_view end) {
    std::string text;
    for (char byte; (end.empty() || !text.ends_with(end)) && read(descriptor, &byte, 1) == 1;) {
        if (byte != '\r')
            text += byte;
    }
    return text;
}

static words words_of(const part& plays, words arguments) {
    arguments.insert(arguments.begin(), {"--part", plays.name});
    return arguments;
}

child::child(const part& plays, const words& arguments) : child(own_program(), words_of(plays, arguments)) {}

child::child(const std::filesystem::path& program, const words& arguments) {
    int pipes[3][2], own[3];
    std::fflush(nullptr);
    for (int stream = 0; stream < 3; ++stream) {
        make_pipe(pipes[stream]);
        own[stream] = own_copy(stream);
        dup2(pipes[stream][stream != 0], stream);
    }
    process_ = start_program(program, arguments);
    for (int stream = 0; stream < 3; ++stream) {
        dup2(own[stream], stream);
        close(own[stream]);
        close(pipes[stream][stream != 0]);
    }
    to_ = pipes[0][1];
    from_ = pipes[1][0];
    errors_ = pipes[2][0];
}

child::~child() {
    kill();
    close(from_);
}

std::string child::output_until(std::string_view end) {
    return text_until(from_, end);
}

std::string child::next_line() {
    const std::string line = output_until("\n");
    return line.substr(0, line.find('\n'));
}

int child::finish() {
    if (process_ == 0)
        return -1;
    close(to_);
    std::fputs(text_until(errors_, {}).c_str(), stderr);
    close(errors_);
    return exit_code_of(std::exchange(process_, 0));
}

outcome child::end() {
    outcome result{-1, output_until({}), text_until(errors_, {})};
    result.exit_code = finish();
    return result;
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
