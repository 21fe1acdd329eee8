// Identifiers of users and groups.
#include <cstdlib>

#include "platform/access/sid.h"

namespace platform {

BOOL AllocateAndInitializeSid(SID_IDENTIFIER_AUTHORITY* authority, BYTE count, DWORD number_0, DWORD number_1,
                              DWORD number_2, DWORD number_3, DWORD number_4, DWORD number_5, DWORD number_6,
                              DWORD number_7, PSID* sid) {
    if (count > sid_numbers_at_most) {
        SetLastError(ERROR_INVALID_SID);
        return FALSE;
    }
    auto* made = static_cast<SID*>(std::malloc(size_of_sid(sid_numbers_at_most)));
    if (!made) {
        SetLastError(ERROR_NOT_ENOUGH_MEMORY);
        return FALSE;
    }
    const DWORD numbers[] = {number_0, number_1, number_2, number_3, number_4, number_5, number_6, number_7};
    made->Revision = sid_revision;
    made->SubAuthorityCount = count;
    made->IdentifierAuthority = *authority;
    std::memcpy(reinterpret_cast<BYTE*>(made) + offsetof(SID, SubAuthority), numbers, sizeof numbers);
    *sid = made;
    return TRUE;
}

void* FreeSid(PSID sid) {
    std::free(sid);
    return nullptr;
}

BOOL EqualSid(PSID first, PSID second) {
    const auto* one = static_cast<const SID*>(first);
    const auto* other = static_cast<const SID*>(second);
    SetLastError(ERROR_SUCCESS);
    return one->SubAuthorityCount == other->SubAuthorityCount
           && std::memcmp(one, other, size_of_sid(one->SubAuthorityCount)) == 0;
}

} // namespace platform
