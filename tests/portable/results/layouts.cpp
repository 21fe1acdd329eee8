// The sizes and offsets of the public records, on which programs that were built long ago rely. Where pointers have 32
// bits, a record with 64-bit fields is aligned to 8 on the native platform, as this tells, and to 4 on Linux for x86, where
// nothing is compared.
#include <cstddef>

#include "zu/zu.h"

namespace {

constexpr size_t bits(size_t with_32, size_t with_64) {
    return sizeof(void*) == 4 ? with_32 : with_64;
}

struct with_64_bits {
    int64_t field;
};
constexpr bool is_told = alignof(with_64_bits) == 8;

#define SIZE(record, with_32, with_64) static_assert(!is_told || sizeof(record) == bits(with_32, with_64))
#define AT(field, with_32, with_64)                                                                          \
    static_assert(!is_told || offsetof(record, field) == bits(with_32, with_64));
#define RECORD(name, with_32, with_64, ...)                                                                  \
    SIZE(name, with_32, with_64);                                                                            \
    struct name##_layout {                                                                                   \
        using record = name;                                                                                 \
        __VA_ARGS__                                                                                          \
    };

// clang-format off
SIZE(ZU_wchar, 2, 2); SIZE(ZU_bool, 1, 1); SIZE(ZU_time_t, 4, 4); SIZE(ZU_lock_thread, 64, 64);
RECORD(ZU_s_header, 12, 12, AT(length, 4, 4) AT(reference_count, 8, 8))
RECORD(ZU_fixed_s, 8, 16, AT(text, 4, 8))
RECORD(ZU_buf, 8, 16, AT(capacity, 4, 8))
RECORD(ZU_hash_table_link, 8, 16, AT(previous, 4, 8))
RECORD(ZU_hash_table_node, 12, 24, AT(item, 8, 16))
RECORD(ZU_hash_table, 28, 48, AT(bucket_count, 4, 4) AT(buckets, 8, 8) AT(key_offset, 12, 16) AT(hash, 16, 24)
    AT(compare, 20, 32) AT(release, 24, 40))
RECORD(ZU_hash_table_iter, 16, 32, AT(bucket, 4, 8) AT(node, 8, 16) AT(direction, 12, 24))
RECORD(ZU_DA, 12, 16, AT(capacity, 4, 4) AT(items, 8, 8))
RECORD(ZU_file_vec, 8, 16, AT(length, 4, 8))
RECORD(ZU_stat, 48, 48, AT(st_ino, 4, 4) AT(st_mode, 6, 6) AT(st_nlink, 8, 8) AT(st_uid, 10, 10) AT(st_gid, 12, 12)
    AT(st_rdev, 16, 16) AT(st_size, 24, 24) AT(st_atime, 32, 32) AT(st_mtime, 36, 36) AT(st_ctime, 40, 40))
RECORD(ZU_enum_dir_entry, 48, 64, AT(find_data, 4, 8) AT(name, 8, 16) AT(path, 12, 24) AT(attributes, 16, 32)
    AT(size, 24, 40) AT(creation_time, 32, 48) AT(modification_time, 36, 52) AT(access_time, 40, 56))
RECORD(WIN32_FIND_DATAW, 592, 592, AT(ftCreationTime, 4, 4) AT(ftLastAccessTime, 12, 12) AT(ftLastWriteTime, 20, 20)
    AT(nFileSizeHigh, 28, 28) AT(nFileSizeLow, 32, 32) AT(dwReserved0, 36, 36) AT(cFileName, 44, 44)
    AT(cAlternateFileName, 564, 564))
RECORD(FILETIME, 8, 8, AT(dwHighDateTime, 4, 4))
RECORD(ZU_tm, 36, 36, AT(tm_min, 4, 4) AT(tm_hour, 8, 8) AT(tm_mday, 12, 12) AT(tm_mon, 16, 16) AT(tm_year, 20, 20)
    AT(tm_wday, 24, 24) AT(tm_yday, 28, 28) AT(tm_isdst, 32, 32))
RECORD(ZU_log_record, 68, 80, AT(time, 4, 4) AT(process_id, 8, 8) AT(thread_id, 12, 12) AT(prefix, 16, 16)
    AT(prefix_length, 20, 24) AT(message, 24, 32) AT(message_length, 28, 40) AT(local_time, 32, 44))
RECORD(ZU_log_file_settings, 28, 40, AT(relative_to_exe_dir, 4, 8) AT(encoding, 8, 12) AT(max_size, 12, 16)
    AT(generations, 16, 20) AT(before_write, 20, 24) AT(after_write, 24, 32))
RECORD(ZU_holiday, 8, 8, AT(day, 4, 4))
RECORD(ZU_timer_holidays, 80, 80, AT(capacity, 64, 64) AT(count, 68, 68) AT(entries, 72, 72))
RECORD(ZU_int_list, 8, 16, AT(values, 4, 8))
RECORD(ZU_timer_ops, 16, 32, AT(due, 4, 8) AT(next, 8, 16) AT(destroy, 12, 24))
RECORD(ZU_timer, 76, 120, AT(start, 4, 8) AT(end, 40, 48) AT(last, 44, 56) AT(excluded_months, 48, 64)
    AT(excluded_days, 56, 80) AT(excluded_weekdays, 64, 96) AT(holidays, 72, 112))
RECORD(ZU_timer_link, 8, 16, AT(previous, 4, 8))
RECORD(ZU_timer_set, 104, 128, AT(entries, 64, 64) AT(thread, 72, 80) AT(stop, 76, 88) AT(low_mark, 80, 92)
    AT(period, 84, 96) AT(count, 88, 100) AT(compare, 92, 104) AT(free, 96, 112) AT(run_now, 100, 120))
// clang-format on

} // namespace
