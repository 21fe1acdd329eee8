// Password validation: two ways to ask the platform, and whether a user is an administrator.
#include "zu/zu_support.h"

namespace {

bool is_given(const ZU_wchar* text) {
    return !zu::is_empty(text);
}

bool account_exists(const ZU_wchar* domain, const ZU_wchar* user) {
    if (!is_given(domain))
        return ZU_user_exist(nullptr, user);
    zu::scoped_string account;
    ZU_s_sprintf(account.address(), ZU_W("%s\\%s"), domain, user);
    return ZU_user_exist(nullptr, account.text());
}

// ---- The security package, loaded for one validation -----------------------------------------------------------

class security_package {
public:
    platform::ACCEPT_SECURITY_CONTEXT_FN accept_security_context = nullptr;
    platform::ACQUIRE_CREDENTIALS_HANDLE_FN_W acquire_credentials_handle = nullptr;
    platform::COMPLETE_AUTH_TOKEN_FN complete_auth_token = nullptr; // may be missing
    platform::DELETE_SECURITY_CONTEXT_FN delete_security_context = nullptr;
    platform::FREE_CONTEXT_BUFFER_FN free_context_buffer = nullptr;
    platform::FREE_CREDENTIALS_HANDLE_FN free_credentials_handle = nullptr;
    platform::INITIALIZE_SECURITY_CONTEXT_FN_W initialize_security_context = nullptr;
    platform::QUERY_SECURITY_PACKAGE_INFO_FN_W query_security_package_info = nullptr;

    security_package() = default;
    ~security_package() {
        if (library_)
            platform::FreeLibrary(library_);
    }
    security_package(const security_package&) = delete;
    security_package& operator=(const security_package&) = delete;

    bool load() {
        platform::OSVERSIONINFOW version{};
        version.dwOSVersionInfoSize = sizeof version;
        if (!platform::GetVersionExW(&version))
            return false;
        const bool is_nt_4 = version.dwPlatformId == VER_PLATFORM_WIN32_NT && version.dwMajorVersion == 4
                             && version.dwMinorVersion == 0;
        library_ = platform::LoadLibraryW(is_nt_4 ? ZU_W("security.dll") : ZU_W("secur32.dll"));
        if (!library_)
            return false;
        find("CompleteAuthToken", complete_auth_token);
        return find("AcceptSecurityContext", accept_security_context)
               && find("AcquireCredentialsHandleW", acquire_credentials_handle)
               && find("DeleteSecurityContext", delete_security_context)
               && find("FreeContextBuffer", free_context_buffer)
               && find("FreeCredentialsHandle", free_credentials_handle)
               && find("InitializeSecurityContextW", initialize_security_context)
               && find("QuerySecurityPackageInfoW", query_security_package_info);
    }

private:
    template <class Function>
    bool find(const char* name, Function& out) {
        out = reinterpret_cast<Function>(reinterpret_cast<void*>(platform::GetProcAddress(library_, name)));
        return out != nullptr;
    }

    platform::HMODULE library_ = nullptr;
};

// ---- The handshake ---------------------------------------------------------------------------------------------

ZU_wchar ntlm[] = ZU_W("NTLM");

// A token and the room for it, in the process heap.
class token_buffer {
public:
    token_buffer() = default;
    ~token_buffer() {
        if (block_)
            platform::HeapFree(platform::GetProcessHeap(), 0, block_);
    }
    token_buffer(const token_buffer&) = delete;
    token_buffer& operator=(const token_buffer&) = delete;

    bool allocate(platform::DWORD size) {
        block_ = platform::HeapAlloc(platform::GetProcessHeap(), HEAP_ZERO_MEMORY, size);
        room = size;
        return block_ != nullptr;
    }
    platform::SecBuffer with_size(platform::DWORD size) const { return {size, SECBUFFER_TOKEN, block_}; }

