// LookupAccountNameW: from a name to its account.
#include <cerrno>

#include "platform/accounts/host_users.h"
#include "platform/core/error.h"
#include "platform/system/computer.h"
#include "platform/text/case_fold.h"
#include "platform/text/utf8.h"

namespace platform {

namespace {

struct account {
    sid_value sid;
    std::u16string domain;
    SID_NAME_USE kind;
};

struct known_account {
    std::u16string_view domain;
    std::u16string_view name;
    BYTE authority;
    DWORD number; // an alias's lies below SECURITY_BUILTIN_DOMAIN_RID
    SID_NAME_USE kind;
};

constexpr std::u16string_view builtin = u"BUILTIN";
constexpr std::u16string_view nt = u"NT AUTHORITY";

constexpr known_account known_accounts[] = {
    {builtin, u"Administrators", nt_authority, DOMAIN_ALIAS_RID_ADMINS, SidTypeAlias},
    {builtin, u"Users", nt_authority, DOMAIN_ALIAS_RID_USERS, SidTypeAlias},
    {builtin, u"Guests", nt_authority, DOMAIN_ALIAS_RID_GUESTS, SidTypeAlias},
    {builtin, u"Power Users", nt_authority, DOMAIN_ALIAS_RID_POWER_USERS, SidTypeAlias},
    {u"", u"Everyone", world_authority, SECURITY_WORLD_RID, SidTypeWellKnownGroup},
    {nt, u"SYSTEM", nt_authority, 18, SidTypeWellKnownGroup},
    {nt, u"LOCAL SERVICE", nt_authority, 19, SidTypeWellKnownGroup},
    {nt, u"NETWORK SERVICE", nt_authority, 20, SidTypeWellKnownGroup},
};

account domain_account(std::u16string_view name) {
    if (name == builtin)
        return {{nt_authority, {SECURITY_BUILTIN_DOMAIN_RID}}, std::u16string(name), SidTypeDomain};
    return {{nt_authority, {21, 0, 0, 0}}, std::u16string(name), SidTypeDomain};
}

std::optional<account> find_known(std::u16string_view domain, std::u16string_view name, bool any_domain) {
    for (const known_account& known : known_accounts) {
        if (!equal_without_case(known.name, name)
            || (!any_domain && !equal_without_case(known.domain, domain)))
            continue;
        const sid_value sid = known.kind == SidTypeAlias ? sid_of_alias(known.number)
                                                         : sid_value(known.authority, {known.number});
        return account{sid, std::u16string(known.domain), known.kind};
    }
    return std::nullopt;
}

// The account of a name. A user comes before a group of the same name. errno is 0 if nothing has the name.
std::optional<account> find_account(std::u16string_view domain, std::u16string_view name) {
    const std::u16string machine = computer_name();
    const bool anywhere = domain.empty();
    const bool here = anywhere || domain == u"." || equal_without_case(domain, machine);
    const std::string narrow = utf8_of(name);
    errno = 0;
    if (here) {
        if (const auto user = find_user(narrow))
            return account{sid_of_user(user->id), machine, SidTypeUser};
        if (errno != 0)
            return std::nullopt;
    } else { // the host's name service has the users of other domains under both names
        if (const auto user = find_user(utf8_of(domain) + '\\' + narrow))
            return account{sid_of_user(user->id), std::u16string(domain), SidTypeUser};
        if (errno != 0)
            return std::nullopt;
    }
    if (auto known = find_known(domain, name, anywhere))
        return known;
    if (anywhere && (equal_without_case(name, machine) || equal_without_case(name, builtin)))
        return domain_account(equal_without_case(name, builtin) ? builtin : std::u16string_view(machine));
    if (here) {
        if (const auto group = find_group(narrow))
            return account{sid_of_group(*group), machine, SidTypeAlias};
    }
    return std::nullopt;
}

std::optional<account> find_account(std::u16string_view full_name) {
    if (full_name.empty())
        return domain_account(builtin);
    const size_t separator = full_name.find(u'\\');
    if (separator == std::u16string_view::npos)
        return find_account(u"", full_name);
    const std::u16string_view domain = full_name.substr(0, separator);
    const std::u16string_view name = full_name.substr(separator + 1);
    errno = 0;
    if (domain.empty() || name.empty() || name.find(u'\\') != std::u16string_view::npos)
        return std::nullopt;
    return find_account(domain, name);
}

} // namespace

BOOL LookupAccountNameW(const WCHAR* machine, const WCHAR* name, PSID sid, DWORD* sid_size, WCHAR* domain,
                        DWORD* domain_size, SID_NAME_USE* kind) {
    if (!is_this_computer(machine))
        return fail(RPC_S_SERVER_UNAVAILABLE);
    const std::optional<account> found =
        find_account(name ? std::u16string_view(name) : std::u16string_view());
    if (!found)
        return fail(errno == 0 ? DWORD{ERROR_NONE_MAPPED} : code_of_errno(errno));
    const DWORD domain_length = static_cast<DWORD>(found->domain.size());
    const bool fits = *sid_size >= found->sid.size() && *domain_size > domain_length;
    *sid_size = found->sid.size();
    *domain_size = fits ? domain_length : domain_length + 1;
    if (!fits)
        return fail(ERROR_INSUFFICIENT_BUFFER);
    std::memcpy(sid, found->sid.data(), found->sid.size());
    std::memcpy(domain, found->domain.c_str(), (domain_length + 1) * sizeof(WCHAR));
    *kind = found->kind;
    return TRUE;
}

} // namespace platform
