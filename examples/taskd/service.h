// taskd as a service: installing, removing, starting and stopping it, and asking for its state.
#pragma once

#include "options.h"

// Does to the service what the options say, and shows the result. Throws `failed`.
void manage_service(const options& chosen);
