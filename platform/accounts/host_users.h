// Inside this folder: the host's users and groups, and the identifiers that stand for them.
#pragma once

#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

#include "platform/access/sid.h"

namespace platform {

struct host_user {
    std::string name;
    uid_t id;
    gid_t group;
    std::string shell;
};

// The look-ups give nothing with errno 0 if there is no such entry, and with another errno if the look-up failed.

// The account of that name, else the one of that name in lower case: names ignore case on the platform.
std::optional<host_user> find_user(const std::string& name);
std::optional<host_user> find_user(uid_t id);

std::optional<gid_t> find_group(const std::string& name);

// The groups of an account, its own first. Nothing, with errno, if the look-up failed.
std::optional<std::vector<gid_t>> groups_of(const host_user& user);

inline constexpr BYTE world_authority = 1;
inline constexpr BYTE nt_authority = 5;
inline constexpr BYTE host_authority = 22;

// The identifiers S-1-22-1-uid and S-1-22-2-gid.
sid_value sid_of_user(uid_t id);
sid_value sid_of_group(gid_t id);

// The identifier S-1-5-32-number.
sid_value sid_of_alias(DWORD number);

// The groups in the token of a user with these groups: the built-in ones that apply, everyone, then each of the host's.
// Nothing, with errno, if a look-up failed.
std::optional<std::vector<sid_value>> groups_in_token(uid_t id, const std::vector<gid_t>& groups);

} // namespace platform