    platform::DWORD room = 0;
    platform::DWORD length = 0; // bytes of the token

private:
    void* block_ = nullptr;
};

// One side of the handshake. The destructor releases its handles.
class side {
public:
    // With an identity it is the client's side, without one the server's.
    side(const security_package& package, platform::SEC_WINNT_AUTH_IDENTITY_W* identity)
        : package_(package), identity_(identity) {}
    ~side() {
        if (has_context_)
            package_.delete_security_context(&context_);
        if (has_credentials_)
            package_.free_credentials_handle(&credentials_);
    }
    side(const side&) = delete;
    side& operator=(const side&) = delete;

    // Takes the other side's token, null in the first step, and makes the next one.
    bool step(const token_buffer* in, token_buffer& out) {
        if (!initialised_ && !acquire_credentials())
            return false;
        platform::SecBuffer in_buffer = in ? in->with_size(in->length) : platform::SecBuffer{};
        platform::SecBufferDesc input{SECBUFFER_VERSION, 1, &in_buffer};
        platform::SecBuffer out_buffer = out.with_size(out.room);
        platform::SecBufferDesc output{SECBUFFER_VERSION, 1, &out_buffer};
        const platform::SECURITY_STATUS status = exchange(in ? &input : nullptr, &output);
        if (status < 0)
            return false;
        has_context_ = true;
        initialised_ = true;
        if ((status == SEC_I_COMPLETE_NEEDED || status == SEC_I_COMPLETE_AND_CONTINUE)
            && (!package_.complete_auth_token || package_.complete_auth_token(&context_, &output) < 0))
            return false;
        out.length = out_buffer.cbBuffer;
        return true;
    }

private:
    bool acquire_credentials() {
        platform::TimeStamp expiry;
        const platform::SECURITY_STATUS status = package_.acquire_credentials_handle(
            nullptr, ntlm, identity_ ? SECPKG_CRED_OUTBOUND : SECPKG_CRED_INBOUND, nullptr, identity_,
            nullptr, nullptr, &credentials_, &expiry);
        has_credentials_ = status >= 0;
        return has_credentials_;
    }

    platform::SECURITY_STATUS exchange(platform::SecBufferDesc* input, platform::SecBufferDesc* output) {
        platform::DWORD attributes = 0;
        platform::TimeStamp expiry;
        platform::CtxtHandle* context = initialised_ ? &context_ : nullptr;
        if (identity_)
            return package_.initialize_security_context(&credentials_, context, nullptr, 0, 0,
                                                        SECURITY_NATIVE_DREP, input, 0, &context_, output,
                                                        &attributes, &expiry);
        return package_.accept_security_context(&credentials_, context, input, 0, SECURITY_NATIVE_DREP,
                                                &context_, output, &attributes, &expiry);
    }

    const security_package& package_;
    platform::SEC_WINNT_AUTH_IDENTITY_W* identity_;
    bool initialised_ = false;
    bool has_credentials_ = false;
    bool has_context_ = false;
    platform::CredHandle credentials_{};
    platform::CtxtHandle context_{};
};

// The record takes writable texts of 16-bit units. Nobody writes to them.
platform::WORD* units(const ZU_wchar* text) {
    return reinterpret_cast<platform::WORD*>(const_cast<ZU_wchar*>(text));
}

platform::DWORD length_of(const ZU_wchar* text) {
    return static_cast<platform::DWORD>(zu::text_view(text).size());
}

// The largest token that the package makes; 0 when there is no such package.
platform::DWORD token_size(const security_package& package) {
    platform::SecPkgInfoW* info;
    if (package.query_security_package_info(ntlm, &info) < 0)
        return 0;
    const platform::DWORD size = info->cbMaxToken;
    package.free_context_buffer(info);
    return size;
}

// Both sides and what they need. Members are released from the last to the first: a side before the package that frees
// its handles, and the package before the tokens.
struct handshake {
    token_buffer from_client, from_server;
    security_package package;
    side server{package, nullptr};
    side client;

    explicit handshake(platform::SEC_WINNT_AUTH_IDENTITY_W& identity) : client(package, &identity) {}

    bool begin() {
        if (!package.load())
            return false;
        const platform::DWORD size = token_size(package);
        return size != 0 && from_client.allocate(size) && from_server.allocate(size);
    }

