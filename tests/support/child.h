// Further processes of a test: the same program again, which plays a part in place of running its tests, or another one.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace zu_test {

using words = std::vector<std::string>; // of ASCII letters, without quotes

// A static object of the program. What its function returns is the exit code of the process.
struct part {
    using function = int (*)(const words& arguments);
    part(const char* name, function plays);
    const char* const name;
};

// In the child: writes a line for the parent; waits for its word to end, or its end.
void report(const std::string& line);
void wait_for_parent();

// A program that has run to its end.
struct outcome {
    int exit_code = -1; // of one that a signal of the host has ended, its number as a negative one
    std::string output; // natively, too, lines end with \n
    std::string error_output;
};

// It has the directory and the environment of this process.
class child {
public:
    explicit child(const std::filesystem::path& program, const words& arguments = {});
    explicit child(const part& plays, const words& arguments = {});
    ~child();
    child(const child&) = delete;
    child& operator=(const child&) = delete;

    std::string output_until(std::string_view end); // and with it; without an end, all of it
    std::string next_line();                        // of its reports; waits for it; empty when it has ended
    outcome end();                                  // waits for it, and has read the rest of its texts
    int finish();                                   // its exit code, after the word to end
    void kill();                                    // ends it on the spot

private:
    intptr_t process_;       // 0 when it has ended
    int to_, from_, errors_; // descriptors of its input and its outputs
};

// What differs by platform. The descriptors of a pipe, and a copy of one, are not inherited; a program is started with the
// first three descriptors of this process.
void make_pipe(int (&ends)[2]);
int own_copy(int descriptor);
intptr_t start_program(const std::filesystem::path& program, const words& arguments);
int exit_code_of(intptr_t process); // waits for its end; -1 if there is no such process
void terminate(intptr_t process);
extern const int exit_code_of_abort;

} // namespace zu_test
