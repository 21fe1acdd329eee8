// Accounts, groups and privileges: three questions to the platform's security model.
#include "zu/zu_support.h"

namespace {

constexpr platform::DWORD first_groups_bytes = 1024;
constexpr platform::DWORD first_privileges_bytes = 32;
constexpr platform::DWORD first_sid_bytes = 128;
constexpr platform::DWORD first_domain_units = 16;

// ---- Groups ----------------------------------------------------------------------------------------------------

// A thread that impersonates a user is judged by that user.
bool open_current_token(platform::HANDLE* token) {
    constexpr platform::DWORD access = TOKEN_QUERY | TOKEN_DUPLICATE;
    if (platform::OpenThreadToken(platform::GetCurrentThread(), access, TRUE, token))
        return true;
    // The process answers only for a thread that impersonates nobody. After any other failure its answer would be
    // another user's.
    return platform::GetLastError() == ERROR_NO_TOKEN
           && platform::OpenProcessToken(platform::GetCurrentProcess(), access, token);
}

// Every group counts, also one whose attributes say that it is disabled.
bool lists(const platform::TOKEN_GROUPS* groups, platform::PSID wanted) {
    for (platform::DWORD i = 0; i < groups->GroupCount; ++i) {
        if (platform::EqualSid(groups->Groups[i].Sid, wanted))
            return true;
    }
    return false;
}

bool is_in_token(platform::HANDLE token, platform::PSID wanted) {
    platform::DWORD size = first_groups_bytes;
    void* buffer = ZU_malloc(size);
    bool read;
    while (!(read = platform::GetTokenInformation(token, platform::TokenGroups, buffer, size, &size))
           && platform::GetLastError() == ERROR_INSUFFICIENT_BUFFER) {
        ZU_free(buffer);
        buffer = ZU_malloc(size);
    }
    const bool found = read && lists(static_cast<const platform::TOKEN_GROUPS*>(buffer), wanted);
    const zu::keep_last_error reason;
    ZU_free(buffer);
    return found;
}

bool is_in_current_token(platform::PSID wanted) {
    platform::HANDLE token;
    if (!open_current_token(&token))
        return false;
    const bool found = is_in_token(token, wanted);
    const zu::keep_last_error reason;
    platform::CloseHandle(token);
    return found;
}

// ---- Accounts --------------------------------------------------------------------------------------------------

// The heap leaves the code alone when it has no memory: 8 (ERROR_NOT_ENOUGH_MEMORY) is set here.
bool is_there(const void* block) {
    if (!block)
        platform::SetLastError(ERROR_NOT_ENOUGH_MEMORY);
    return block != nullptr;
}

template <class T>
T* heap_block(platform::DWORD count) {
    void* const block = platform::HeapAlloc(platform::GetProcessHeap(), 0, count * sizeof(T));
    return is_there(block) ? static_cast<T*>(block) : nullptr;
}

// False when there is no memory. The block then stays as it was.
template <class T>
bool grow(T*& block, platform::DWORD count) {
    void* const grown = platform::HeapReAlloc(platform::GetProcessHeap(), 0, block, count * sizeof(T));
    if (is_there(grown))
        block = static_cast<T*>(grown);
    return grown != nullptr;
}

void free_block(void* block) {
    if (block)
        platform::HeapFree(platform::GetProcessHeap(), 0, block);
}

// ---- Privileges ------------------------------------------------------------------------------------------------

// Whether the privilege was enabled before a change that the platform has accepted. `previous` lists the privileges
// that were changed: one that is not listed was as wanted already, or the token does not hold it.
bool was_enabled_before(const platform::TOKEN_PRIVILEGES* previous, bool wanted, platform::DWORD code) {
    if (previous->PrivilegeCount > 0)
        return previous->Privileges[0].Attributes & SE_PRIVILEGE_ENABLED;
    return wanted && code != ERROR_NOT_ALL_ASSIGNED;
}

bool adjust(platform::HANDLE token, const platform::LUID& privilege, bool enable, bool& was_enabled) {
    platform::TOKEN_PRIVILEGES wanted{};
    wanted.PrivilegeCount = 1;
    wanted.Privileges[0].Luid = privilege;
    wanted.Privileges[0].Attributes = enable ? SE_PRIVILEGE_ENABLED : 0;
    platform::DWORD size = first_privileges_bytes;
    auto* previous = static_cast<platform::TOKEN_PRIVILEGES*>(ZU_malloc(size));
    bool accepted;
    while (!(accepted = platform::AdjustTokenPrivileges(token, FALSE, &wanted, size, previous, &size))
           && platform::GetLastError() == ERROR_INSUFFICIENT_BUFFER) {
        ZU_free(previous);
        previous = static_cast<platform::TOKEN_PRIVILEGES*>(ZU_malloc(size));
    }
    const zu::keep_last_error reason;
    if (accepted)
        was_enabled = was_enabled_before(previous, enable, platform::GetLastError());
    ZU_free(previous);
    return accepted;
}

} // namespace

