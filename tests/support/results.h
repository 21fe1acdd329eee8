// Results of calls of the library, and their codes.
#pragma once

#include <string>

#include <gtest/gtest.h>

#include "zu/zu.h"

namespace zu_test {

// The platform's codes, written down once more: a check against the header's own names would follow a slip there.
namespace codes {

inline constexpr uint32_t none = 0, file_not_found = 2, path_not_found = 3, too_many_open_files = 4,
                          access_denied = 5, invalid_handle = 6, not_enough_memory = 8, not_same_device = 17,
                          no_more_files = 18, write_protect = 19, sharing_violation = 32, not_supported = 50,
                          bad_network_path = 53, bad_network_name = 67, file_exists = 80,
                          invalid_parameter = 87, broken_pipe = 109, buffer_overflow = 111, disk_full = 112,
                          insufficient_buffer = 122, invalid_name = 123, module_not_found = 126,
                          procedure_not_found = 127, negative_seek = 131, seek_on_device = 132,
                          directory_not_root = 144, directory_not_empty = 145, already_exists = 183,
                          bad_exe_format = 193, filename_too_long = 206, no_data = 232,
                          directory_name_invalid = 267, too_many_posts = 298, unknown_message = 317;
// Of services.
inline constexpr uint32_t dependent_services_running = 1051, invalid_service_control = 1052,
                          service_request_timeout = 1053, service_database_locked = 1055,
                          service_already_running = 1056, service_disabled = 1058, circular_dependency = 1059,
                          service_does_not_exist = 1060, service_cannot_accept_control = 1061,
                          service_not_active = 1062, database_does_not_exist = 1065,
                          service_specific_error = 1066, process_aborted = 1067,
                          service_dependency_fail = 1068, service_marked_for_delete = 1072,
                          service_exists = 1073, service_dependency_deleted = 1075,
                          duplicate_service_name = 1078;
// Of accounts, waits, other machines and sockets.
inline constexpr uint32_t none_mapped = 1332, timed_out = 1460, server_unavailable = 1722,
                          not_initialised = 10093;

} // namespace codes

constexpr uint32_t no_code = 0xFFFFFFFF;

// 0 when the call was done; otherwise its code, or no_code when it left none. Each failure has to set its own.
inline uint32_t code_of(bool done) {
    const uint32_t code = GetLastError();
    SetLastError(0);
    return done ? 0 : code != 0 ? code : no_code;
}

// A copy of a text that is the caller's to free, which is freed.
inline std::u16string taken(ZU_wchar* text) {
    const std::u16string copy = text ? text : u"<null>";
    ZU_free(text);
    return copy;
}

// The conversions of the library, on texts of the C++ library.
template <class To, class Convert, class From>
To converted(Convert* convert, uint32_t encoding, const From* text, size_t length) {
    uint32_t result_length = 99;
    auto* const units = convert(encoding, text, static_cast<int32_t>(length), &result_length);
    const To copy(units, result_length);
    EXPECT_EQ(units[result_length], 0);
    ZU_free(units);
    return copy;
}

inline std::u16string wide_of(const std::string& narrow, uint32_t encoding = ZU_ENCODING_UTF8) {
    return converted<std::u16string>(ZU_char_2_wchar, encoding, narrow.data(), narrow.size());
}

inline std::string narrow_of(const std::u16string& wide, uint32_t encoding = ZU_ENCODING_UTF8) {
    return converted<std::string>(ZU_wchar_2_char, encoding, wide.data(), wide.size());
}

} // namespace zu_test
