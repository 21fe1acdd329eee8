// The exception with which taskd gives an action up.
#pragma once

#include <string>

// The exception, with the reason for the journal or the user.
struct failed {
    std::string reason;
};

// Throws the meaning of the last-error code, with the name of the thing that failed.
[[noreturn]] void fail(const std::string& what);
