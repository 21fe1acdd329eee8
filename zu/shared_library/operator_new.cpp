// The memory of the containers inside the library: when it runs out, the one failure policy holds there as well. A part
// of the shared library alone, which keeps these names to itself; a program's own are not replaced.
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
