// The security model: identifiers of users and groups.
#pragma once

#include "platform/api/base.h"

namespace platform {

// ---- Identifiers: an authority and one to eight numbers below it -----------------------------------------------

using PSID = void*;

struct SID_IDENTIFIER_AUTHORITY {
    BYTE Value[6];
};

struct SID {
    BYTE Revision; // 1
    BYTE SubAuthorityCount;
    SID_IDENTIFIER_AUTHORITY IdentifierAuthority;
    DWORD SubAuthority[1]; // as many as the count says
};

// A new identifier for FreeSid; false with 1337 for a count above 8.
BOOL AllocateAndInitializeSid(SID_IDENTIFIER_AUTHORITY* authority, BYTE count, DWORD number_0, DWORD number_1,
                              DWORD number_2, DWORD number_3, DWORD number_4, DWORD number_5, DWORD number_6,
                              DWORD number_7, PSID* sid);
void* FreeSid(PSID sid); // always null

// Sets the last-error code to 0 whatever the answer.
BOOL EqualSid(PSID first, PSID second);

} // namespace platform

#define SECURITY_WORLD_SID_AUTHORITY                                                                         \
    { 0, 0, 0, 0, 0, 1 }
#define SECURITY_NT_AUTHORITY                                                                                \
    { 0, 0, 0, 0, 0, 5 }

inline constexpr platform::DWORD SECURITY_WORLD_RID = 0;
inline constexpr platform::DWORD SECURITY_BUILTIN_DOMAIN_RID = 0x20;
inline constexpr platform::DWORD DOMAIN_GROUP_RID_ADMINS = 0x200;
inline constexpr platform::DWORD DOMAIN_ALIAS_RID_ADMINS = 0x220;
inline constexpr platform::DWORD DOMAIN_ALIAS_RID_USERS = 0x221;
inline constexpr platform::DWORD DOMAIN_ALIAS_RID_GUESTS = 0x222;
inline constexpr platform::DWORD DOMAIN_ALIAS_RID_POWER_USERS = 0x223;
