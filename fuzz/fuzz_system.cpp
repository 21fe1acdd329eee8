// What others may have made as they like: status and reports of services, libraries, names of accounts and privileges,
// access lists, and the handshake of a password.
#include <elf.h>
#include <fcntl.h>
#include <link.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <algorithm>
#include <fstream>

#include "fuzz/check.h"
#include "helper/notify.h"
#include "platform/access/access_list.h"
#include "platform/access/sid.h"
#include "platform/api/security_package.h"
#include "platform/platform.h"
#include "platform/services/service_status.h"
#include "platform/system/module.h"
#include "zu/zu.h"

namespace {

using namespace platform;

const fuzz_directory directory;

void read_status(fuzz_input& input) {
    std::ofstream(directory.path + "/status", std::ios::binary) << input.ConsumeRemainingBytesAsString();
    const descriptor opened(open(directory.path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    service_life life;
    status_watch().look(opened.get(), life);
    check(!life.is_alive && !life.has_helper);
}

constexpr size_t most_descriptors = 80;

bool send_with_descriptors(int sender, const std::string& text, size_t count) {
    alignas(cmsghdr) char control[CMSG_SPACE(most_descriptors * sizeof(int))] = {};
    iovec piece{const_cast<char*>(text.data()), text.size()};
    msghdr message{};
    message.msg_iov = &piece;
    message.msg_iovlen = 1;
    if (count > 0) {
        message.msg_control = control;
        message.msg_controllen = CMSG_SPACE(count * sizeof(int));
        cmsghdr* const head = CMSG_FIRSTHDR(&message);
        *head = {CMSG_LEN(count * sizeof(int)), SOL_SOCKET, SCM_RIGHTS};
        std::fill_n(reinterpret_cast<int*>(CMSG_DATA(head)), count, sender);
    }
    return sendmsg(sender, &message, 0) >= 0;
}

// The number that the next descriptor gets.
int next_descriptor() {
    const int next = dup(STDIN_FILENO);
    check(next >= 0 && close(next) == 0);
    return next;
}

// Descriptors that come with a report do not stay open, and no value goes beyond its line.
void receive_report(fuzz_input& input) {
    static zu_helper::notify_socket receiver;
    static const int sender = [] {
        check(receiver.open(directory.path + "/notify"));
        const int made = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        sockaddr_un address{AF_UNIX, {}};
        (directory.path + "/notify").copy(address.sun_path, sizeof address.sun_path - 1);
        check(::connect(made, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0);
        return made;
    }();
    const int next_before = next_descriptor();
    const auto count = input.ConsumeIntegralInRange<size_t>(0, most_descriptors);
    const std::string sent = input.ConsumeRemainingBytesAsString();
    if (!send_with_descriptors(sender, sent, count))
        return;
    std::string text;
    check(receiver.receive(getsid(0), text));
    check(text == sent.substr(0, 4096));
    for (const char* name : {"READY", "STOPPING", "EXTEND_TIMEOUT_USEC", ""})
        check(zu_helper::reported(text, name).find('\n') == std::string_view::npos);
    check(next_descriptor() == next_before);
}

struct library_image {
    ElfW(Ehdr) header = this_library_s_header();
    ElfW(Phdr) programs[2] = {};
    ElfW(Dyn) entries[4] = {
        {DT_STRTAB, {offsetof(library_image, names)}}, {DT_NEEDED, {1}}, {DT_NEEDED, {5}}, {}};
    char names[16] = "\0one\0two";

    library_image() {
        header.e_type = ET_DYN;
        header.e_phoff = offsetof(library_image, programs);
        header.e_phnum = 2;
        programs[0].p_type = PT_LOAD;
        programs[0].p_filesz = sizeof *this;
        programs[1].p_type = PT_DYNAMIC;
        programs[1].p_offset = offsetof(library_image, entries);
        programs[1].p_filesz = sizeof entries;
    }
};

// A small library, some of whose bytes are changed.
void read_library(fuzz_input& input) {
    static const int file = memfd_create("library", MFD_CLOEXEC);
    static const std::string path = "/proc/self/fd/" + std::to_string(file);
    const library_image whole;
    char bytes[sizeof whole];
    std::memcpy(bytes, &whole, sizeof whole);
    const bool is_whole = input.remaining_bytes() == 0;
    size_t length = sizeof bytes;
    if (input.ConsumeBool())
        length = input.ConsumeIntegralInRange<size_t>(0, sizeof bytes);
    while (input.remaining_bytes() > 0)
        bytes[input.ConsumeIntegralInRange<size_t>(0, sizeof bytes - 1)] = input.ConsumeIntegral<char>();
    check(ftruncate(file, 0) == 0 && pwrite(file, bytes, length, 0) == static_cast<ssize_t>(length));
    std::vector<std::string> needed;
    const DWORD code = inspect_library(path.c_str(), needed);
    check(code == 0 || (code == ERROR_BAD_EXE_FORMAT && needed.empty()));
    check(!is_whole || (needed == std::vector<std::string>{"one", "two"}));
    for (const std::string& name : needed)
        check(name.size() < 256);
}

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
    ACL* added = nullptr;
    check(!list || SetEntriesInAclW(0, nullptr, list, &added) == ERROR_NOT_SUPPORTED);
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
    return run_one_of(
        {read_status, receive_report, read_library, look_up_names, read_access_list, shake_hands}, data,
        size);
}
