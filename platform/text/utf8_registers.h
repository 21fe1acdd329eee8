// Inside this folder: UTF-8 and UTF-16 in wide registers.
#pragma once

#include "platform/api/base.h"

namespace platform {

// Where a conversion stands: what is left of the text, and of the area.
template <class From, class To>
struct conversion_state {
    const From* at;
    const From* end;
    To* out;
    To* out_end;
};
using narrowing = conversion_state<WCHAR, char>;
using widening = conversion_state<char, WCHAR>;

// Move a conversion on, to the end of the text, to a malformed character, or to where the area may be too small for the
// next step. Only where the machine has registers of 64 bytes.
void narrow_in_registers(narrowing& state);
void widen_in_registers(widening& state);

// Converts units in front of `stop` by eights, as long as there are no surrogates among them; returns where the output
// ends. The area has room for four bytes a unit. Only where the machine has registers of 32 bytes.
char* narrow_by_eights(const WCHAR*& text, const WCHAR* stop, char* out);

} // namespace platform
