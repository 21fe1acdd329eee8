// Names of accounts and privileges, access lists of any entries, and the handshake of a password.
#include "fuzz/check.h"
#include "platform/access/access_list.h"
#include "platform/access/sid.h"
#include "platform/api/security_package.h"
#include "platform/platform.h"
#include "zu/zu.h"

namespace {

using namespace platform;

void look_up_names(fuzz_input& input) {
    const std::string first = input.ConsumeRandomLengthString(300);
    const std::u16string name(first.begin(), first.end()), units = remaining_text(input);
    ZU_bool was_enabled;
    ZU_adjust_privilege(name.c_str(), 1, &was_enabled);
    ZU_user_exist(units.c_str(), name.c_str());
    ZU_user_exist(nullptr, (units + u'\\' + name).c_str());
}

// Everyone has the wanted rights when one entry of everyone's identifier grants them all, or when there is no entry.
void read_access_list(fuzz_input& input) {
    static const sid_value sids[] = {sid_value(1, {0}), sid_value(1, {1}), sid_value(2, {0}),
                                     sid_value(1, {0, 0, 1, 2, 3, 4, 5, 6})}; // the first is everyone's
    std::vector<EXPLICIT_ACCESS_W> entries;
    const auto wanted = input.ConsumeIntegral<DWORD>();
    bool is_granted = false;
    while (entries.size() < 6 && input.remaining_bytes() > 0) {
        const sid_value& sid = sids[input.ConsumeIntegralInRange<size_t>(0, std::size(sids) - 1)];
        EXPLICIT_ACCESS_W entry{};
        entry.grfAccessPermissions = input.ConsumeIntegral<DWORD>();
        entry.grfAccessMode = input.ConsumeBool() ? SET_ACCESS : GRANT_ACCESS;
        entry.Trustee.TrusteeForm = TRUSTEE_IS_SID;
        entry.Trustee.ptstrName = reinterpret_cast<WCHAR*>(const_cast<BYTE*>(sid.data()));
        entries.push_back(entry);
        is_granted |= &sid == sids && (entry.grfAccessPermissions & wanted) == wanted;
    }
    ACL* list = nullptr;
    check(SetEntriesInAclW(static_cast<DWORD>(entries.size()), entries.data(), nullptr, &list) == 0);
    SECURITY_DESCRIPTOR descriptor;
    check(InitializeSecurityDescriptor(&descriptor, SECURITY_DESCRIPTOR_REVISION));
    check(SetSecurityDescriptorDacl(&descriptor, TRUE, list, FALSE));
    const SECURITY_ATTRIBUTES attributes{sizeof attributes, &descriptor, FALSE};
    check(allows_everyone(&attributes, wanted)
          == (is_granted || entries.empty())); // no list restricts nobody
    LocalFree(list);
}

using token = std::vector<char>;

template <class Function>
Function entry_point(const char* name) {
    return reinterpret_cast<Function>(GetProcAddress(LoadLibraryW(u"secur32.dll"), name));
}

void change(token& bytes, fuzz_input& input) {
    if (input.ConsumeBool())
        bytes.resize(input.ConsumeIntegralInRange<size_t>(0, 512));
    while (!bytes.empty() && input.remaining_bytes() > 0 && input.ConsumeBool())
        bytes[input.ConsumeIntegralInRange<size_t>(0, bytes.size() - 1)] = input.ConsumeIntegral<char>();
    bytes.shrink_to_fit();
}

// The tokens are changed on their way: a side refuses them and reads nothing behind them.
void shake_hands(fuzz_input& input) {
    static const auto acquire = entry_point<ACQUIRE_CREDENTIALS_HANDLE_FN_W>("AcquireCredentialsHandleW");
    static const auto initialize =
        entry_point<INITIALIZE_SECURITY_CONTEXT_FN_W>("InitializeSecurityContextW");
    static const auto accept_token = entry_point<ACCEPT_SECURITY_CONTEXT_FN>("AcceptSecurityContext");
    static const auto delete_context = entry_point<DELETE_SECURITY_CONTEXT_FN>("DeleteSecurityContext");
    static const auto free_credentials = entry_point<FREE_CREDENTIALS_HANDLE_FN>("FreeCredentialsHandle");

    char16_t package[] = u"NTLM";
    WORD user[20] = {1}; // a name that no user has
    SEC_WINNT_AUTH_IDENTITY_W identity{};
    identity.User = user;
    identity.UserLength = input.ConsumeIntegralInRange<DWORD>(1, 20);
    identity.Flags = SEC_WINNT_AUTH_IDENTITY_UNICODE;
    CredHandle inbound{}, outbound{};
    for (const auto& [use, handle] :
         {std::pair(SECPKG_CRED_INBOUND, &inbound), {SECPKG_CRED_OUTBOUND, &outbound}})
        check(acquire(nullptr, package, use, nullptr, handle == &outbound ? &identity : nullptr, nullptr,
                      nullptr, handle, nullptr)
              == 0);

    CtxtHandle client{}, server{};
    token bytes; // in a block of its own size
    int step = 0;
    for (; step < 4; ++step) {
        token answer(512);
        SecBuffer in{static_cast<DWORD>(bytes.size()), SECBUFFER_TOKEN, bytes.data()};
        SecBuffer out{static_cast<DWORD>(answer.size()), SECBUFFER_TOKEN, answer.data()};
        SecBufferDesc in_list{SECBUFFER_VERSION, 1, &in}, out_list{SECBUFFER_VERSION, 1, &out};
        const bool is_good =
            (step % 2 == 0 ? initialize(&outbound, step > 0 ? &client : nullptr, nullptr, 0, 0, 0, &in_list,
                                        0, &client, &out_list, nullptr, nullptr)
                           : accept_token(&inbound, step > 1 ? &server : nullptr, &in_list, 0, 0, &server,
                                          &out_list, nullptr, nullptr))
            >= 0;
        check(is_good ? step < 3 : step > 0); // nobody has logged on
        if (!is_good)
            break;
        bytes.assign(answer.begin(), answer.begin() + out.cbBuffer);
        change(bytes, input);
    }
    check(step == 1 || delete_context(&server) == 0);
    check(delete_context(&client) == 0 && free_credentials(&outbound) == 0
          && free_credentials(&inbound) == 0);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    return run_one_of({look_up_names, read_access_list, shake_hands}, data, size);
}
