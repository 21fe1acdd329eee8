// Finding and starting zu-helper.
#include "platform/core/start_helper.h"

#include <fcntl.h>
#include <link.h>
#include <spawn.h>
#include <sys/auxv.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "platform/core/system_log.h"

namespace platform {

namespace {

// The loaded file, program or library, that holds an address, and the name by which the loader knows it.
struct own_object {
    uintptr_t address;
    bool is_program;
    std::string name;
};

int look_at(dl_phdr_info* object, size_t, void* wanted) {
    auto& own = *static_cast<own_object*>(wanted);
    const bool holds =
        std::any_of(object->dlpi_phdr, object->dlpi_phdr + object->dlpi_phnum, [&](const auto& part) {
            return part.p_type == PT_LOAD && own.address - object->dlpi_addr - part.p_vaddr < part.p_memsz;
        });
    if (!holds)
        return 0;
    own.is_program = reinterpret_cast<uintptr_t>(object->dlpi_phdr) == getauxval(AT_PHDR);
    own.name = object->dlpi_name ? object->dlpi_name : "";
    return 1;
}

// The folder that this code was loaded from, with its slash: the library's, or that of a program that contains it. The
// loader knows a program only by the name it was started by, so the kernel is asked for the program's path.
std::string own_folder() {
    own_object own{reinterpret_cast<uintptr_t>(&look_at), false, {}};
    dl_iterate_phdr(look_at, &own);
    if (own.is_program || own.name.empty()) {
        char path[PATH_MAX];
        const ssize_t size = readlink("/proc/self/exe", path, sizeof path);
        own.name.assign(path, size > 0 ? static_cast<size_t>(size) : 0);
    }
    return own.name.substr(0, own.name.rfind('/') + 1);
}

const char* library_folder = nullptr; // from set_library_folder

std::vector<char*> pointers_to(std::vector<std::string>& texts) {
    std::vector<char*> pointers(texts.size() + 1); // the last one stays null
    std::transform(texts.begin(), texts.end(), pointers.begin(),
                   [](std::string& text) { return text.data(); });
    return pointers;
}

// Without the helper no service starts and no password is accepted, and the codes of those calls do not say why.
void tell_once(const std::string& path, int error) {
    static std::atomic_flag told;
    if (!told.test_and_set())
        write_system_log("cannot start " + path + ": " + std::strerror(error)
                         + "; no service will start and every password will be refused");
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
    // A relative folder would be another one after a change of directory.
    if (const std::string folder = own_folder(); folder.starts_with('/')) {
        std::vector<std::string> places{folder, folder + ZU_PRIVATE_FOLDER "/"};
        if (library_folder)
            places.push_back(folder + library_folder + "/" ZU_PRIVATE_FOLDER "/");
        for (const std::string& place : places) {
            if (access((place + "zu-helper").c_str(), X_OK) == 0)
                return place + "zu-helper";
        }
    }
    return ZU_LIBRARY_FOLDER "/" ZU_PRIVATE_FOLDER "/zu-helper";
}

void set_library_folder(const char* folder) {
    library_folder = folder;
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
    const std::string path = helper_path();
    const int error = posix_spawn(&child, path.c_str(), &settings.files, &settings.attributes,
                                  pointers_to(arguments).data(), pointers_to(environment).data());
    if (error == ENOENT || error == EACCES)
        tell_once(path, error);
    errno = error;
    return error == 0 ? child : -1;
}

} // namespace platform
