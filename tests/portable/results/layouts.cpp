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
#define AT(record, field, with_32, with_64)                                                                  \
    static_assert(!is_told || offsetof(record, field) == bits(with_32, with_64))

// clang-format off
SIZE(ZU_wchar, 2, 2); SIZE(ZU_bool, 1, 1); SIZE(ZU_time_t, 4, 4);
SIZE(ZU_s_header, 12, 12); AT(ZU_s_header, length, 4, 4); AT(ZU_s_header, reference_count, 8, 8);
SIZE(ZU_fixed_s, 8, 16); AT(ZU_fixed_s, text, 4, 8);
SIZE(ZU_buf, 8, 16); AT(ZU_buf, capacity, 4, 8);
SIZE(ZU_lock_thread, 64, 64);
SIZE(ZU_hash_table_link, 8, 16); AT(ZU_hash_table_link, previous, 4, 8);
SIZE(ZU_hash_table_node, 12, 24); AT(ZU_hash_table_node, item, 8, 16);
SIZE(ZU_hash_table, 28, 48); AT(ZU_hash_table, bucket_count, 4, 4); AT(ZU_hash_table, buckets, 8, 8);
    AT(ZU_hash_table, key_offset, 12, 16); AT(ZU_hash_table, hash, 16, 24); AT(ZU_hash_table, compare, 20, 32);
    AT(ZU_hash_table, release, 24, 40);
SIZE(ZU_hash_table_iter, 16, 32); AT(ZU_hash_table_iter, bucket, 4, 8); AT(ZU_hash_table_iter, node, 8, 16);
    AT(ZU_hash_table_iter, direction, 12, 24);
SIZE(ZU_DA, 12, 16); AT(ZU_DA, capacity, 4, 4); AT(ZU_DA, items, 8, 8);
SIZE(ZU_file_vec, 8, 16); AT(ZU_file_vec, length, 4, 8);
SIZE(ZU_stat, 48, 48); AT(ZU_stat, st_ino, 4, 4); AT(ZU_stat, st_mode, 6, 6); AT(ZU_stat, st_nlink, 8, 8);
    AT(ZU_stat, st_uid, 10, 10); AT(ZU_stat, st_gid, 12, 12); AT(ZU_stat, st_rdev, 16, 16);
    AT(ZU_stat, st_size, 24, 24); AT(ZU_stat, st_atime, 32, 32); AT(ZU_stat, st_mtime, 36, 36);
    AT(ZU_stat, st_ctime, 40, 40);
SIZE(ZU_enum_dir_entry, 48, 64); AT(ZU_enum_dir_entry, find_data, 4, 8); AT(ZU_enum_dir_entry, name, 8, 16);
    AT(ZU_enum_dir_entry, path, 12, 24); AT(ZU_enum_dir_entry, attributes, 16, 32);
    AT(ZU_enum_dir_entry, size, 24, 40); AT(ZU_enum_dir_entry, creation_time, 32, 48);
    AT(ZU_enum_dir_entry, modification_time, 36, 52); AT(ZU_enum_dir_entry, access_time, 40, 56);
SIZE(WIN32_FIND_DATAW, 592, 592); AT(WIN32_FIND_DATAW, ftCreationTime, 4, 4);
    AT(WIN32_FIND_DATAW, ftLastAccessTime, 12, 12); AT(WIN32_FIND_DATAW, ftLastWriteTime, 20, 20);
    AT(WIN32_FIND_DATAW, nFileSizeHigh, 28, 28); AT(WIN32_FIND_DATAW, nFileSizeLow, 32, 32);
    AT(WIN32_FIND_DATAW, dwReserved0, 36, 36); AT(WIN32_FIND_DATAW, cFileName, 44, 44);
    AT(WIN32_FIND_DATAW, cAlternateFileName, 564, 564);
SIZE(FILETIME, 8, 8); AT(FILETIME, dwHighDateTime, 4, 4);
SIZE(ZU_tm, 36, 36); AT(ZU_tm, tm_min, 4, 4); AT(ZU_tm, tm_hour, 8, 8); AT(ZU_tm, tm_mday, 12, 12);
    AT(ZU_tm, tm_mon, 16, 16); AT(ZU_tm, tm_year, 20, 20); AT(ZU_tm, tm_wday, 24, 24); AT(ZU_tm, tm_yday, 28, 28);
    AT(ZU_tm, tm_isdst, 32, 32);
SIZE(ZU_log_record, 68, 80); AT(ZU_log_record, time, 4, 4); AT(ZU_log_record, process_id, 8, 8);
    AT(ZU_log_record, thread_id, 12, 12); AT(ZU_log_record, prefix, 16, 16); AT(ZU_log_record, prefix_length, 20, 24);
    AT(ZU_log_record, message, 24, 32); AT(ZU_log_record, message_length, 28, 40);
    AT(ZU_log_record, local_time, 32, 44);
SIZE(ZU_log_file_settings, 28, 40); AT(ZU_log_file_settings, relative_to_exe_dir, 4, 8);
    AT(ZU_log_file_settings, encoding, 8, 12); AT(ZU_log_file_settings, max_size, 12, 16);
    AT(ZU_log_file_settings, generations, 16, 20); AT(ZU_log_file_settings, before_write, 20, 24);
    AT(ZU_log_file_settings, after_write, 24, 32);
SIZE(ZU_holiday, 8, 8); AT(ZU_holiday, day, 4, 4);
SIZE(ZU_timer_holidays, 80, 80); AT(ZU_timer_holidays, capacity, 64, 64); AT(ZU_timer_holidays, count, 68, 68);
    AT(ZU_timer_holidays, entries, 72, 72);
SIZE(ZU_int_list, 8, 16); AT(ZU_int_list, values, 4, 8);
SIZE(ZU_timer_ops, 16, 32); AT(ZU_timer_ops, due, 4, 8); AT(ZU_timer_ops, next, 8, 16);
    AT(ZU_timer_ops, destroy, 12, 24);
SIZE(ZU_timer, 76, 120); AT(ZU_timer, start, 4, 8); AT(ZU_timer, end, 40, 48); AT(ZU_timer, last, 44, 56);
    AT(ZU_timer, excluded_months, 48, 64); AT(ZU_timer, excluded_days, 56, 80);
    AT(ZU_timer, excluded_weekdays, 64, 96); AT(ZU_timer, holidays, 72, 112);
SIZE(ZU_timer_link, 8, 16); AT(ZU_timer_link, previous, 4, 8);
SIZE(ZU_timer_set, 104, 128); AT(ZU_timer_set, entries, 64, 64); AT(ZU_timer_set, thread, 72, 80);
    AT(ZU_timer_set, stop, 76, 88); AT(ZU_timer_set, low_mark, 80, 92); AT(ZU_timer_set, period, 84, 96);
    AT(ZU_timer_set, count, 88, 100); AT(ZU_timer_set, compare, 92, 104); AT(ZU_timer_set, free, 96, 112);
    AT(ZU_timer_set, run_now, 100, 120);
// clang-format on

} // namespace
