// Inside the layer: zu-helper, the program that runs what must not run in the caller's process.
#pragma once

#include <sys/types.h>

namespace platform {

// $ZU_HELPER, unless the program runs with raised rights; else where the library was installed to have it.
const char* helper_path();

// Starts `zu-helper COMMAND` with a descriptor as its standard input and nothing else of ours: no descriptors, no
// environment, no signal settings. Its process, or -1 with errno.
pid_t start_helper(const char* command, int standard_input);

} // namespace platform
