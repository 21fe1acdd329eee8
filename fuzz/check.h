// Helpers of the fuzz entry points.
#pragma once

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

// A claim of an entry point. If it does not hold, the fuzzer keeps the input.
inline void check(bool holds) {
    if (!holds)
        std::abort();
}

// The units of the input: two bytes make one.
inline std::u16string units_of(const uint8_t* data, size_t size) {
    std::u16string units(size / 2, 0);
    if (!units.empty())
        std::memcpy(units.data(), data, units.size() * 2);
    return units;
}
