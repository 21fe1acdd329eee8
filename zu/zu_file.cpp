// File handles: a flag word that maps onto the platform's ways to open, a second attempt on read-only and hidden
// files, and a position that is known without asking.
#include "zu/zu_file.h"
#include "zu/zu_path.h"

// All I/O on the handle goes through this family, so the recorded position is always right.
struct ZU_file {
    platform::HANDLE handle;
    ZU_buf scratch; // the bytes of a gather list, joined
    uint64_t position;
};

namespace {

constexpr uint64_t position_unknown = ~uint64_t{0};
constexpr uint32_t refused_origin = 0xFFFFFFFFu;

// The ways to open for which a second attempt is made.
constexpr uint32_t second_attempt_ways = ZU_FILE_CREATE_ALWAYS | ZU_FILE_OPEN_ALWAYS | ZU_FILE_OPEN_EXISTING;
constexpr platform::DWORD in_the_way = FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN;

platform::DWORD disposition_of(uint32_t flags) {
    constexpr struct {
        uint32_t flag;
        platform::DWORD disposition;
    } by_rank[] = {{ZU_FILE_CREATE_ALWAYS, CREATE_ALWAYS},
                   {ZU_FILE_CREATE_NEW, CREATE_NEW},
                   {ZU_FILE_OPEN_ALWAYS, OPEN_ALWAYS},
                   {ZU_FILE_OPEN_EXISTING, OPEN_EXISTING},
                   {ZU_FILE_TRUNCATE_EXISTING, TRUNCATE_EXISTING}};
    for (const auto& way : by_rank) {
        if (flags & way.flag)
            return way.disposition;
    }
    return 0; // the platform refuses it
}

platform::HANDLE create(const ZU_wchar* long_path, uint32_t flags, void* security) {
    const platform::DWORD access =
        (flags & ZU_FILE_READ ? GENERIC_READ : 0) | (flags & ZU_FILE_WRITE ? GENERIC_WRITE : 0);
    const platform::DWORD share = (flags & ZU_FILE_SHARE_READ ? FILE_SHARE_READ : 0)
                                  | (flags & ZU_FILE_SHARE_WRITE ? FILE_SHARE_WRITE : 0);
    return platform::CreateFileW(long_path, access, share,
                                 static_cast<platform::SECURITY_ATTRIBUTES*>(security), disposition_of(flags),
                                 FILE_ATTRIBUTE_NORMAL, nullptr);
}

// The second attempt on a file that refused with 5 (ERROR_ACCESS_DENIED). The attributes that may be the reason are
// taken off for the attempt and put back after it, also when it fails.
platform::HANDLE create_past_attributes(const ZU_wchar* long_path, uint32_t flags, void* security) {
    const platform::DWORD first_code = platform::GetLastError();
    platform::item_attributes item(long_path, 0);
    const platform::DWORD attributes = item.get();
    if (attributes == INVALID_FILE_ATTRIBUTES || (attributes & FILE_ATTRIBUTE_DIRECTORY)
        || !(attributes & in_the_way) || !item.set(attributes & ~in_the_way)) {
        platform::SetLastError(first_code);
        return INVALID_HANDLE_VALUE;
    }
    const platform::HANDLE handle = create(long_path, flags, security);
    const zu::keep_last_error second_code;
    item.set(attributes);
    return handle;
}

platform::DWORD method_of(uint32_t origin) {
    switch (origin) {
    case ZU_SEEK_BEGIN: return FILE_BEGIN;
    case ZU_SEEK_CURRENT: return FILE_CURRENT;
    case ZU_SEEK_END: return FILE_END;
    default: return refused_origin;
    }
}

ZU_bool nothing_moved(ZU_file* file, uint32_t* bytes_done) {
    *bytes_done = 0;
    file->position = position_unknown;
    return false;
}

ZU_bool moved(ZU_file* file, platform::DWORD bytes, uint32_t* bytes_done) {
    *bytes_done = bytes;
    if (file->position != position_unknown)
        file->position += bytes;
    return true;
}

} // namespace

