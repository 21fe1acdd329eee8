#include "support/users.h"

#include <dlfcn.h>
#include <grp.h>

#include "support/test.h"

namespace zu_test {

static bool run(const std::string& command) {
    return is_root() && run_command(command).exit_code == 0;
}

static bool has_pam() {
    void* const library = dlopen("libpam.so.0", RTLD_LAZY);
    return library && dlclose(library) == 0;
}

temporary_user::temporary_user(const std::string& password, bool is_administrator) {
    static int count = 0;
    name_ = "zu" + std::to_string(getpid()) + "u" + std::to_string(++count);
    std::string groups = "nogroup";
    for (const char* name : {"admin", "wheel", "sudo"}) {
        if (is_administrator && getgrnam(name))
            groups = std::string("nogroup -G ") + name;
    }
    made_ = has_pam() && run("useradd -M -N -s /bin/sh -g " + groups + " " + name_)
            && run("printf '%s:%s\\n' " + name_ + " '" + password + "' | chpasswd");
}

temporary_user::~temporary_user() {
    run("userdel " + name_);
}

bool temporary_user::change(const std::string& options) const {
    return run("usermod " + options + " " + name_);
}

} // namespace zu_test
