// Inside the layer: Unicode's simple case folding.
#pragma once

#include "platform/api/base.h"

namespace platform {

char32_t fold_beyond_ascii(char32_t character);

inline char32_t fold_case(char32_t character) {
    if (character < 0x80)
        return character - U'A' < 26u ? character + 32 : character;
    return fold_beyond_ascii(character);
}

// Whether another character folds to the same as this one.
bool has_other_case(char32_t character);

// Equal but for the case of letters, unit by unit.
bool equal_without_case(wide_view one, wide_view other);

} // namespace platform
