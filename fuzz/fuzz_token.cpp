// The tokens of a password's handshake, changed on their way: a side refuses them and reads nothing behind them.
#include <fuzzer/FuzzedDataProvider.h>

#include <algorithm>
#include <vector>

#include "fuzz/check.h"
#include "platform/api/security_package.h"
#include "platform/platform.h"

namespace {

using namespace platform;
using bytes = std::vector<char>;

template <class Function>
Function entry_point(const char* name) {
    return reinterpret_cast<Function>(GetProcAddress(LoadLibraryW(u"secur32.dll"), name));
}

const auto acquire = entry_point<ACQUIRE_CREDENTIALS_HANDLE_FN_W>("AcquireCredentialsHandleW");
const auto initialize = entry_point<INITIALIZE_SECURITY_CONTEXT_FN_W>("InitializeSecurityContextW");
const auto accept_token = entry_point<ACCEPT_SECURITY_CONTEXT_FN>("AcceptSecurityContext");
const auto delete_context = entry_point<DELETE_SECURITY_CONTEXT_FN>("DeleteSecurityContext");
const auto free_credentials = entry_point<FREE_CREDENTIALS_HANDLE_FN>("FreeCredentialsHandle");

// Hands a token, in a block of its own size, to one side; the other token comes out in its place.
template <class Side>
bool hand_over(bytes& token, Side side) {
    bytes answer(512);
    SecBuffer in{static_cast<DWORD>(token.size()), SECBUFFER_TOKEN, token.data()};
    SecBuffer out{static_cast<DWORD>(answer.size()), SECBUFFER_TOKEN, answer.data()};
    SecBufferDesc in_list{SECBUFFER_VERSION, 1, &in}, out_list{SECBUFFER_VERSION, 1, &out};
    const bool is_good = side(&in_list, &out_list) >= 0;
    token.assign(answer.begin(), answer.begin() + (is_good ? out.cbBuffer : 0));
    return is_good;
}

void change(bytes& token, FuzzedDataProvider& input) {
    if (input.ConsumeBool())
        token.resize(input.ConsumeIntegralInRange<size_t>(0, 512));
    while (!token.empty() && input.remaining_bytes() > 0 && input.ConsumeBool())
        token[input.ConsumeIntegralInRange<size_t>(0, token.size() - 1)] = input.ConsumeIntegral<char>();
    token.shrink_to_fit();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzedDataProvider input(data, size);
    char16_t package[] = u"NTLM";
    WORD user[20] = {1}; // a name that no user has
    SEC_WINNT_AUTH_IDENTITY_W identity{};
    identity.User = user;
    identity.UserLength = input.ConsumeIntegralInRange<DWORD>(1, 20);
    identity.Flags = SEC_WINNT_AUTH_IDENTITY_UNICODE;
    CredHandle inbound{}, outbound{};
    check(
        acquire(nullptr, package, SECPKG_CRED_INBOUND, nullptr, nullptr, nullptr, nullptr, &inbound, nullptr)
        == 0);
    check(acquire(nullptr, package, SECPKG_CRED_OUTBOUND, nullptr, &identity, nullptr, nullptr, &outbound,
                  nullptr)
          == 0);

    CtxtHandle client{}, server{};
    bool has_client = false, has_server = false;
    const auto client_side = [&](SecBufferDesc* in, SecBufferDesc* out) {
        return initialize(&outbound, has_client ? &client : nullptr, nullptr, 0, 0, 0, in, 0, &client, out,
                          nullptr, nullptr);
    };
    const auto server_side = [&](SecBufferDesc* in, SecBufferDesc* out) {
        return accept_token(&inbound, has_server ? &server : nullptr, in, 0, 0, &server, out, nullptr,
                            nullptr);
    };
    bytes token;
    check(has_client = hand_over(token, client_side));
    change(token, input);
    if ((has_server = hand_over(token, server_side))) {
        change(token, input);
        if (hand_over(token, client_side)) {
            change(token, input);
            check(!hand_over(token, server_side)); // nobody has logged on
        }
        check(delete_context(&server) == 0);
    }
    check(delete_context(&client) == 0 && free_credentials(&outbound) == 0
          && free_credentials(&inbound) == 0);
    return 0;
}
