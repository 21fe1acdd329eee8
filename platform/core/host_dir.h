// Inside the layer: the directory that holds what the platform keeps for the whole machine.
#pragma once

#include <string>

namespace platform {

// $ZU_HOST, unless it is empty or the program runs with raised rights; else /var/lib/zu. It may be missing. Valid until
// the environment changes.
const char* host_directory();

// The path of something in it: in_host_directory("registry.reg").
std::string in_host_directory(const char* relative);

} // namespace platform
