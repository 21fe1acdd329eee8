// Logon: the host's authentication service gives its verdict through zu-helper.
#include "platform/accounts/logon.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>

#include "platform/accounts/logon_request.h"
#include "platform/accounts/token.h"
#include "platform/core/descriptor.h"
#include "platform/core/error.h"
#include "platform/core/retry.h"
#include "platform/core/secret.h"
#include "platform/core/start_helper.h"
#include "platform/system/computer.h"
#include "platform/text/case_fold.h"
#include "platform/text/utf8.h"

namespace platform {

namespace {

constexpr int patience_ms = static_cast<int>(logon_limit_s + 5) * 1000; // the helper's own limit is shorter

secret request_for(const std::string& user, std::u16string_view password) {
    const size_t head = user.size() + 1;
    secret request(head + utf8_size(password.data(), password.size()));
    std::memcpy(request.data(), user.c_str(), head);
    utf8_from_wide(password.data(), password.size(), request.data() + head, request.size() - head);
    return request;
}

// Waits for the helper, and kills it first if it has not answered in time. The caller's own SIGCHLD handler may have
// collected the helper, and its pid may be another process's by then: so the signal goes to the pidfd.
void end_helper(pid_t helper, int process, bool answered) {
    if (!answered && process >= 0)
        syscall(SYS_pidfd_send_signal, process, SIGKILL, nullptr, 0);
    retried([&] { return waitpid(helper, nullptr, 0); });
}

DWORD answer_to(const secret& request) {
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) != 0)
        return ERROR_NO_LOGON_SERVERS;
    descriptor ours(ends[0]), theirs(ends[1]);
    const pid_t helper = start_helper("logon", theirs.get());
    if (helper < 0)
        return ERROR_NO_LOGON_SERVERS;
    const descriptor process(static_cast<int>(syscall(SYS_pidfd_open, helper, 0)));
    theirs.reset(); // only the helper has this end now, so its exit is seen as the end of the stream

    DWORD code = ERROR_NO_LOGON_SERVERS;
    bool answered = false;
    if (retried([&] { return ::send(ours.get(), request.data(), request.size(), MSG_NOSIGNAL); }) > 0) {
        pollfd watched{ours.get(), POLLIN, 0};
        if (retried([&] { return poll(&watched, 1, patience_ms); }) > 0)
            answered = ::recv(ours.get(), &code, sizeof code, 0) == sizeof code;
    }
    end_helper(helper, process.get(), answered);
    return answered ? code : DWORD{ERROR_NO_LOGON_SERVERS};
}

bool is_this_domain(std::u16string_view domain) {
    return domain.empty() || domain == u"." || equal_without_case(domain, computer_name());
}

// The users of other domains are those that the host's name service has under both names.
std::optional<host_user> find_account(std::u16string_view domain, std::u16string_view user) {
    return find_user(is_this_domain(domain) ? utf8_of(user) : utf8_of(domain) + '\\' + utf8_of(user));
}

} // namespace

verdict ask_about(std::u16string_view domain, std::u16string_view user, std::u16string_view password) {
    const std::optional<host_user> account = find_account(domain, user);
    if (!account && errno != 0)
        return {ERROR_NO_LOGON_SERVERS, std::nullopt};
    // PAM takes texts that end at a zero, so no password has one.
    if (!account || password.find(u'\0') != std::u16string_view::npos)
        return {ERROR_LOGON_FAILURE, std::nullopt};
    if (password.empty())
        return {ERROR_ACCOUNT_RESTRICTION, std::nullopt};
    const secret request = request_for(account->name, password);
    if (request.size() > logon_request_at_most)
        return {ERROR_LOGON_FAILURE, std::nullopt};
    const DWORD code = answer_to(request);
    return {code, code == ERROR_SUCCESS ? account : std::nullopt};
}

BOOL LogonUserW(const WCHAR* user, const WCHAR* domain, const WCHAR* password, DWORD type, DWORD provider,
                HANDLE* token) {
    if (!user || type != LOGON32_LOGON_NETWORK || provider != LOGON32_PROVIDER_DEFAULT)
        return fail(ERROR_INVALID_PARAMETER);
    const verdict given = ask_about(domain ? domain : u"", user, password ? password : u"");
    if (given.code != ERROR_SUCCESS)
        return fail(given.code);
    *token = new_token(*given.user);
    return *token != nullptr;
}

} // namespace platform
