// What a fuzz entry point claims: where it does not hold, the fuzzer keeps the input.
#pragma once

#include <cstdlib>

inline void check(bool holds) {
    if (!holds)
        std::abort();
}
