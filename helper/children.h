// Processes that the service's program has left behind: they have become children of this process.
#pragma once

#include <functional>

#include "platform/api/base.h"

namespace zu_helper {

// Has what any process below leaves behind become a child of this one. False with errno.
bool adopt_orphans();

// Asks every child to end, once, kills those that have not done so in time, and returns when there is none. `between`
// is called between the looks.
void end_children(platform::DWORD limit_ms, const std::function<void()>& between);

} // namespace zu_helper
