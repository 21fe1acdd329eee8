// The security model: identifiers of users and groups, accounts, tokens, privileges, logon.
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

// A new identifier for FreeSid; false with 1337 (ERROR_INVALID_SID) for a count above 8.
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

// A new list of entries that allow, for LocalFree. Returns the code: 50 (ERROR_NOT_SUPPORTED) for an old list to merge
// with, a mode other than set and grant, or a trustee that is no identifier; 0 and a null list for no entries.
DWORD SetEntriesInAclW(DWORD count, EXPLICIT_ACCESS_W* entries, ACL* old_list, ACL** new_list);

// Fails with 1305 (ERROR_UNKNOWN_REVISION) for any revision but 1.
BOOL InitializeSecurityDescriptor(SECURITY_DESCRIPTOR* descriptor, DWORD revision);

// Both keep the address alone.
BOOL SetSecurityDescriptorOwner(SECURITY_DESCRIPTOR* descriptor, PSID owner, BOOL defaulted);
BOOL SetSecurityDescriptorDacl(SECURITY_DESCRIPTOR* descriptor, BOOL present, ACL* list, BOOL defaulted);

// ---- Accounts --------------------------------------------------------------------------------------------------

enum SID_NAME_USE { SidTypeUser = 1, SidTypeGroup, SidTypeDomain, SidTypeAlias, SidTypeWellKnownGroup };

// Finds the account that a name, with or without a domain and a backslash before it, stands for on this machine; any
// other machine fails with 1722 (RPC_S_SERVER_UNAVAILABLE), a name of nobody with 1332 (ERROR_NONE_MAPPED). Sizes are
// bytes and characters: what is there and what came, or with code 122 (ERROR_INSUFFICIENT_BUFFER) what is needed.
BOOL LookupAccountNameW(const WCHAR* machine, const WCHAR* name, PSID sid, DWORD* sid_size, WCHAR* domain,
                        DWORD* domain_size, SID_NAME_USE* kind);

// ---- Tokens: who a process or a thread is ----------------------------------------------------------------------

struct SID_AND_ATTRIBUTES {
    PSID Sid;
    DWORD Attributes;
};

struct TOKEN_GROUPS {
    DWORD GroupCount;
    SID_AND_ATTRIBUTES Groups[1]; // as many as the count says; the identifiers follow
};

enum TOKEN_INFORMATION_CLASS { TokenGroups = 2 };

HANDLE GetCurrentProcess();
HANDLE GetCurrentThread();

// The calling process's token (its effective user), and the one that the calling thread impersonates; without one 1008
// (ERROR_NO_TOKEN).
BOOL OpenProcessToken(HANDLE process, DWORD access, HANDLE* token);
BOOL OpenThreadToken(HANDLE thread, DWORD access, BOOL as_self, HANDLE* token);

BOOL GetTokenInformation(HANDLE token, TOKEN_INFORMATION_CLASS wanted, LPVOID out, DWORD size, DWORD* length);

// Impersonation is a matter of this layer: questions about the thread's groups are answered for the other user.
// The host's own permissions do not change.
BOOL ImpersonateLoggedOnUser(HANDLE token);
BOOL RevertToSelf();

// ---- Privileges ------------------------------------------------------------------------------------------------

struct LUID {
    DWORD LowPart;
    LONG HighPart;
};

struct LUID_AND_ATTRIBUTES {
    LUID Luid;
    DWORD Attributes;
};

struct TOKEN_PRIVILEGES {
    DWORD PrivilegeCount;
    LUID_AND_ATTRIBUTES Privileges[1]; // as many as the count says
};

// Fails with 1313 (ERROR_NO_SUCH_PRIVILEGE) for an unknown name.
BOOL LookupPrivilegeValueW(const WCHAR* machine, const WCHAR* name, LUID* value);

// True, with code 1300 (ERROR_NOT_ALL_ASSIGNED) when the token does not hold one of them. `previous` (may be null)
// lists what has changed.
BOOL AdjustTokenPrivileges(HANDLE token, BOOL disable_all, TOKEN_PRIVILEGES* wanted, DWORD size,
                           TOKEN_PRIVILEGES* previous, DWORD* length);

// ---- Logon -----------------------------------------------------------------------------------------------------

// Asks the host's authentication service for its verdict: 1326 (ERROR_LOGON_FAILURE) when it refuses, 1327
// (ERROR_ACCOUNT_RESTRICTION) for an empty password, other codes for accounts that are locked or have expired. The only
// type is the network's, the only provider the default.
BOOL LogonUserW(const WCHAR* user, const WCHAR* domain, const WCHAR* password, DWORD type, DWORD provider,
                HANDLE* token);

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

inline constexpr platform::DWORD TOKEN_DUPLICATE = 0x2;
inline constexpr platform::DWORD TOKEN_QUERY = 0x8;
inline constexpr platform::DWORD TOKEN_ADJUST_PRIVILEGES = 0x20;

inline constexpr platform::DWORD SE_PRIVILEGE_ENABLED = 0x2;

inline constexpr platform::DWORD LOGON32_LOGON_NETWORK = 3;
inline constexpr platform::DWORD LOGON32_PROVIDER_DEFAULT = 0;
