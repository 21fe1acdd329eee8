// The parts of the file family that the line reader and the log use. Internal: no caller sees them.
#pragma once

#include "zu/zu_support.h"

namespace zu {

// Reads a line and the line feed or zero byte that ends it, if it ends among the next `most` bytes and these need no
// call of the platform. Returns how many bytes it took; 0 means that nothing was read, and says nothing of the line.
uint32_t take_line_ahead(ZU_file* file, uint8_t* out, uint32_t most);

// Goes to the end of a file that has just been opened for writing alone, and gives the file's size.
bool go_to_end_of_opened(ZU_file* file, uint64_t* size);

} // namespace zu
