// Memory: the runtime's heap with one failure policy, so that no other family tests an allocation.
#include <cerrno>
#include <cstdio>
#include <cstdlib>

#include "zu/zu_support.h"

namespace {

FILE* error_stream = nullptr; // null: standard error

[[noreturn, gnu::cold, gnu::noinline]] void report_and_abort(uint64_t bytes) {
    const int error = errno; // the failed call's, read before another call changes it
    const platform::quiet_pipes quiet;
    FILE* stream = error_stream ? error_stream : stderr;
    std::fprintf(stream, "error (ZU_memory):Failed to allocate memory. size:%llu. errno:%d.\n",
                 static_cast<unsigned long long>(bytes), error);
    std::fflush(stream);
    std::abort();
}

void* checked(void* block, uint32_t bytes) {
    if (!block)
        report_and_abort(bytes);
    return block;
}

uint32_t bytes_with_terminator(const ZU_wchar* text) {
    return zu::block_size((uint64_t{zu::text_view(text).size()} + 1) * sizeof(ZU_wchar));
}

} // namespace

void zu::report_too_long(uint64_t bytes) {
    errno = ENOMEM; // no call failed that could have set it
    report_and_abort(bytes);
}

void* ZU_malloc(uint32_t bytes) {
    return checked(std::malloc(bytes), bytes);
}

void* ZU_calloc(uint32_t count, uint32_t size) {
    return checked(std::calloc(count, size), count * size);
}

void* ZU_realloc(void* block, uint32_t bytes) {
    return checked(std::realloc(block, bytes), bytes);
}

void ZU_free(void* block) {
    std::free(block);
}

ZU_wchar* ZU_strdup(const ZU_wchar* text) {
    if (!text)
        return nullptr;
    const uint32_t bytes = bytes_with_terminator(text);
    void* copy = ZU_malloc_dbg(bytes, "zu/zu_memory", 96);
    return static_cast<ZU_wchar*>(std::memcpy(copy, text, bytes));
}

void* ZU_malloc_dbg(uint32_t bytes, const char*, int32_t) {
    return ZU_malloc(bytes);
}

void* ZU_calloc_dbg(uint32_t count, uint32_t size, const char*, int32_t) {
    return ZU_calloc(count, size);
}

void* ZU_realloc_dbg(void* block, uint32_t bytes, const char*, int32_t) {
    return ZU_realloc(block, bytes);
}

void ZU_free_dbg(void* block, const char*, int32_t) {
    ZU_free(block);
}

ZU_wchar* ZU_strdup_dbg(const ZU_wchar* text, const char*, int32_t) {
    if (!text)
        return nullptr;
    const uint32_t bytes = bytes_with_terminator(text);
    return static_cast<ZU_wchar*>(std::memcpy(checked(std::malloc(bytes), bytes), text, bytes));
}

void ZU_memory_set_error_fp(FILE* stream) {
    error_stream = stream;
}

void ZU_memory_set_assert_size(uint32_t) {}

FILE* ZU_fopen(const ZU_wchar* path, const ZU_wchar* mode) {
    return platform::_wfopen(path, mode);
}

int32_t ZU_fclose(FILE* stream) {
    const platform::quiet_pipes quiet;
    return platform::fclose(stream);
}