    bool run() {
        return client.step(nullptr, from_client) && server.step(&from_client, from_server)
               && client.step(&from_server, from_client) && server.step(&from_client, from_server);
    }
};

bool handshake_succeeds(const ZU_wchar* domain, const ZU_wchar* user, const ZU_wchar* password) {
    platform::SEC_WINNT_AUTH_IDENTITY_W identity{};
    identity.User = units(user);
    identity.UserLength = length_of(user);
    identity.Domain = units(domain);
    identity.DomainLength = length_of(domain);
    identity.Password = units(password);
    identity.PasswordLength = length_of(password);
    identity.Flags = SEC_WINNT_AUTH_IDENTITY_UNICODE;
    handshake both(identity);
    return both.begin() && both.run();
}

// ---- The logon -------------------------------------------------------------------------------------------------

// Enables the two privileges of a logon. The destructor disables those that were disabled before.
class logon_privileges {
public:
    logon_privileges() {
        has_tcb_ = ZU_adjust_privilege(ZU_W("SeTcbPrivilege"), true, &tcb_was_on_);
        has_notify_ = has_tcb_ && ZU_adjust_privilege(ZU_W("SeChangeNotifyPrivilege"), true, &notify_was_on_);
    }
    ~logon_privileges() {
        if (has_tcb_ && !tcb_was_on_)
            ZU_adjust_privilege(ZU_W("SeTcbPrivilege"), false, nullptr);
        if (has_notify_ && !notify_was_on_)
            ZU_adjust_privilege(ZU_W("SeChangeNotifyPrivilege"), false, nullptr);
    }
    logon_privileges(const logon_privileges&) = delete;
    logon_privileges& operator=(const logon_privileges&) = delete;

    bool are_on() const { return has_notify_; }

private:
    ZU_bool tcb_was_on_ = false;
    ZU_bool notify_was_on_ = false;
    bool has_tcb_;
    bool has_notify_;
};

bool log_on(const ZU_wchar* domain, const ZU_wchar* user, const ZU_wchar* password, platform::HANDLE* token) {
    return platform::LogonUserW(user, is_given(domain) ? domain : ZU_W("."), password, LOGON32_LOGON_NETWORK,
                                LOGON32_PROVIDER_DEFAULT, token);
}

bool logon_succeeds(const ZU_wchar* domain, const ZU_wchar* user, const ZU_wchar* password) {
    const logon_privileges privileges;
    platform::HANDLE token;
    if (!privileges.are_on() || !log_on(domain, user, password, &token))
        return false;
    platform::CloseHandle(token);
    return true;
}

bool logged_on_user_is_admin(platform::HANDLE token) {
    if (!platform::ImpersonateLoggedOnUser(token))
        return false;
    const bool is_admin = ZU_current_user_is_admin();
    platform::RevertToSelf();
    return is_admin;
}

// In version 5.0 only the system may log users on, so the password alone is tested there.
bool can_log_on_for_groups() {
    platform::OSVERSIONINFOEXW version{};
    version.dwOSVersionInfoSize = sizeof version;
    if (!platform::GetVersionExW(reinterpret_cast<platform::OSVERSIONINFOW*>(&version)))
        return false;
    return version.dwPlatformId == VER_PLATFORM_WIN32_NT
           && !(version.dwMajorVersion == 5 && version.dwMinorVersion == 0);
}

} // namespace

ZU_bool ZU_validate_user_password(const ZU_wchar* domain, const ZU_wchar* user, const ZU_wchar* password) {
    if (!account_exists(domain, user))
        return false;
    return handshake_succeeds(domain ? domain : ZU_W(""), user, password)
           || logon_succeeds(domain, user, password);
}

ZU_bool ZU_user_is_admin(const ZU_wchar* domain, const ZU_wchar* user, const ZU_wchar* password) {
    if (!account_exists(domain, user))
        return false;
    if (!can_log_on_for_groups())
        return ZU_validate_user_password(domain, user, password);
    const logon_privileges privileges;
    platform::HANDLE token;
    if (!privileges.are_on() || !log_on(domain, user, password, &token))
        return false;
    const bool is_admin = logged_on_user_is_admin(token);
    platform::CloseHandle(token);
    return is_admin;
}