ZU_file* ZU_open_file(const ZU_wchar* path, uint32_t flags, void* security) {
    zu::scoped_string long_path;
    ZU_long_path(path, long_path.address());
    platform::HANDLE handle = create(long_path.text(), flags, security);
    if (handle == INVALID_HANDLE_VALUE && (flags & second_attempt_ways)
        && platform::GetLastError() == ERROR_ACCESS_DENIED)
        handle = create_past_attributes(long_path.text(), flags, security);
    if (handle == INVALID_HANDLE_VALUE)
        return nullptr;
    auto* file = zu::allocate<ZU_file>();
    *file = {handle, {}, 0};
    return file;
}

void ZU_close_file(ZU_file* file) {
    if (!file)
        return;
    platform::CloseHandle(file->handle);
    ZU_buf_destroy(&file->scratch);
    ZU_free(file);
}

ZU_bool ZU_read_file(ZU_file* file, void* bytes, uint32_t count, uint32_t* bytes_done) {
    platform::DWORD done = 0;
    if (!platform::ReadFile(file->handle, bytes, count, &done, nullptr))
        return nothing_moved(file, bytes_done);
    return moved(file, done, bytes_done);
}

uint32_t zu::take_line_ahead(ZU_file* file, uint8_t* out, uint32_t most) {
    const platform::DWORD taken = platform::take_line_ahead(file->handle, out, most);
    if (file->position != position_unknown)
        file->position += taken;
    return taken;
}

ZU_bool ZU_write_file(ZU_file* file, const void* bytes, uint32_t count, uint32_t* bytes_done) {
    platform::DWORD done = 0;
    if (!platform::WriteFile(file->handle, bytes, count, &done, nullptr))
        return nothing_moved(file, bytes_done);
    return moved(file, done, bytes_done);
}

ZU_bool ZU_write_file_v(ZU_file* file, const ZU_file_vec* pieces, int32_t count, uint32_t* bytes_done) {
    uint64_t total = 0;
    for (int32_t i = 0; i < count && count <= ZU_WRITE_V_MAX; ++i)
        total += pieces[i].length;
    if (count > ZU_WRITE_V_MAX || total > UINT32_MAX) {
        platform::SetLastError(ERROR_INVALID_PARAMETER);
        return nothing_moved(file, bytes_done);
    }
    uint8_t* gathered = ZU_buf_get_ex(&file->scratch, static_cast<uint32_t>(total), 0);
    for (int32_t i = 0; i < count; ++i) {
        if (pieces[i].length == 0)
            continue;
        std::memcpy(gathered, pieces[i].data, pieces[i].length);
        gathered += pieces[i].length;
    }
    return ZU_write_file(file, file->scratch.data, static_cast<uint32_t>(total), bytes_done);
}

ZU_bool ZU_seek_file(ZU_file* file, int64_t offset, uint64_t* new_position, uint32_t origin) {
    const bool is_there = origin == ZU_SEEK_BEGIN && file->position != position_unknown
                          && file->position == static_cast<uint64_t>(offset);
    if (!is_there) {
        platform::LARGE_INTEGER distance, position;
        distance.QuadPart = offset;
        if (!platform::SetFilePointerEx(file->handle, distance, &position, method_of(origin))) {
            file->position = position_unknown;
            if (new_position)
                *new_position = 0;
            return false;
        }
        file->position = static_cast<uint64_t>(position.QuadPart);
    }
    if (new_position)
        *new_position = file->position;
    return true;
}

bool zu::go_to_end_of_opened(ZU_file* file, uint64_t* size) {
    platform::LARGE_INTEGER end;
    if (!platform::go_to_known_end(file->handle, &end))
        return false;
    *size = file->position = static_cast<uint64_t>(end.QuadPart);
    return true;
}

ZU_bool ZU_tell_file(ZU_file* file, uint64_t* position) {
    if (file->position == position_unknown)
        return ZU_seek_file(file, 0, position, ZU_SEEK_CURRENT);
    *position = file->position;
    return true;
}

ZU_bool ZU_set_end_of_file(ZU_file* file) {
    return platform::SetEndOfFile(file->handle) != FALSE;
}

ZU_bool ZU_flush_file(ZU_file* file) {
    return platform::FlushFileBuffers(file->handle) != FALSE;
}
