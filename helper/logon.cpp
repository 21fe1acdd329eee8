// zu-helper logon: asks PAM about one account and password. They come in one packet on standard input, and the code of
// the verdict goes back the same way.
#include <dlfcn.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <initializer_list>

#include "helper/helper.h"
#include "platform/accounts/logon_request.h"
#include "zu/zu_platform.h"

namespace {

// ---- PAM's interface, as libpam.so.0 has it --------------------------------------------------------------------

struct pam_message {
    int style;
    const char* text;
};

struct pam_response {
    char* text; // the caller frees it
    int unused;
};

struct pam_conversation {
    int (*converse)(int count, const pam_message** messages, pam_response** responses, void* data);
    void* data;
};

struct pam_handle;

enum style { prompt_hidden = 1, prompt_shown, error_text, info_text };
enum result {
    success = 0,
    permission_denied = 6,
    too_many_tries = 11,
    password_must_change = 12,
    account_expired = 13,
    conversation_failed = 19,
    password_expired = 27
};

constexpr int quietly = 0x8000;
constexpr int no_empty_password = 1;

struct pam_library {
    int (*start)(const char* service, const char* user, const pam_conversation* conversation,
                 pam_handle** out);
    int (*authenticate)(pam_handle* handle, int flags);
    int (*account)(pam_handle* handle, int flags);
    int (*end)(pam_handle* handle, int status);

    bool load() {
        void* library = dlopen("libpam.so.0", RTLD_NOW);
        return library && find(library, "pam_start", start) && find(library, "pam_authenticate", authenticate)
               && find(library, "pam_acct_mgmt", account) && find(library, "pam_end", end);
    }

private:
    template <class Function>
    static bool find(void* library, const char* name, Function& out) {
        out = reinterpret_cast<Function>(dlsym(library, name));
        return out != nullptr;
    }
};

// ---- The question ----------------------------------------------------------------------------------------------

// Answers hidden questions with the password, and no others.
int answer(int count, const pam_message** messages, pam_response** responses, void* password) {
    auto* answers = static_cast<pam_response*>(std::calloc(static_cast<size_t>(count), sizeof(pam_response)));
    if (!answers)
        return conversation_failed;
    for (int i = 0; i < count; ++i) {
        if (messages[i]->style == prompt_hidden)
            answers[i].text = strdup(static_cast<const char*>(password));
    }
    *responses = answers;
    return success;
}

const char* service_name() {
    for (const char* own : {"/etc/pam.d/zu", "/usr/lib/pam.d/zu"}) {
        if (access(own, F_OK) == 0)
            return "zu";
    }
    return "login";
}

uint32_t code_of(int result) {
    switch (result) {
    case success: return ERROR_SUCCESS;
    case permission_denied: return ERROR_ACCOUNT_RESTRICTION;
    case too_many_tries: return ERROR_ACCOUNT_LOCKED_OUT;
    case password_must_change: return ERROR_PASSWORD_MUST_CHANGE;
    case account_expired: return ERROR_ACCOUNT_EXPIRED;
    case password_expired: return ERROR_PASSWORD_EXPIRED;
    default: return ERROR_LOGON_FAILURE;
    }
}

uint32_t verdict(const char* user, char* password) {
    pam_library pam;
    if (!pam.load())
        return ERROR_NO_LOGON_SERVERS;
    const pam_conversation conversation{answer, password};
    pam_handle* handle = nullptr;
    if (pam.start(service_name(), user, &conversation, &handle) != success)
        return ERROR_NO_LOGON_SERVERS;
    int result = pam.authenticate(handle, quietly | no_empty_password);
    if (result == success)
        result = pam.account(handle, quietly | no_empty_password);
    pam.end(handle, result);
    return code_of(result);
}

} // namespace

int zu_helper::logon(int, char**) {
    // A PAM module may keep the password and take its time: so no core dump is made, and an alarm ends the process.
    prctl(PR_SET_DUMPABLE, 0);
    alarm(platform::logon_limit_s);
    close_range(STDERR_FILENO + 1, ~0u, 0);

    char request[platform::logon_request_at_most + 1];
    const ssize_t size = recv(STDIN_FILENO, request, sizeof request - 1, 0);
    if (size <= 0)
        return 1;
    request[size] = 0;
    char* password = request + std::strlen(request) + 1;
    if (password > request + size)
        return 1;
    const uint32_t code = verdict(request, password);
    explicit_bzero(request, sizeof request);
    return send(STDIN_FILENO, &code, sizeof code, MSG_NOSIGNAL) == sizeof code ? 0 : 1;
}
