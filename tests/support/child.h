// Further processes of a test: the same program again, which plays a part in place of running its tests.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace zu_test {

using words = std::vector<std::string>; // of ASCII letters

// A static object of the program. What its function returns is the exit code of the process.
struct part {
    using function = int (*)(const words& arguments);
    part(const char* name, function plays);
    const char* const name;
};

// In the child: writes a line for the parent; waits for its word to end, or its end.
void report(const std::string& line);
void wait_for_parent();

class child {
public:
    explicit child(const part& plays, const words& arguments = {});
    ~child();
    child(const child&) = delete;
    child& operator=(const child&) = delete;

    std::string next_line(); // of its reports; waits for it; empty when it has ended
    int finish();            // its exit code, after the word to end
    void kill();             // ends it on the spot

private:
    intptr_t process_; // 0 when it has ended
    int to_, from_;    // descriptors of its input and output
};

// What differs by platform. The descriptors of a pipe are not inherited; the program is started with the first three
// descriptors of this process.
void make_pipe(int (&ends)[2]);
intptr_t start_own_program(const char* const* arguments);
int exit_code_of(intptr_t process); // waits for its end
void terminate(intptr_t process);

} // namespace zu_test
