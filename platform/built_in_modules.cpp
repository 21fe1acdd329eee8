// The modules that the layer provides itself.
#include "platform/module.h"

namespace platform {

const built_in_module* const built_in_modules[] = {nullptr};

} // namespace platform
