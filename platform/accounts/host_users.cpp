// The host's users and groups, and the identifiers that stand for them.
#include "platform/accounts/host_users.h"

#include <grp.h>
#include <pwd.h>

#include <algorithm>
#include <cerrno>

#include "platform/core/host_entry.h"

namespace platform {

// ---- The host's data bases -------------------------------------------------------------------------------------

namespace {

template <class Call>
std::optional<host_user> user_by(Call call) {
    passwd entry;
    std::vector<char> storage;
    if (!look_up(entry, storage, call))
        return std::nullopt;
    return host_user{entry.pw_name, entry.pw_uid, entry.pw_gid, entry.pw_shell ? entry.pw_shell : ""};
}

std::optional<host_user> find_exact_user(const std::string& name) {
    return user_by([&](passwd* entry, char* storage, size_t size, passwd** found) {
        return getpwnam_r(name.c_str(), entry, storage, size, found);
    });
}

std::string in_lower_case(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; });
    return text;
}

} // namespace

std::optional<host_user> find_user(const std::string& name) {
    if (auto user = find_exact_user(name))
        return user;
    const std::string lower = in_lower_case(name);
    return lower == name || errno != 0 ? std::nullopt : find_exact_user(lower);
}

std::optional<host_user> find_user(uid_t id) {
    return user_by([&](passwd* entry, char* storage, size_t size, passwd** found) {
        return getpwuid_r(id, entry, storage, size, found);
    });
}

std::optional<gid_t> find_group(const std::string& name) {
    group entry;
    std::vector<char> storage;
    const bool found = look_up(entry, storage, [&](group* out, char* room, size_t size, group** result) {
        return getgrnam_r(name.c_str(), out, room, size, result);
    });
    return found ? std::optional(entry.gr_gid) : std::nullopt;
}

std::optional<std::vector<gid_t>> groups_of(const host_user& user) {
    std::vector<gid_t> groups;
    for (int room = 32;;) {
        groups.resize(static_cast<size_t>(room));
        int count = room;
        const bool fits = getgrouplist(user.name.c_str(), user.group, groups.data(), &count) >= 0;
        if (fits) {
            groups.resize(static_cast<size_t>(count));
            return groups;
        }
        if (count <= room) { // the call failed, but not for want of room
            errno = ENOMEM;
            return std::nullopt;
        }
        room = count;
    }
}

// ---- Identifiers -----------------------------------------------------------------------------------------------

namespace {

// The host's groups whose members count as members of a built-in one. The group root has no rights of its own, and
// containers give it to arbitrary users.
constexpr const char* administrators[] = {"wheel", "sudo", "admin"};
constexpr const char* power_users[] = {"staff"};
constexpr const char* guest = "nobody";

// Whether the groups hold one of these names. False with errno 0 for a no, and with another errno if a look-up failed.
template <size_t count>
bool any_among(const char* const (&names)[count], const std::vector<gid_t>& groups) {
    for (const char* name : names) {
        const std::optional<gid_t> id = find_group(name);
        if (!id && errno != 0)
            return false;
        if (id && std::find(groups.begin(), groups.end(), *id) != groups.end())
            return true;
    }
    errno = 0;
    return false;
}

// Nobody logs in with an account whose shell ends the session at once.
bool may_log_in(const host_user& user) {
    const std::string program = user.shell.substr(user.shell.rfind('/') + 1);
    return program != "nologin" && program != "false";
}

} // namespace

sid_value sid_of_user(uid_t id) {
    return {host_authority, {1, id}};
}

sid_value sid_of_group(gid_t id) {
    return {host_authority, {2, id}};
}

sid_value sid_of_alias(DWORD number) {
    return {nt_authority, {SECURITY_BUILTIN_DOMAIN_RID, number}};
}

std::optional<std::vector<sid_value>> groups_in_token(uid_t id, const std::vector<gid_t>& groups) {
    const std::optional<host_user> user = find_user(id);
    if (!user && errno != 0)
        return std::nullopt;
    const bool is_administrator = id == 0 || any_among(administrators, groups);
    if (!is_administrator && errno != 0)
        return std::nullopt;
    const bool is_power_user = any_among(power_users, groups);
    if (!is_power_user && errno != 0)
        return std::nullopt;
    std::vector<sid_value> sids;
    if (is_administrator)
        sids.push_back(sid_of_alias(DOMAIN_ALIAS_RID_ADMINS));
    if (user && may_log_in(*user))
        sids.push_back(sid_of_alias(DOMAIN_ALIAS_RID_USERS));
    if (user && user->name == guest)
        sids.push_back(sid_of_alias(DOMAIN_ALIAS_RID_GUESTS));
    if (is_power_user)
        sids.push_back(sid_of_alias(DOMAIN_ALIAS_RID_POWER_USERS));
    sids.push_back({world_authority, {SECURITY_WORLD_RID}});
    for (const gid_t group : groups)
        sids.push_back(sid_of_group(group));
    return sids;
}

} // namespace platform
