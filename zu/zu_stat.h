// Attributes, sizes and times, for the families of status, enumeration and file-system operations. Internal.
#pragma once

#include "zu/zu_support.h"

namespace zu {

// The attribute code (ZU_PATH_...) of the platform's bits; 0 for bits that could not be read.
uint32_t attribute_code(platform::DWORD bits);

uint64_t size_of(const platform::WIN32_FIND_DATAW& found);

struct file_times {
    ZU_time_t creation, modification, access;
};

// A file system that keeps no creation or access time reports zero: the modification stands in for both.
file_times times_of(const platform::WIN32_FIND_DATAW& found);

} // namespace zu
