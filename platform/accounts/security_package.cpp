// The security package: a handshake of three tokens between two sides in one process, at whose end the server side
// hands the client side's credentials to the host's authentication service.
//
//   1. client to server: the client's nonce
//   2. server to client: both nonces
//   3. client to server: both nonces, and the credentials sealed with random bytes that never leave the client's
//      context and serve once; the server side finds that context by the nonces.
#include "platform/accounts/security_package.h"

#include <sys/random.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <map>
#include <memory>
#include <mutex>
#include <string>

#include "platform/accounts/logon.h"
#include "platform/api/security_package.h"
#include "platform/core/secret.h"
#include "platform/text/case_fold.h"

namespace platform {

namespace {

enum : SECURITY_STATUS {
    invalid_handle = static_cast<SECURITY_STATUS>(0x80090301),
    unsupported_function = static_cast<SECURITY_STATUS>(0x80090302),
    package_not_found = static_cast<SECURITY_STATUS>(0x80090305),
    invalid_token = static_cast<SECURITY_STATUS>(0x80090308),
    logon_denied = static_cast<SECURITY_STATUS>(0x8009030C),
    unknown_credentials = static_cast<SECURITY_STATUS>(0x8009030D),
    buffer_too_small = static_cast<SECURITY_STATUS>(0x80090321),
};

constexpr DWORD token_size_at_most = 4096;
constexpr std::u16string_view package_name = u"NTLM";
constexpr std::u16string_view package_comment = u"Asks this machine's authentication service";

// ---- What handles stand for ------------------------------------------------------------------------------------

using nonce = std::array<BYTE, 16>;

// User, domain and password follow one another in the text.
struct credentials {
    secret text{0};
    DWORD lengths[3] = {}; // the three lengths, in units
    bool outbound = false;
};

struct context {
    std::shared_ptr<const credentials> client; // null on the server's side
    nonce client_nonce{};
    nonce server_nonce{};
    secret seal{0}; // random bytes that hide the third token's credentials, until the server has read it
};

// Handles are numbers that are used only once, so a stale one is recognised.
template <class Kept>
class handle_table {
public:
    void add(std::shared_ptr<Kept> kept, SecHandle& out) {
        const std::lock_guard lock(guard_);
        out = {++last_, 0};
        kept_[last_] = std::move(kept);
    }
    std::shared_ptr<Kept> find(const SecHandle* handle) {
        const std::lock_guard lock(guard_);
        const auto at = handle ? kept_.find(handle->dwLower) : kept_.end();
        return at == kept_.end() ? nullptr : at->second;
    }
    SECURITY_STATUS remove(const SecHandle* handle) {
        const std::lock_guard lock(guard_);
        return handle && kept_.erase(handle->dwLower) ? SEC_E_OK : invalid_handle;
    }
    template <class Wanted>
    std::shared_ptr<Kept> find_if(Wanted wanted) {
        const std::lock_guard lock(guard_);
        const auto at =
            std::find_if(kept_.begin(), kept_.end(), [&](const auto& one) { return wanted(*one.second); });
        return at == kept_.end() ? nullptr : at->second;
    }

private:
    std::mutex guard_;
    std::map<uintptr_t, std::shared_ptr<Kept>> kept_;
    uintptr_t last_ = 0;
};

// Never destroyed: other threads may still use it when the process exits.
handle_table<credentials>& all_credentials() {
    static auto& table = *new handle_table<credentials>;
    return table;
}

handle_table<context>& all_contexts() {
    static auto& table = *new handle_table<context>;
    return table;
}

// ---- Tokens ----------------------------------------------------------------------------------------------------

struct token_head {
    char mark[8];
    DWORD number; // 1 to 3
    nonce client_nonce;
    nonce server_nonce;
    DWORD lengths[3]; // in the third token: units of user, domain and password, which follow the head
};

constexpr char token_mark[8] = "ZUTOKEN";

void fill_with_random(void* out, size_t size) {
    auto* bytes = static_cast<char*>(out);
    while (size > 0) {
        const ssize_t got = getrandom(bytes, size, 0);
        if (got > 0) {
            bytes += got;
            size -= static_cast<size_t>(got);
        }
    }
}

SecBuffer* token_buffer(SecBufferDesc* list) {
    for (DWORD i = 0; list && i < list->cBuffers; ++i) {
        if (list->pBuffers[i].BufferType == SECBUFFER_TOKEN)
            return &list->pBuffers[i];
    }
    return nullptr;
}

SECURITY_STATUS write_token(SecBufferDesc* output, DWORD number, const context& of, const void* sealed,
                            size_t size) {
    SecBuffer* buffer = token_buffer(output);
    token_head head{{}, number, of.client_nonce, of.server_nonce, {}};
    if (!buffer || buffer->cbBuffer < sizeof head + size)
        return buffer_too_small;
    std::memcpy(head.mark, token_mark, sizeof head.mark);
    if (sealed)
        std::copy_n(of.client->lengths, 3, head.lengths);
    std::memcpy(buffer->pvBuffer, &head, sizeof head);
    if (size > 0)
        std::memcpy(static_cast<char*>(buffer->pvBuffer) + sizeof head, sealed, size);
    buffer->cbBuffer = static_cast<DWORD>(sizeof head + size);
    return SEC_E_OK;
}

// Reads the token of that number: its head, and the bytes that follow.
bool read_token(SecBufferDesc* input, DWORD number, token_head& head, std::string_view& sealed) {
    const SecBuffer* buffer = token_buffer(input);
    if (!buffer || buffer->cbBuffer < sizeof head)
        return false;
    std::memcpy(&head, buffer->pvBuffer, sizeof head);
    sealed = {static_cast<const char*>(buffer->pvBuffer) + sizeof head, buffer->cbBuffer - sizeof head};
    return std::memcmp(head.mark, token_mark, sizeof head.mark) == 0 && head.number == number;
}

// ---- The client's side -----------------------------------------------------------------------------------------

SECURITY_STATUS begin_client(std::shared_ptr<const credentials> of, CtxtHandle* out, SecBufferDesc* output) {
    auto begun = std::make_shared<context>();
    begun->client = std::move(of);
    fill_with_random(begun->client_nonce.data(), begun->client_nonce.size());
    const SECURITY_STATUS status = write_token(output, 1, *begun, nullptr, 0);
    if (status != SEC_E_OK)
        return status;
    all_contexts().add(std::move(begun), *out);
    return SEC_I_CONTINUE_NEEDED;
}

SECURITY_STATUS seal_credentials(context& client, SecBufferDesc* input, SecBufferDesc* output) {
    token_head head;
    std::string_view none;
    if (!read_token(input, 2, head, none) || head.client_nonce != client.client_nonce)
        return invalid_token;
    client.server_nonce = head.server_nonce;
    const secret& text = client.client->text;
    secret seal(text.size()), sealed(text.size());
    fill_with_random(seal.data(), seal.size());
    std::transform(text.data(), text.data() + text.size(), seal.data(), sealed.data(),
                   [](char plain, char key) { return static_cast<char>(plain ^ key); });
    client.seal = std::move(seal);
    return write_token(output, 3, client, sealed.data(), sealed.size());
}

// ---- The server's side -----------------------------------------------------------------------------------------

SECURITY_STATUS begin_server(SecBufferDesc* input, CtxtHandle* out, SecBufferDesc* output) {
    token_head head;
    std::string_view none;
    if (!read_token(input, 1, head, none))
        return invalid_token;
    auto begun = std::make_shared<context>();
    begun->client_nonce = head.client_nonce;
    fill_with_random(begun->server_nonce.data(), begun->server_nonce.size());
    const SECURITY_STATUS status = write_token(output, 2, *begun, nullptr, 0);
    if (status != SEC_E_OK)
        return status;
    all_contexts().add(std::move(begun), *out);
    return SEC_I_CONTINUE_NEEDED;
}

// Takes the seal out of the client's context, so that it opens one token and no other.
bool take_seal(const context& server, size_t size, secret& out) {
    const std::shared_ptr<context> client = all_contexts().find_if([&](const context& one) {
        return one.client && one.client_nonce == server.client_nonce
               && one.server_nonce == server.server_nonce;
    });
    if (!client || client->seal.size() != size)
        return false;
    out = std::move(client->seal);
    client->seal = secret(0);
    return true;
}

SECURITY_STATUS judge_credentials(context& server, SecBufferDesc* input, SecBufferDesc* output) {
    token_head head;
    std::string_view sealed;
    secret text(0);
    if (!read_token(input, 3, head, sealed) || head.client_nonce != server.client_nonce
        || head.server_nonce != server.server_nonce || !take_seal(server, sealed.size(), text)
        || (uint64_t{head.lengths[0]} + head.lengths[1] + head.lengths[2]) * sizeof(WCHAR) != sealed.size())
        return invalid_token;
    std::transform(sealed.begin(), sealed.end(), text.data(), text.data(),
                   [](char hidden, char key) { return static_cast<char>(hidden ^ key); });
    const auto* units = reinterpret_cast<const WCHAR*>(text.data());
    const std::u16string_view user(units, head.lengths[0]);
    const std::u16string_view domain(units + head.lengths[0], head.lengths[1]);
    const std::u16string_view password(domain.data() + head.lengths[1], head.lengths[2]);
    if (SecBuffer* buffer = token_buffer(output))
        buffer->cbBuffer = 0;
    return ask_about(domain, user, password).code == ERROR_SUCCESS ? SEC_E_OK : logon_denied;
}

// ---- The entry points ------------------------------------------------------------------------------------------

bool is_package(const SEC_WCHAR* name) {
    return name && equal_without_case(name, package_name);
}

SECURITY_STATUS query_package_info(SEC_WCHAR* package, SecPkgInfoW** info) {
    if (!is_package(package))
        return package_not_found;
    // The texts follow the record in the same block.
    constexpr size_t name_size = (package_name.size() + 1) * sizeof(WCHAR);
    constexpr size_t comment_size = (package_comment.size() + 1) * sizeof(WCHAR);
    auto* block = static_cast<char*>(std::malloc(sizeof(SecPkgInfoW) + name_size + comment_size));
    if (!block)
        return package_not_found;
    auto* name = reinterpret_cast<SEC_WCHAR*>(block + sizeof(SecPkgInfoW));
    auto* comment = reinterpret_cast<SEC_WCHAR*>(block + sizeof(SecPkgInfoW) + name_size);
    std::memcpy(name, package_name.data(), name_size);
    std::memcpy(comment, package_comment.data(), comment_size);
    *info = reinterpret_cast<SecPkgInfoW*>(block);
    **info = {0, 1, 10, token_size_at_most, name, comment};
    return SEC_E_OK;
}

SECURITY_STATUS free_context_buffer(void* buffer) {
    std::free(buffer);
    return SEC_E_OK;
}

SECURITY_STATUS acquire_credentials(SEC_WCHAR*, SEC_WCHAR* package, DWORD use, void*, void* identity,
                                    SEC_GET_KEY_FN, void*, CredHandle* out, TimeStamp* expiry) {
    if (!is_package(package))
        return package_not_found;
    auto made = std::make_shared<credentials>();
    made->outbound = use == SECPKG_CRED_OUTBOUND;
    if (made->outbound) {
        const auto* given = static_cast<const SEC_WINNT_AUTH_IDENTITY_W*>(identity);
        if (!given || given->Flags != SEC_WINNT_AUTH_IDENTITY_UNICODE)
            return unknown_credentials;
        const struct {
            const WORD* text;
            DWORD length;
        } parts[] = {{given->User, given->UserLength},
                     {given->Domain, given->DomainLength},
                     {given->Password, given->PasswordLength}};
        made->text =
            secret((size_t{given->UserLength} + given->DomainLength + given->PasswordLength) * sizeof(WCHAR));
        char* at = made->text.data();
        for (size_t i = 0; i < 3; ++i) {
            const size_t size = parts[i].length * sizeof(WCHAR);
            if (size > 0)
                std::memcpy(at, parts[i].text, size);
            at += size;
            made->lengths[i] = parts[i].length;
        }
    }
    if (expiry)
        expiry->QuadPart = INT64_MAX;
    all_credentials().add(std::move(made), *out);
    return SEC_E_OK;
}

SECURITY_STATUS free_credentials(CredHandle* handle) {
    return all_credentials().remove(handle);
}

SECURITY_STATUS initialize_context(CredHandle* handle, CtxtHandle* context_handle, SEC_WCHAR*, DWORD, DWORD,
                                   DWORD, SecBufferDesc* input, DWORD, CtxtHandle* new_context,
                                   SecBufferDesc* output, DWORD* attributes, TimeStamp*) {
    if (attributes)
        *attributes = 0;
    if (!context_handle) {
        const std::shared_ptr<credentials> of = all_credentials().find(handle);
        return of && of->outbound ? begin_client(of, new_context, output) : invalid_handle;
    }
    const std::shared_ptr<context> client = all_contexts().find(context_handle);
    if (!client || !client->client)
        return invalid_handle;
    if (new_context)
        *new_context = *context_handle;
    return seal_credentials(*client, input, output);
}

SECURITY_STATUS accept_context(CredHandle* handle, CtxtHandle* context_handle, SecBufferDesc* input, DWORD,
                               DWORD, CtxtHandle* new_context, SecBufferDesc* output, DWORD* attributes,
                               TimeStamp*) {
    if (attributes)
        *attributes = 0;
    if (!context_handle)
        return all_credentials().find(handle) ? begin_server(input, new_context, output) : invalid_handle;
    const std::shared_ptr<context> server = all_contexts().find(context_handle);
    if (!server || server->client)
        return invalid_handle;
    if (new_context)
        *new_context = *context_handle;
    return judge_credentials(*server, input, output);
}

// No step of this package leaves a token to be completed.
SECURITY_STATUS complete_token(CtxtHandle*, SecBufferDesc*) {
    return unsupported_function;
}

SECURITY_STATUS delete_context(CtxtHandle* handle) {
    return all_contexts().remove(handle);
}

template <class Function>
FARPROC as_entry(Function function) {
    return reinterpret_cast<FARPROC>(reinterpret_cast<void*>(function));
}

const built_in_module::entry_point entry_points[] = {
    {"AcceptSecurityContext", as_entry<ACCEPT_SECURITY_CONTEXT_FN>(accept_context)},
    {"AcquireCredentialsHandleW", as_entry<ACQUIRE_CREDENTIALS_HANDLE_FN_W>(acquire_credentials)},
    {"CompleteAuthToken", as_entry<COMPLETE_AUTH_TOKEN_FN>(complete_token)},
    {"DeleteSecurityContext", as_entry<DELETE_SECURITY_CONTEXT_FN>(delete_context)},
    {"FreeContextBuffer", as_entry<FREE_CONTEXT_BUFFER_FN>(free_context_buffer)},
    {"FreeCredentialsHandle", as_entry<FREE_CREDENTIALS_HANDLE_FN>(free_credentials)},
    {"InitializeSecurityContextW", as_entry<INITIALIZE_SECURITY_CONTEXT_FN_W>(initialize_context)},
    {"QuerySecurityPackageInfoW", as_entry<QUERY_SECURITY_PACKAGE_INFO_FN_W>(query_package_info)}};

} // namespace

const built_in_module secur32_module{u"secur32.dll", entry_points, std::size(entry_points)};
const built_in_module security_module{u"security.dll", entry_points, std::size(entry_points)};

} // namespace platform
