// Inside this folder: the wide registers that the machine has, found out once, as the library is loaded.
#pragma once

namespace platform {

struct wide_registers {
    bool of_32_bytes; // AVX2
    bool of_64_bytes; // AVX-512 with the instructions that move bytes (VBMI2)
};

// The registers that the conversions use. Tests take some away, and compare the results.
extern wide_registers registers;

} // namespace platform
