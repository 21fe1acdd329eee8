// Children of a test: what they write, and how they end; and a network of a test's own.
#pragma once

#include <sys/types.h>

#include <functional>

#include "support/child.h"
#include "support/environment.h"

namespace zu_test {

// Runs a function in a forked child, which then leaves with 0, and collects what it wrote.
outcome run_child(const std::function<void()>& body);

// A child that has run a function, and then keeps what it has until it is killed.
class holder {
public:
    explicit holder(const std::function<uint32_t()>& body);
    ~holder() { end(); }
    holder(const holder&) = delete;
    holder& operator=(const holder&) = delete;

    uint32_t result() const { return result_; } // of the function
    void end();

private:
    pid_t child_;
    uint32_t result_ = 0xFFFFFFFF;
};

// Runs the body on a thread in a network namespace of its own that holds a loopback and nothing else, and with mounts
// of its own, where a file or directory covers another one. Skips where the process may not have them.
void in_private_network(const std::string& cover, const char* covered, const std::function<void()>& body);

// Runs a command line through bash.
outcome run_command(const std::string& command);

} // namespace zu_test