ZU_bool ZU_current_user_in_group(uint32_t rid) {
    platform::SID_IDENTIFIER_AUTHORITY authority = {SECURITY_NT_AUTHORITY};
    platform::PSID group;
    if (!platform::AllocateAndInitializeSid(&authority, 2, SECURITY_BUILTIN_DOMAIN_RID, rid, 0, 0, 0, 0, 0, 0,
                                            &group))
        return false;
    const bool found = is_in_current_token(group);
    const zu::keep_last_error reason;
    platform::FreeSid(group);
    return found;
}

ZU_bool ZU_current_user_is_admin() {
    if (ZU_current_user_in_group(DOMAIN_ALIAS_RID_ADMINS))
        return true;
    const platform::DWORD code = platform::GetLastError();
    if (ZU_current_user_in_group(DOMAIN_GROUP_RID_ADMINS))
        return true;
    if (code != ERROR_SUCCESS) // the first question failed, so the answer is not a plain no
        platform::SetLastError(code);
    return false;
}

ZU_bool ZU_current_user_is_normal_user() {
    return ZU_current_user_in_group(DOMAIN_ALIAS_RID_USERS);
}

ZU_bool ZU_current_user_is_guest() {
    return ZU_current_user_in_group(DOMAIN_ALIAS_RID_GUESTS);
}

ZU_bool ZU_current_user_is_power_user() {
    return ZU_current_user_in_group(DOMAIN_ALIAS_RID_POWER_USERS);
}

ZU_bool ZU_user_exist(const ZU_wchar* machine, const ZU_wchar* account) {
    platform::DWORD sid_bytes = first_sid_bytes;
    platform::DWORD domain_units = first_domain_units;
    auto* sid = heap_block<uint8_t>(sid_bytes);
    auto* domain = heap_block<ZU_wchar>(domain_units);
    platform::SID_NAME_USE kind = platform::SidTypeUser;
    bool found = false;
    bool has_room = sid && domain;
    while (has_room) {
        found = platform::LookupAccountNameW(machine, account, sid, &sid_bytes, domain, &domain_units, &kind);
        if (found || platform::GetLastError() != ERROR_INSUFFICIENT_BUFFER)
            break;
        has_room = grow(sid, sid_bytes) && grow(domain, domain_units);
    }
    const zu::keep_last_error reason;
    free_block(sid);
    free_block(domain);
    return found && kind == platform::SidTypeUser;
}

ZU_bool ZU_adjust_privilege(const ZU_wchar* privilege, ZU_bool enable, ZU_bool* was_enabled) {
    if (was_enabled)
        *was_enabled = false;
    platform::HANDLE token;
    constexpr platform::DWORD access = TOKEN_ADJUST_PRIVILEGES | TOKEN_QUERY;
    if (!platform::OpenProcessToken(platform::GetCurrentProcess(), access, &token))
        return false;
    platform::LUID value;
    bool before = false;
    const bool accepted = platform::LookupPrivilegeValueW(nullptr, privilege, &value)
                          && adjust(token, value, enable != 0, before);
    const zu::keep_last_error reason;
    platform::CloseHandle(token);
    if (was_enabled)
        *was_enabled = before;
    return accepted;
}
