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

// ---- Access lists and descriptors -------------------------------------------------------------------------------

enum ACCESS_MODE { NOT_USED_ACCESS, GRANT_ACCESS, SET_ACCESS };
enum TRUSTEE_FORM { TRUSTEE_IS_SID };
enum TRUSTEE_TYPE { TRUSTEE_IS_GROUP = 2, TRUSTEE_IS_WELL_KNOWN_GROUP = 5 };

struct TRUSTEE_W {
    TRUSTEE_W* pMultipleTrustee;
    int MultipleTrusteeOperation;
    TRUSTEE_FORM TrusteeForm;
    TRUSTEE_TYPE TrusteeType;
    WCHAR* ptstrName; // for TRUSTEE_IS_SID: the identifier
};

struct EXPLICIT_ACCESS_W {
    DWORD grfAccessPermissions;
    ACCESS_MODE grfAccessMode;
    DWORD grfInheritance;
    TRUSTEE_W Trustee;
};

struct ACL {
    BYTE AclRevision;
    BYTE Sbz1;
    WORD AclSize; // bytes, with the entries that follow
    WORD AceCount;
    WORD Sbz2;
};

struct SECURITY_DESCRIPTOR {
    BYTE Revision;
    BYTE DaclPresent;
    PSID Owner;
    ACL* Dacl;
};

// A new list of entries that allow, for LocalFree. Returns the code: 50 for an old list to merge with, a mode other
// than set and grant, or a trustee that is no identifier; 0 and a null list for no entries.
DWORD SetEntriesInAclW(DWORD count, EXPLICIT_ACCESS_W* entries, ACL* old_list, ACL** new_list);

BOOL InitializeSecurityDescriptor(SECURITY_DESCRIPTOR* descriptor, DWORD revision); // 1305 unless revision 1
// Both keep the address alone.
BOOL SetSecurityDescriptorOwner(SECURITY_DESCRIPTOR* descriptor, PSID owner, BOOL defaulted);
BOOL SetSecurityDescriptorDacl(SECURITY_DESCRIPTOR* descriptor, BOOL present, ACL* list, BOOL defaulted);

} // namespace platform

#define SECURITY_WORLD_SID_AUTHORITY                                                                         \
    { 0, 0, 0, 0, 0, 1 }
#define SECURITY_NT_AUTHORITY                                                                                \
    { 0, 0, 0, 0, 0, 5 }

inline constexpr platform::DWORD SECURITY_DESCRIPTOR_REVISION = 1;
inline constexpr platform::DWORD NO_INHERITANCE = 0;
using platform::GRANT_ACCESS;
using platform::SET_ACCESS;
using platform::TRUSTEE_IS_GROUP;
using platform::TRUSTEE_IS_SID;
using platform::TRUSTEE_IS_WELL_KNOWN_GROUP;

inline constexpr platform::DWORD SECURITY_WORLD_RID = 0;
inline constexpr platform::DWORD SECURITY_BUILTIN_DOMAIN_RID = 0x20;
inline constexpr platform::DWORD DOMAIN_GROUP_RID_ADMINS = 0x200;
inline constexpr platform::DWORD DOMAIN_ALIAS_RID_ADMINS = 0x220;
inline constexpr platform::DWORD DOMAIN_ALIAS_RID_USERS = 0x221;
inline constexpr platform::DWORD DOMAIN_ALIAS_RID_GUESTS = 0x222;
inline constexpr platform::DWORD DOMAIN_ALIAS_RID_POWER_USERS = 0x223;
