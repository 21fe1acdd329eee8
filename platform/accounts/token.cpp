// Tokens: the user of this process, and the one that this thread impersonates.
#include "platform/accounts/token.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <new>

#include "platform/core/error.h"
#include "platform/core/thread_own.h"

namespace platform {

namespace {

constexpr DWORD every_access = 0xFFFFFFFF;
constexpr DWORD group_attributes = 0x7; // mandatory, enabled by default, enabled

// The user that this thread impersonates; empty for none.
std::shared_ptr<const identity>& impersonated() {
    return thread_own<std::shared_ptr<const identity>>::get();
}

// The identity of a user. Null, with the code, if its groups cannot be looked up.
std::shared_ptr<const identity> identity_of(uid_t user, const std::vector<gid_t>& groups, bool is_process) {
    std::optional<std::vector<sid_value>> sids = groups_in_token(user, groups);
    return sids ? std::make_shared<const identity>(identity{user, std::move(*sids), is_process})
                : fail<std::shared_ptr<const identity>>(code_of_errno(errno));
}

std::shared_ptr<const identity> this_process() {
    std::vector<gid_t> groups(1, getegid());
    const int count = getgroups(0, nullptr);
    groups.resize(1 + static_cast<size_t>(std::max(count, 0)));
    const int filled = count > 0 ? getgroups(count, groups.data() + 1) : count;
    if (filled < 0)
        return fail<std::shared_ptr<const identity>>(code_of_errno(errno));
    groups.resize(1 + static_cast<size_t>(filled));
    return identity_of(geteuid(), groups, true);
}

BOOL open_token(std::shared_ptr<const identity> of, DWORD access, HANDLE* out) {
    *out = of ? new_handle(new (std::nothrow) token(std::move(of), access)) : nullptr;
    return *out != nullptr;
}

} // namespace

HANDLE GetCurrentProcess() {
    return reinterpret_cast<HANDLE>(intptr_t{-1});
}

HANDLE GetCurrentThread() {
    return reinterpret_cast<HANDLE>(intptr_t{-2});
}

BOOL OpenProcessToken(HANDLE process, DWORD access, HANDLE* out) {
    return process == GetCurrentProcess() ? open_token(this_process(), access, out)
                                          : fail(ERROR_INVALID_HANDLE);
}

BOOL OpenThreadToken(HANDLE thread, DWORD access, BOOL, HANDLE* out) {
    if (thread != GetCurrentThread())
        return fail(ERROR_INVALID_HANDLE);
    return impersonated() ? open_token(impersonated(), access, out) : fail(ERROR_NO_TOKEN);
}

BOOL GetTokenInformation(HANDLE handle, TOKEN_INFORMATION_CLASS wanted, LPVOID out, DWORD size,
                         DWORD* length) {
    const token* asked = object_of<token>(handle);
    if (!asked)
        return FALSE;
    if (!asked->allows(TOKEN_QUERY))
        return fail(ERROR_ACCESS_DENIED);
    if (wanted != TokenGroups)
        return fail(ERROR_INVALID_PARAMETER);
    const std::vector<sid_value>& groups = asked->of()->groups;
    size_t need = offsetof(TOKEN_GROUPS, Groups) + groups.size() * sizeof(SID_AND_ATTRIBUTES);
    BYTE* next_sid = static_cast<BYTE*>(out) + need; // the identifiers follow the list
    for (const sid_value& sid : groups)
        need += sid.size();
    *length = static_cast<DWORD>(need);
    if (size < need)
        return fail(ERROR_INSUFFICIENT_BUFFER);
    auto* list = static_cast<TOKEN_GROUPS*>(out);
    list->GroupCount = static_cast<DWORD>(groups.size());
    SID_AND_ATTRIBUTES* entry = list->Groups;
    for (const sid_value& sid : groups) {
        *entry++ = {next_sid, group_attributes};
        std::memcpy(next_sid, sid.data(), sid.size());
        next_sid += sid.size();
    }
    return TRUE;
}

BOOL ImpersonateLoggedOnUser(HANDLE handle) {
    const token* user = object_of<token>(handle);
    if (!user)
        return FALSE;
    impersonated() = user->of();
    return TRUE;
}

BOOL RevertToSelf() {
    impersonated().reset();
    return TRUE;
}

HANDLE new_token(const host_user& user) {
    const std::optional<std::vector<gid_t>> groups = groups_of(user);
    if (!groups)
        return fail<HANDLE>(code_of_errno(errno));
    HANDLE out;
    return open_token(identity_of(user.id, *groups, false), every_access, &out) ? out : nullptr;
}

} // namespace platform
