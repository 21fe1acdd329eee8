// The modules that the layer provides itself.
#include "platform/module.h"
#include "platform/security_package.h"

namespace platform {

constinit std::atomic<bool> built_in_modules_offered{true};

const built_in_module* const built_in_modules[] = {&secur32_module, &security_module, nullptr};

} // namespace platform
