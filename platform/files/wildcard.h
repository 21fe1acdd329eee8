// Inside this folder: names and patterns of searches.
#pragma once

#include "platform/files/name_map.h"

namespace platform {

// Whether a pattern stands for every name: `*` and `*.*`.
bool matches_all(wide_view pattern);

// Letter case is ignored. `*` is any text and `?` any character; before a dot and at the end, `?` may stand for
// nothing; a dot that only wildcards follow may do so as well (`a.*` finds `a`); `*.` at the end asks for names without
// a dot.
bool matches(wide_view pattern, wide_view name);

} // namespace platform
