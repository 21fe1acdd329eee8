// Inside this folder: units of the host's manager that others wrote, found by the names of their files.
#pragma once

#include <string>

#include "platform/api/base.h"

namespace platform {

struct unit_file {
    std::string unit; // such as ssh.service
    bool is_masked = false;
};

// Finds the unit that the name of a service means: in its own letter case, or else in any. An instance, such as
// getty@tty1, has the file of its template. The result is 0, 1060 (ERROR_SERVICE_DOES_NOT_EXIST) for none, or the code of
// why the search failed. The units of our own services are not looked for.
DWORD find_unit_file(wide_view service_name, unit_file& out);

} // namespace platform
