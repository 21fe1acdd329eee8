// Inside this folder: the security package's modules, under the two names that it has had.
#pragma once

#include "platform/system/module.h"

namespace platform {

extern const built_in_module secur32_module;
extern const built_in_module security_module;

} // namespace platform
