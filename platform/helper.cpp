// Starting zu-helper.
#include "platform/helper.h"

#include <fcntl.h>
#include <spawn.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>

namespace platform {

const char* helper_path() {
    const char* chosen = secure_getenv("ZU_HELPER");
    return chosen && *chosen ? chosen : ZU_HELPER_PATH;
}

pid_t start_helper(const char* command, int standard_input) {
    posix_spawn_file_actions_t files;
    posix_spawn_file_actions_init(&files);
    posix_spawn_file_actions_adddup2(&files, standard_input, STDIN_FILENO);
    posix_spawn_file_actions_addopen(&files, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_addopen(&files, STDERR_FILENO, "/dev/null", O_WRONLY, 0);

    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    sigset_t none, all;
    sigemptyset(&none);
    sigfillset(&all);
    posix_spawnattr_setsigmask(&attributes, &none);
    posix_spawnattr_setsigdefault(&attributes, &all);
    posix_spawnattr_setflags(&attributes,
                             POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSID);

    const char* const arguments[] = {"zu-helper", command, nullptr};
    const char* const environment[] = {"PATH=/usr/sbin:/usr/bin:/sbin:/bin", nullptr};
    pid_t child = -1;
    const int error = posix_spawn(&child, helper_path(), &files, &attributes, const_cast<char**>(arguments),
                                  const_cast<char**>(environment));
    posix_spawn_file_actions_destroy(&files);
    posix_spawnattr_destroy(&attributes);
    errno = error;
    return error == 0 ? child : -1;
}

} // namespace platform
