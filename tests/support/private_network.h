// A network for a test alone.
#pragma once

#include <functional>

namespace zu_test {

// Runs the body on a thread in a network namespace of its own that holds a loopback and nothing else, and with mounts
// of its own. False, with the body not run, where the process may not have them.
bool in_private_network(const std::function<void()>& body);

} // namespace zu_test
