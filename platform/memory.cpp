// Local memory: blocks that the layer hands out and the caller releases with LocalFree.
#include <cstdlib>

#include "platform/api/base.h"

namespace platform {

HLOCAL LocalAlloc(UINT flags, size_t bytes) {
    void* block = flags & LMEM_ZEROINIT ? std::calloc(1, bytes ? bytes : 1) : std::malloc(bytes ? bytes : 1);
    if (!block)
        SetLastError(ERROR_NOT_ENOUGH_MEMORY);
    return block;
}

HLOCAL LocalFree(HLOCAL block) {
    std::free(block);
    return nullptr;
}

} // namespace platform
