// Access lists and security descriptors.
#include "platform/access/access_list.h"

#include <cstring>

#include "platform/access/sid.h"

namespace platform {

namespace {

struct ace {
    BYTE type; // 0: allows
    BYTE flags;
    WORD size;
    DWORD mask;
    // the identifier follows
};

constexpr BYTE acl_revision = 2;
constexpr BYTE allows = 0;

DWORD size_of(PSID sid) {
    return size_of_sid(static_cast<const SID*>(sid)->SubAuthorityCount);
}

bool is_supported(const EXPLICIT_ACCESS_W& entry) {
    return (entry.grfAccessMode == SET_ACCESS || entry.grfAccessMode == GRANT_ACCESS)
           && entry.Trustee.TrusteeForm == TRUSTEE_IS_SID && entry.Trustee.ptstrName;
}

} // namespace

DWORD SetEntriesInAclW(DWORD count, EXPLICIT_ACCESS_W* entries, ACL* old_list, ACL** new_list) {
    *new_list = nullptr;
    if (count == 0 && !old_list)
        return ERROR_SUCCESS;
    if (old_list)
        return ERROR_NOT_SUPPORTED;
    size_t size = sizeof(ACL);
    for (DWORD i = 0; i < count; ++i) {
        if (!is_supported(entries[i]))
            return ERROR_NOT_SUPPORTED;
        size += sizeof(ace) + size_of(entries[i].Trustee.ptstrName);
    }
    if (size > 0xFFFF)
        return ERROR_INVALID_PARAMETER;
    auto* list = static_cast<BYTE*>(LocalAlloc(LMEM_ZEROINIT, size));
    if (!list)
        return ERROR_NOT_ENOUGH_MEMORY;
    const ACL header{acl_revision, 0, static_cast<WORD>(size), static_cast<WORD>(count), 0};
    std::memcpy(list, &header, sizeof header);
    BYTE* at = list + sizeof header;
    for (DWORD i = 0; i < count; ++i) {
        const DWORD sid_size = size_of(entries[i].Trustee.ptstrName);
        const ace head{allows, static_cast<BYTE>(entries[i].grfInheritance),
                       static_cast<WORD>(sizeof(ace) + sid_size), entries[i].grfAccessPermissions};
        std::memcpy(at, &head, sizeof head);
        std::memcpy(at + sizeof head, entries[i].Trustee.ptstrName, sid_size);
        at += head.size;
    }
    *new_list = reinterpret_cast<ACL*>(list);
    return ERROR_SUCCESS;
}

BOOL InitializeSecurityDescriptor(SECURITY_DESCRIPTOR* descriptor, DWORD revision) {
    if (revision != SECURITY_DESCRIPTOR_REVISION) {
        SetLastError(ERROR_UNKNOWN_REVISION);
        return FALSE;
    }
    *descriptor = {};
    descriptor->Revision = SECURITY_DESCRIPTOR_REVISION;
    return TRUE;
}

BOOL SetSecurityDescriptorOwner(SECURITY_DESCRIPTOR* descriptor, PSID owner, BOOL) {
    descriptor->Owner = owner;
    return TRUE;
}

BOOL SetSecurityDescriptorDacl(SECURITY_DESCRIPTOR* descriptor, BOOL present, ACL* list, BOOL) {
    descriptor->DaclPresent = present != FALSE;
    descriptor->Dacl = list;
    return TRUE;
}

bool allows_everyone(const SECURITY_ATTRIBUTES* attributes, DWORD wanted) {
    const auto* descriptor =
        attributes ? static_cast<const SECURITY_DESCRIPTOR*>(attributes->lpSecurityDescriptor) : nullptr;
    if (!descriptor || !descriptor->DaclPresent)
        return false;
    if (!descriptor->Dacl)
        return true; // present and null: no restriction at all
    const sid_value everyone(1, {SECURITY_WORLD_RID});
    const BYTE* at = reinterpret_cast<const BYTE*>(descriptor->Dacl) + sizeof(ACL);
    for (WORD i = 0; i < descriptor->Dacl->AceCount; ++i) {
        ace head;
        std::memcpy(&head, at, sizeof head);
        if (head.type == allows && (head.mask & wanted) == wanted
            && head.size == sizeof head + everyone.size()
            && std::memcmp(at + sizeof head, everyone.data(), everyone.size()) == 0)
            return true;
        at += head.size;
    }
    return false;
}

} // namespace platform
