// Inside the layer: what passes between the layer and its helper about a logon, over a pair of packet sockets:
//   there: the account's name, a zero byte, the password;
//   back: the 32-bit code of the verdict, 0 for yes. No answer is no.
#pragma once

#include <cstddef>

namespace platform {

inline constexpr size_t logon_request_at_most = 4096;
inline constexpr unsigned logon_limit_s = 60; // some modules let every refusal take seconds

} // namespace platform
