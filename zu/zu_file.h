// The part of the file family that the line reader uses. Internal: no caller sees this.
#pragma once

#include "zu/zu_support.h"

namespace zu {

// Reads a line and the line feed or zero byte that ends it, if it ends among the next `most` bytes and these need no
// call of the platform. Returns how many bytes it took; 0 means that nothing was read, and says nothing of the line.
uint32_t take_line_ahead(ZU_file* file, uint8_t* out, uint32_t most);

} // namespace zu
