// zu info: the library's version, what it finds on this machine, and how to mend what does not work.
#include <langinfo.h>
#include <locale.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "platform/core/host_dir.h"
#include "platform/core/start_helper.h"
#include "platform/services/service_manager.h"
#include "platform/text/utf8.h"
#include "tools/tools.h"
#include "zu/zu.h"

namespace zu_tools {

namespace {

// Writes to standard error what does not work, and how to mend it.
struct complaints {
    bool any = false;
    void add(const std::string& text) {
        std::fprintf(stderr, "zu info: %s\n", shown(text).c_str());
        any = true;
    }
};

std::string character_set() {
    const locale_t environment = newlocale(LC_CTYPE_MASK, "", nullptr);
    if (!environment)
        return "UTF-8 (the locale of the environment is not installed)";
    const std::string name = nl_langinfo_l(CODESET, environment);
    freelocale(environment);
    return name == "ANSI_X3.4-1968" ? "UTF-8 (the environment names none)" : name;
}

std::string zone() {
    if (const char* name = std::getenv("TZ"); name && *name)
        return std::string(name) + " (TZ)";
    char target[PATH_MAX];
    const ssize_t size = readlink("/etc/localtime", target, sizeof target);
    const std::string path(target, size > 0 ? static_cast<size_t>(size) : 0);
    const size_t at = path.find("zoneinfo/");
    return at == path.npos
               ? (access("/etc/localtime", R_OK) == 0 ? "of /etc/localtime" : "UTC (no /etc/localtime)")
               : path.substr(at + 9) + " (/etc/localtime)";
}

std::string local_time_now() {
    ZU_wchar text[20] = {};
    ZU_write_time_t(ZU_time(), text);
    return platform::utf8_of(text);
}

void add_host_directory(facts& result, complaints& wrong) {
    const std::string folder = platform::host_directory();
    const char* const given = secure_getenv("ZU_HOST");
    result.add("host_directory", folder);
    result.add("host_directory_from", given && *given ? "ZU_HOST" : "default");
    struct stat status;
    const bool is_there = stat(folder.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
    const bool is_readable = is_there && access(folder.c_str(), R_OK | X_OK) == 0;
    const bool is_writable = is_there && access(folder.c_str(), W_OK) == 0;
    result.add("host_directory_state", !is_there ? "missing: C: is /, the registry and the services are empty"
                                       : is_writable ? "may be changed"
                                       : is_readable ? "may be read"
                                                     : "may not be read");
    if (is_there && !is_readable)
        wrong.add(folder + " may not be read by this user: no program of his sees drives; chmod 755 helps");
    if (is_there && (status.st_mode & 0022) != 0 && (status.st_mode & S_ISVTX) == 0)
        wrong.add(folder
                  + " may be written to by others: they can redirect drives and services; chmod go-w helps");
}

void add_helper(facts& result, complaints& wrong) {
    const std::string helper = platform::helper_path();
    const bool is_good = access(helper.c_str(), X_OK) == 0;
    result.add("helper", helper);
    result.add("helper_works", is_good);
    if (!is_good)
        wrong.add(
            helper
            + " is missing: services do not start and passwords are refused; install zu-tools, or set ZU_HELPER");
    const char* const own[] = {"/etc/pam.d/zu", "/usr/lib/pam.d/zu"};
    const bool has_own = access(own[0], F_OK) == 0 || access(own[1], F_OK) == 0;
    const bool has_login = access("/etc/pam.d/login", F_OK) == 0 || access("/usr/lib/pam.d/login", F_OK) == 0;
    result.add("password_service", has_own ? "zu" : has_login ? "login" : "none");
    if (!has_own && !has_login)
        wrong.add(
            "/etc/pam.d has neither zu nor login: passwords are refused; install zu-tools, or write /etc/pam.d/zu");
}

void add_services(facts& result, complaints& wrong) {
    platform::service_manager& manager = platform::the_service_manager();
    bool are_units = false;
    const platform::DWORD code = manager.installs_units(are_units);
    result.add("services_by", code        ? "unknown: " + words_of(code)
                              : are_units ? "systemd, as units zu@NAME.service"
                                          : "zu-helper, one for each");
    if (code)
        wrong.add(platform::in_host_directory("services/.manager")
                  + " says neither systemd nor helper, or may not be read: no service can be installed");
    result.add("may_install_services", manager.may_create());
}

} // namespace

int info(const arguments& given) {
    given.allow({"--json"});
    given.expect(0, 0);
    facts result;
    complaints wrong;
    char version[32];
    std::snprintf(version, sizeof version, "%d.%d.%d", ZU_VERSION_MAJOR, ZU_VERSION_MINOR, ZU_VERSION_PATCH);
    result.add("version", version);
    result.add("interface", platform::utf8_of(ZU_version()));
    result.add("built", platform::utf8_of(ZU_compilation_timestamp()));
    add_host_directory(result, wrong);
    add_helper(result, wrong);
    add_services(result, wrong);
    result.add("character_set", character_set());
    result.add("zone", zone());
    result.add("local_time", local_time_now());
    const passwd* const user = getpwuid(geteuid());
    result.add("user", user ? user->pw_name : std::to_string(geteuid()));
    result.add("may_see_all_open_files", geteuid() == 0);
    result.print(given);
    return wrong.any ? failed : done;
}

} // namespace zu_tools
