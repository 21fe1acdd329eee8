// The memory of the standard containers inside the library, under the one failure policy of the memory family. The
// shared library alone has this file and does not export the operators, so a program's own are not replaced.
#include <cstdlib>
#include <new>

#include "zu/zu_support.h"

void* operator new(size_t bytes) {
    return ZU_malloc(zu::block_size(bytes));
}

void* operator new[](size_t bytes) {
    return operator new(bytes);
}

void* operator new(size_t bytes, const std::nothrow_t&) noexcept {
    return std::malloc(bytes);
}

void* operator new[](size_t bytes, const std::nothrow_t&) noexcept {
    return std::malloc(bytes);
}

void operator delete(void* block) noexcept {
    ZU_free(block);
}

void operator delete[](void* block) noexcept {
    ZU_free(block);
}

void operator delete(void* block, size_t) noexcept {
    ZU_free(block);
}

void operator delete[](void* block, size_t) noexcept {
    ZU_free(block);
}
