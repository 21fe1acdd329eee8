// Inside the layer: zu-helper, the program that runs what must not run in the caller's process.
#pragma once

#include <sys/types.h>

#include <initializer_list>
#include <string>
#include <vector>

namespace platform {

// $ZU_HELPER, unless the program runs with raised rights; else beside the library, or the program that contains it, or in
// the library's private folder there; else where it is installed.
std::string helper_path();

// Makes helper_path look for the library's private folder in one more folder, which is relative to this program's own. For
// a program that is installed with the library, but contains it. `folder` must stay.
void set_library_folder(const char* folder);

// Starts `zu-helper COMMAND` in a session of its own, with a descriptor as its standard input (-1: none) and nothing
// else of ours: no signal settings, no environment but what is given, no descriptors but those listed, whose numbers
// are its further arguments. Gives its pid, or -1 with errno.
pid_t start_helper(const char* command, int standard_input, std::initializer_list<int> descriptors = {},
                   std::vector<std::string> environment = {});

} // namespace platform
