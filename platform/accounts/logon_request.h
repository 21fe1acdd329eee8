// Inside the layer: the two packets between the layer and its helper about a logon.
//   To the helper: the account's name, a zero byte, the password.
//   Back: the 32-bit code of the verdict, 0 when the password is right. No answer means that it is not.
#pragma once

#include <cstddef>

namespace platform {

inline constexpr size_t logon_request_at_most = 4096;
inline constexpr unsigned logon_limit_s = 60; // some modules let every refusal take seconds

} // namespace platform
