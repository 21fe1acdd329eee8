// Inside the layer: the directory that holds what the platform keeps for the whole machine.
#pragma once

#include <cstddef>
#include <string>

namespace platform {

inline constexpr const char* standard_host_directory = "/var/lib/zu";

// $ZU_HOST, unless it is empty or the program runs with raised rights; else /var/lib/zu. It may be missing. A relative
// value counts from the directory in which the process was when it first saw that value: at its start, as a rule. Valid
// until the environment changes.
const char* host_directory();

// The path of an entry of the host directory: in_host_directory("registry.reg").
std::string in_host_directory(const char* relative);

// Tells whether host_directory() may give another path than when it was last asked, without a search of the
// environment, which may hold hundreds of variables. One thread at a time.
class host_directory_watch {
public:
    bool may_have_changed();

private:
    // The environment as it was at the last search.
    char** environment_ = nullptr;
    bool is_set_ = false;
    size_t at_ = 0;               // the index of the variable; of the last one when it is not set
    const char* entry_ = nullptr; // the pointer at that index
};

} // namespace platform
