// The machine's wide registers, as the C library sees them: GLIBC_TUNABLES=glibc.cpu.hwcaps=-AVX512F,-AVX2 takes them
// away from this library as well.
#include "platform/text/registers.h"

#if defined(__x86_64__) && __has_include(<sys/platform/x86.h>)
#ifdef __clang__
#define _Bool bool // the C header's word, which this compiler does not know in C++
#endif
#include <sys/platform/x86.h>

namespace platform {

wide_registers registers = {CPU_FEATURE_ACTIVE(AVX2),
                            CPU_FEATURE_ACTIVE(AVX512F) && CPU_FEATURE_ACTIVE(AVX512BW)
                                && CPU_FEATURE_ACTIVE(AVX512VL) && CPU_FEATURE_ACTIVE(AVX512_VBMI)
                                && CPU_FEATURE_ACTIVE(AVX512_VBMI2) && CPU_FEATURE_ACTIVE(BMI2)};

} // namespace platform

#else

namespace platform {

wide_registers registers = {false, false};

} // namespace platform

#endif
