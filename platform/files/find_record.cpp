// Search records.
#include "platform/files/find_record.h"

#include <iterator>

#include "platform/core/retry.h"
#include "platform/files/name_map.h"
#include "platform/time/host_time.h"

namespace platform {

int status_of(int at, const char* path, int flags, struct statx& out) {
    return retried([&] { return statx(at, path, flags, STATX_BASIC_STATS | STATX_BTIME, &out); });
}

entry_status entry_of(const struct statx& status, const stored_attributes& stored) {
    entry_status entry;
    entry.attributes = attributes_of(status.stx_mode, stored.bits);
    if (stored.created)
        entry.created = file_time_of_units(stored.created);
    else
        entry.created = status.stx_mask & STATX_BTIME ? file_time_of(status.stx_btime) : FILETIME{0, 0};
    entry.accessed = file_time_of(status.stx_atime);
    entry.written = file_time_of(status.stx_mtime);
    entry.size = S_ISDIR(status.stx_mode) ? 0 : status.stx_size;
    return entry;
}

void fill_find_data(std::string_view host_name, const entry_status& entry, WIN32_FIND_DATAW& out) {
    out.dwFileAttributes = entry.attributes;
    out.ftCreationTime = entry.created;
    out.ftLastAccessTime = entry.accessed;
    out.ftLastWriteTime = entry.written;
    out.nFileSizeHigh = static_cast<DWORD>(entry.size >> 32);
    out.nFileSizeLow = static_cast<DWORD>(entry.size);
    out.dwReserved0 = entry.attributes & FILE_ATTRIBUTE_REPARSE_POINT ? IO_REPARSE_TAG_SYMLINK : 0;
    out.dwReserved1 = 0;
    // No file system has names of more units than fit. If one had, the name would be cut and the record stay whole.
    host_name = host_name.substr(0, std::size(out.cFileName) - 1);
    out.cFileName[wide_name(host_name, out.cFileName)] = 0;
    out.cAlternateFileName[0] = 0;
}

} // namespace platform
