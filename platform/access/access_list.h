// Inside the layer: what a caller's security attributes grant.
#pragma once

#include "platform/api/security.h"

namespace platform {

// Whether the attributes give every user of the machine the wanted rights.
bool allows_everyone(const SECURITY_ATTRIBUTES* attributes, DWORD wanted);

} // namespace platform
