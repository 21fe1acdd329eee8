// Line reader: reads in growing chunks, and moves the file's position back to the end of the line.
#include <algorithm>

#include "zu/zu_file.h"

namespace {

constexpr uint32_t first_chunk = 128;
constexpr uint32_t longest_line = UINT32_MAX - 1; // a buffer must hold it and its terminator

// The bytes before the first line feed or zero byte; all of them when there is neither.
uint32_t bytes_to_line_end(const uint8_t* bytes, uint32_t count) {
    if (const void* feed = std::memchr(bytes, '\n', count))
        count = static_cast<uint32_t>(static_cast<const uint8_t*>(feed) - bytes);
    if (const void* zero = std::memchr(bytes, 0, count))
        count = static_cast<uint32_t>(static_cast<const uint8_t*>(zero) - bytes);
    return count;
}

// As ZU_buf_get_ex, without the call for a buffer that is large enough, as most are after a few lines.
uint8_t* with_room(ZU_buf* buffer, uint32_t size, uint32_t keep) {
    return size <= buffer->capacity ? buffer->data : ZU_buf_get_ex(buffer, size, keep);
}

// Ends the line that the buffer holds, without a carriage return at its end.
char* finish(ZU_buf* buffer, uint32_t held, uint32_t* length) {
    uint8_t* line = with_room(buffer, held + 1, held);
    if (held != 0 && line[held - 1] == '\r')
        --held;
    line[held] = 0;
    *length = held;
    return reinterpret_cast<char*>(line);
}

} // namespace

char* ZU_get_line_i(ZU_file* file, ZU_buf* buffer, uint32_t* length, ZU_bool* short_read, uint32_t limit) {
    *length = 0;
    *short_read = 0;
    limit = std::min(limit, longest_line);
    if (limit == 0)
        return nullptr;

    // Most lines of a file that nobody else may write are taken in one step, with the result that the loop would give.
    const uint32_t first = std::min(first_chunk, limit);
    if (const uint32_t taken = zu::take_line_ahead(file, with_room(buffer, first, 0), first))
        return finish(buffer, taken - 1, length);

    uint32_t held = 0; // bytes of the line that have been read
    bool any_read = false, line_ended = false;
    while (!line_ended && !*short_read && held < limit) {
        const uint32_t chunk = std::min(held == 0 ? first_chunk : held, limit - held);
        uint8_t* bytes = with_room(buffer, held + chunk, held) + held;
        uint32_t read = 0;
        if (!ZU_read_file(file, bytes, chunk, &read))
            return nullptr;
        any_read |= read != 0;
        const uint32_t taken = bytes_to_line_end(bytes, read);
        line_ended = taken < read;
        if (taken + 1 < read)
            ZU_seek_file(file, -static_cast<int64_t>(read - taken - 1), nullptr, ZU_SEEK_CURRENT);
        held += taken;
        *short_read = read < chunk;
    }
    return any_read ? finish(buffer, held, length) : nullptr;
}

char* ZU_get_line(ZU_file* file, uint32_t* length, ZU_bool* short_read) {
    ZU_buf buffer = {};
    const char* line = ZU_get_line_i(file, &buffer, length, short_read, ZU_GET_LINE_MAX);
    char* copy = nullptr;
    if (line) {
        copy = zu::allocate<char>(*length + 1);
        std::memcpy(copy, line, *length + 1);
    }
    ZU_buf_destroy(&buffer);
    return copy;
}
