// The modules that the layer provides itself.
#include "platform/accounts/security_package.h"
#include "platform/system/module.h"

namespace platform {

constinit std::atomic<bool> built_in_modules_offered{true};

const built_in_module* const built_in_modules[] = {&secur32_module, &security_module, nullptr};

} // namespace platform
