// What the fuzz entry points share.
#pragma once

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

// What an entry point claims: where it does not hold, the fuzzer keeps the input.
inline void check(bool holds) {
    if (!holds)
        std::abort();
}

// Two bytes a unit.
inline std::u16string units_of(const uint8_t* data, size_t size) {
    std::u16string units(size / 2, 0);
    if (!units.empty())
        std::memcpy(units.data(), data, units.size() * 2);
    return units;
}
