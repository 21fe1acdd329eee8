// Processes that the service's program has left behind: they have become children of this process.
#pragma once

#include <functional>

#include "platform/api/base.h"

namespace zu_helper {

// Makes this process adopt the orphans of all its descendants. False with errno.
bool adopt_orphans();

// Asks every child once to end, and kills those that have not ended in time. Returns when there is none. `between` is
// called between two looks.
void end_children(platform::DWORD limit_ms, const std::function<void()>& between);

} // namespace zu_helper
