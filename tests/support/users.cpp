#include "support/users.h"

#include <grp.h>
#include <pwd.h>
#include <unistd.h>

#include "support/process.h"

namespace zu_test {

namespace {

int user_count = 0;

bool run(const std::string& command) {
    return run_command(command).exit_code == 0;
}

} // namespace

temporary_user::temporary_user(const std::string& password, const std::string& group)
    : name_("zu" + std::to_string(getpid()) + "u" + std::to_string(++user_count)) {
    const std::string groups = group.empty() ? "" : " -G " + group;
    made_ = geteuid() == 0 && run("useradd -M -N -s /bin/sh -g nogroup" + groups + " " + name_)
            && run("printf '%s:%s\\n' " + name_ + " '" + password + "' | chpasswd");
}

temporary_user::~temporary_user() {
    if (geteuid() == 0)
        run("userdel " + name_);
}

uid_t temporary_user::id() const {
    const passwd* entry = getpwnam(name_.c_str());
    return entry ? entry->pw_uid : static_cast<uid_t>(-1);
}

bool temporary_user::change(const std::string& options) const {
    return run("usermod " + options + " " + name_);
}

std::string administrators_group() {
    for (const char* name : {"sudo", "wheel", "admin"}) {
        if (getgrnam(name))
            return name;
    }
    return "root";
}

} // namespace zu_test
