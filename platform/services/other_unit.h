// Inside this folder: a unit of the host's manager that others wrote, as a service. It can be looked at, started and
// stopped; it is never deleted.
#pragma once

#include <memory>

#include "platform/services/service_manager.h"
#include "platform/services/unit_files.h"

namespace platform {

std::unique_ptr<installed_service> service_of_unit(const unit_file& file);

} // namespace platform
