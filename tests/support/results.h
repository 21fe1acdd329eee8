// What calls of the library give back.
#pragma once

#include <string>

#include "zu/zu.h"

namespace zu_test {

// The platform's codes, written down once more: a check against the header's own names would follow a slip there.
namespace codes {

inline constexpr uint32_t none = 0;
inline constexpr uint32_t invalid_function = 1;
inline constexpr uint32_t file_not_found = 2;
inline constexpr uint32_t path_not_found = 3;
inline constexpr uint32_t too_many_open_files = 4;
inline constexpr uint32_t access_denied = 5;
inline constexpr uint32_t invalid_handle = 6;
inline constexpr uint32_t not_enough_memory = 8;
inline constexpr uint32_t not_same_device = 17;
inline constexpr uint32_t no_more_files = 18;
inline constexpr uint32_t write_protect = 19;
inline constexpr uint32_t sharing_violation = 32;
inline constexpr uint32_t not_supported = 50;
inline constexpr uint32_t bad_network_path = 53;
inline constexpr uint32_t bad_network_name = 67;
inline constexpr uint32_t file_exists = 80;
inline constexpr uint32_t invalid_parameter = 87;
inline constexpr uint32_t broken_pipe = 109;
inline constexpr uint32_t buffer_overflow = 111;
inline constexpr uint32_t disk_full = 112;
inline constexpr uint32_t call_not_implemented = 120;
inline constexpr uint32_t insufficient_buffer = 122;
inline constexpr uint32_t invalid_name = 123;
inline constexpr uint32_t module_not_found = 126;
inline constexpr uint32_t procedure_not_found = 127;
inline constexpr uint32_t negative_seek = 131;
inline constexpr uint32_t seek_on_device = 132;
inline constexpr uint32_t directory_not_empty = 145;
inline constexpr uint32_t bad_pathname = 161;
inline constexpr uint32_t already_exists = 183;
inline constexpr uint32_t bad_exe_format = 193;
inline constexpr uint32_t filename_too_long = 206;
inline constexpr uint32_t no_data = 232;
inline constexpr uint32_t more_data = 234;
inline constexpr uint32_t directory_name_invalid = 267;
inline constexpr uint32_t not_owner = 288;
inline constexpr uint32_t too_many_posts = 298;
inline constexpr uint32_t unknown_message = 317;
inline constexpr uint32_t noaccess = 998;
inline constexpr uint32_t dependent_services_running = 1051;
inline constexpr uint32_t invalid_service_control = 1052;
inline constexpr uint32_t no_token = 1008;
inline constexpr uint32_t key_deleted = 1018;
inline constexpr uint32_t service_request_timeout = 1053;
inline constexpr uint32_t service_database_locked = 1055;
inline constexpr uint32_t service_already_running = 1056;
inline constexpr uint32_t service_disabled = 1058;
inline constexpr uint32_t circular_dependency = 1059;
inline constexpr uint32_t service_does_not_exist = 1060;
inline constexpr uint32_t service_cannot_accept_control = 1061;
inline constexpr uint32_t service_not_active = 1062;
inline constexpr uint32_t database_does_not_exist = 1065;
inline constexpr uint32_t service_specific_error = 1066;
inline constexpr uint32_t process_aborted = 1067;
inline constexpr uint32_t service_dependency_fail = 1068;
inline constexpr uint32_t service_marked_for_delete = 1072;
inline constexpr uint32_t service_exists = 1073;
inline constexpr uint32_t service_dependency_deleted = 1075;
inline constexpr uint32_t duplicate_service_name = 1078;
inline constexpr uint32_t not_all_assigned = 1300;
inline constexpr uint32_t unknown_revision = 1305;
inline constexpr uint32_t no_such_privilege = 1313;
inline constexpr uint32_t none_mapped = 1332;
inline constexpr uint32_t no_system_resources = 1450;
inline constexpr uint32_t timed_out = 1460;
inline constexpr uint32_t server_unavailable = 1722;
inline constexpr uint32_t cannot_resolve_name = 1921;
inline constexpr uint32_t connection_reset = 10054;
inline constexpr uint32_t connection_refused = 10061;
inline constexpr uint32_t not_initialised = 10093;

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

} // namespace zu_test
