// Inside the layer: the record of an installed service as the text of a file, and its name as that of a directory.
//
//     zu service 1
//     name Print spooler
//     type 16
//     command "C:\spool\spooler" -quiet
//     depends network
//     manager systemd
//
// One line for each value, in any order; lines of another kind are left alone. Values are UTF-8, but for control
// characters, the percent sign and halves of surrogate pairs: %25, %uD800.
#pragma once

#include <string>
#include <vector>

#include "platform/api/base.h"

namespace platform {

struct service_record {
    std::u16string name; // as it was spelled when the service was installed
    std::u16string display_name;
    std::u16string command_line;
    DWORD type = 0;
    DWORD start_type = 0;
    DWORD error_control = 0;
    std::vector<std::u16string> dependencies;
    bool is_unit = false; // it is run by the host's service manager
};

std::string text_of(const service_record& record);

// Reads a record's text; false if it is none.
bool read_record(std::string_view text, service_record& out);

// Whether two names mean one service: letter case does not count.
bool same_service_name(wide_view one, wide_view other);

// The directory's name, the same for all spellings of a service's name and different for different names. A very long
// name is cut, and a hash of the whole name is appended.
std::string directory_name_of(wide_view service_name);

} // namespace platform
