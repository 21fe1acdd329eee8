// Privileges: their names, and which of them this process has switched on.
#include <atomic>

#include "platform/accounts/token.h"
#include "platform/core/error.h"
#include "platform/system/computer.h"
#include "platform/text/case_fold.h"

namespace platform {

namespace {

// The value of the first privilege in the list; the others count up from it.
constexpr DWORD first_privilege = 2;
constexpr std::u16string_view names[] = {u"SeCreateTokenPrivilege",
                                         u"SeAssignPrimaryTokenPrivilege",
                                         u"SeLockMemoryPrivilege",
                                         u"SeIncreaseQuotaPrivilege",
                                         u"SeMachineAccountPrivilege",
                                         u"SeTcbPrivilege",
                                         u"SeSecurityPrivilege",
                                         u"SeTakeOwnershipPrivilege",
                                         u"SeLoadDriverPrivilege",
                                         u"SeSystemProfilePrivilege",
                                         u"SeSystemtimePrivilege",
                                         u"SeProfileSingleProcessPrivilege",
                                         u"SeIncreaseBasePriorityPrivilege",
                                         u"SeCreatePagefilePrivilege",
                                         u"SeCreatePermanentPrivilege",
                                         u"SeBackupPrivilege",
                                         u"SeRestorePrivilege",
                                         u"SeShutdownPrivilege",
                                         u"SeDebugPrivilege",
                                         u"SeAuditPrivilege",
                                         u"SeSystemEnvironmentPrivilege",
                                         u"SeChangeNotifyPrivilege",
                                         u"SeRemoteShutdownPrivilege",
                                         u"SeUndockPrivilege",
                                         u"SeSyncAgentPrivilege",
                                         u"SeEnableDelegationPrivilege",
                                         u"SeManageVolumePrivilege",
                                         u"SeImpersonatePrivilege",
                                         u"SeCreateGlobalPrivilege"};
constexpr DWORD end_of_privileges = first_privilege + std::size(names);
constexpr DWORD change_notify = 23;

// One bit for each privilege. Everybody holds SeChangeNotifyPrivilege, and a process starts with it enabled.
std::atomic<uint64_t> enabled{uint64_t{1} << change_notify};

bool is_held(const identity& user, const LUID& privilege) {
    return user.is_process && (user.user == 0 || privilege.LowPart == change_notify)
           && privilege.HighPart == 0 && privilege.LowPart >= first_privilege
           && privilege.LowPart < end_of_privileges;
}

bool is_enabled(const LUID& privilege) {
    return enabled.load() >> privilege.LowPart & 1;
}

// Switches a privilege, and tells whether it was on before.
bool enable(const LUID& privilege, bool on) {
    const uint64_t bit = uint64_t{1} << privilege.LowPart;
    return (on ? enabled.fetch_or(bit) : enabled.fetch_and(~bit)) & bit;
}

DWORD size_of_list(DWORD count) {
    return static_cast<DWORD>(offsetof(TOKEN_PRIVILEGES, Privileges) + count * sizeof(LUID_AND_ATTRIBUTES));
}

} // namespace

BOOL LookupPrivilegeValueW(const WCHAR* machine, const WCHAR* name, LUID* value) {
    if (!is_this_computer(machine))
        return fail(RPC_S_SERVER_UNAVAILABLE);
    for (DWORD i = 0; name && i < std::size(names); ++i) {
        if (equal_without_case(names[i], name)) {
            *value = {first_privilege + i, 0};
            return TRUE;
        }
    }
    return fail(ERROR_NO_SUCH_PRIVILEGE);
}

BOOL AdjustTokenPrivileges(HANDLE handle, BOOL disable_all, TOKEN_PRIVILEGES* wanted, DWORD size,
                           TOKEN_PRIVILEGES* previous, DWORD* length) {
    const token* adjusted = object_of<token>(handle);
    if (!adjusted)
        return FALSE;
    if (!adjusted->allows(TOKEN_ADJUST_PRIVILEGES | (previous ? TOKEN_QUERY : 0)))
        return fail(ERROR_ACCESS_DENIED);
    if (disable_all || !wanted)
        return fail(ERROR_INVALID_PARAMETER);
    DWORD held = 0, changing = 0;
    for (DWORD i = 0; i < wanted->PrivilegeCount; ++i) {
        const LUID_AND_ATTRIBUTES& entry = wanted->Privileges[i];
        if (!is_held(*adjusted->of(), entry.Luid))
            continue;
        ++held;
        changing += is_enabled(entry.Luid) != ((entry.Attributes & SE_PRIVILEGE_ENABLED) != 0);
    }
    if (previous) {
        *length = size_of_list(changing);
        if (size < *length)
            return fail(ERROR_INSUFFICIENT_BUFFER);
        previous->PrivilegeCount = 0;
    }
    for (DWORD i = 0; i < wanted->PrivilegeCount; ++i) {
        const LUID_AND_ATTRIBUTES& entry = wanted->Privileges[i];
        const bool on = entry.Attributes & SE_PRIVILEGE_ENABLED;
        if (!is_held(*adjusted->of(), entry.Luid) || enable(entry.Luid, on) == on)
            continue;
        if (previous && previous->PrivilegeCount < changing)
            previous->Privileges[previous->PrivilegeCount++] = {entry.Luid, on ? 0 : SE_PRIVILEGE_ENABLED};
    }
    SetLastError(held == wanted->PrivilegeCount ? ERROR_SUCCESS : ERROR_NOT_ALL_ASSIGNED);
    return TRUE;
}

} // namespace platform
