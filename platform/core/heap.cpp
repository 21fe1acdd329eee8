// Memory by the platform's names: local blocks, and the process heap.
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

// The address of this byte is the heap's handle.
static constexpr char process_heap = 0;

HANDLE GetProcessHeap() {
    return const_cast<char*>(&process_heap);
}

LPVOID HeapAlloc(HANDLE, DWORD flags, size_t bytes) {
    return flags & HEAP_ZERO_MEMORY ? std::calloc(1, bytes ? bytes : 1) : std::malloc(bytes ? bytes : 1);
}

LPVOID HeapReAlloc(HANDLE, DWORD flags, LPVOID block, size_t bytes) {
    if (flags != 0) // the old size is not known, so the added bytes cannot be cleared
        return nullptr;
    return std::realloc(block, bytes ? bytes : 1);
}

BOOL HeapFree(HANDLE, DWORD, LPVOID block) {
    std::free(block);
    return TRUE;
}

} // namespace platform
