// How taskd gives up what it cannot do.
#pragma once

#include <string>

// Thrown: the reason, for the journal or the user.
struct failed {
    std::string reason;
};

// Throws what the last-error code says about it.
[[noreturn]] void fail(const std::string& what);
