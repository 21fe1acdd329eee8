// Inside this folder: the security package as a module, under each of the two names that systems gave it.
#pragma once

#include "platform/system/module.h"

namespace platform {

extern const built_in_module secur32_module;
extern const built_in_module security_module;

} // namespace platform
