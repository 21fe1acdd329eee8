// The security package's interface: the records and entry points that programs look up by name in "secur32.dll".
#pragma once

#include "platform/api/base.h"

namespace platform {

using SECURITY_STATUS = LONG; // negative: failed
using SEC_WCHAR = WCHAR;

struct SecHandle {
    uintptr_t dwLower;
    uintptr_t dwUpper;
};
using CredHandle = SecHandle;
using CtxtHandle = SecHandle;
using TimeStamp = LARGE_INTEGER;

struct SecBuffer {
    DWORD cbBuffer; // bytes: in, the room; out, what was written
    DWORD BufferType;
    void* pvBuffer;
};

struct SecBufferDesc {
    DWORD ulVersion;
    DWORD cBuffers;
    SecBuffer* pBuffers;
};

struct SecPkgInfoW {
    DWORD fCapabilities;
    WORD wVersion;
    WORD wRPCID;
    DWORD cbMaxToken; // bytes
    SEC_WCHAR* Name;
    SEC_WCHAR* Comment;
};

// Lengths are characters, without the terminator.
struct SEC_WINNT_AUTH_IDENTITY_W {
    WORD* User;
    DWORD UserLength;
    WORD* Domain;
    DWORD DomainLength;
    WORD* Password;
    DWORD PasswordLength;
    DWORD Flags;
};

using SEC_GET_KEY_FN = void (*)(void*, void*, DWORD, void**, SECURITY_STATUS*);

using QUERY_SECURITY_PACKAGE_INFO_FN_W = SECURITY_STATUS (*)(SEC_WCHAR* package, SecPkgInfoW** info);
using FREE_CONTEXT_BUFFER_FN = SECURITY_STATUS (*)(void* buffer);
using ACQUIRE_CREDENTIALS_HANDLE_FN_W = SECURITY_STATUS (*)(SEC_WCHAR* principal, SEC_WCHAR* package,
                                                            DWORD use, void* logon, void* identity,
                                                            SEC_GET_KEY_FN get_key, void* key_argument,
                                                            CredHandle* credentials, TimeStamp* expiry);
using FREE_CREDENTIALS_HANDLE_FN = SECURITY_STATUS (*)(CredHandle* credentials);
using INITIALIZE_SECURITY_CONTEXT_FN_W = SECURITY_STATUS (*)(CredHandle* credentials, CtxtHandle* context,
                                                             SEC_WCHAR* target, DWORD requirements,
                                                             DWORD reserved_1, DWORD representation,
                                                             SecBufferDesc* input, DWORD reserved_2,
                                                             CtxtHandle* new_context, SecBufferDesc* output,
                                                             DWORD* attributes, TimeStamp* expiry);
using ACCEPT_SECURITY_CONTEXT_FN = SECURITY_STATUS (*)(CredHandle* credentials, CtxtHandle* context,
                                                       SecBufferDesc* input, DWORD requirements,
                                                       DWORD representation, CtxtHandle* new_context,
                                                       SecBufferDesc* output, DWORD* attributes,
                                                       TimeStamp* expiry);
using COMPLETE_AUTH_TOKEN_FN = SECURITY_STATUS (*)(CtxtHandle* context, SecBufferDesc* token);
using DELETE_SECURITY_CONTEXT_FN = SECURITY_STATUS (*)(CtxtHandle* context);

} // namespace platform

inline constexpr platform::SECURITY_STATUS SEC_E_OK = 0;
inline constexpr platform::SECURITY_STATUS SEC_I_CONTINUE_NEEDED = 0x00090312;
inline constexpr platform::SECURITY_STATUS SEC_I_COMPLETE_NEEDED = 0x00090313;
inline constexpr platform::SECURITY_STATUS SEC_I_COMPLETE_AND_CONTINUE = 0x00090314;

inline constexpr platform::DWORD SECBUFFER_VERSION = 0;
inline constexpr platform::DWORD SECBUFFER_TOKEN = 2;
inline constexpr platform::DWORD SECURITY_NATIVE_DREP = 0x10;
inline constexpr platform::DWORD SECPKG_CRED_INBOUND = 1;
inline constexpr platform::DWORD SECPKG_CRED_OUTBOUND = 2;
inline constexpr platform::DWORD SEC_WINNT_AUTH_IDENTITY_UNICODE = 2;
