// Finding and starting zu-helper.
#include "platform/core/start_helper.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <link.h>
#include <spawn.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdlib>

namespace platform {

namespace {

// The file that this code was loaded from: the library, or a program that contains it.
std::string own_file() {
    Dl_info info;
    link_map* module = nullptr;
    if (dladdr1(reinterpret_cast<void*>(&own_file), &info, reinterpret_cast<void**>(&module), RTLD_DL_LINKMAP)
        && module && module->l_name[0] != 0)
        return module->l_name;
    char path[PATH_MAX];
    const ssize_t size = readlink("/proc/self/exe", path, sizeof path);
    return size > 0 ? std::string(path, static_cast<size_t>(size)) : std::string();
}

std::vector<char*> pointers_to(std::vector<std::string>& texts) {
    std::vector<char*> pointers(texts.size() + 1); // the last one stays null
    std::transform(texts.begin(), texts.end(), pointers.begin(),
                   [](std::string& text) { return text.data(); });
    return pointers;
}

class spawn_settings {
public:
    spawn_settings() {
        posix_spawn_file_actions_init(&files);
        posix_spawnattr_init(&attributes);
        sigset_t none, all;
        sigemptyset(&none);
        sigfillset(&all);
        posix_spawnattr_setsigmask(&attributes, &none);
        posix_spawnattr_setsigdefault(&attributes, &all);
        posix_spawnattr_setflags(&attributes,
                                 POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSID);
    }
    ~spawn_settings() {
        posix_spawn_file_actions_destroy(&files);
        posix_spawnattr_destroy(&attributes);
    }
    spawn_settings(const spawn_settings&) = delete;
    spawn_settings& operator=(const spawn_settings&) = delete;

    // Duplicating a descriptor to its own number keeps it open in the new program.
    void pass(int descriptor, int number) { posix_spawn_file_actions_adddup2(&files, descriptor, number); }
    void pass_nothing(int number) {
        posix_spawn_file_actions_addopen(&files, number, "/dev/null", O_RDWR, 0);
    }

    posix_spawn_file_actions_t files;
    posix_spawnattr_t attributes;
};

} // namespace

std::string helper_path() {
    const char* const chosen = secure_getenv("ZU_HELPER");
    if (chosen && *chosen)
        return chosen;
    const std::string own = own_file();
    const std::string beside = own.substr(0, own.rfind('/') + 1) + "zu-helper";
    return beside[0] == '/' && access(beside.c_str(), X_OK) == 0 ? beside : ZU_HELPER_PATH;
}

pid_t start_helper(const char* command, int standard_input, std::initializer_list<int> descriptors,
                   std::vector<std::string> environment) {
    spawn_settings settings;
    if (standard_input >= 0)
        settings.pass(standard_input, STDIN_FILENO);
    else
        settings.pass_nothing(STDIN_FILENO);
    settings.pass_nothing(STDOUT_FILENO);
    settings.pass_nothing(STDERR_FILENO);
    std::vector<std::string> arguments{"zu-helper", command};
    for (int number : descriptors) {
        settings.pass(number, number);
        arguments.push_back(std::to_string(number));
    }
    environment.push_back("PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin");

    pid_t child = -1;
    const int error = posix_spawn(&child, helper_path().c_str(), &settings.files, &settings.attributes,
                                  pointers_to(arguments).data(), pointers_to(environment).data());
    errno = error;
    return error == 0 ? child : -1;
}

} // namespace platform
