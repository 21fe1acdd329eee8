// Where the host directory is.
#include "platform/core/host_dir.h"

#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <cstring>

namespace platform {

namespace {

constexpr char variable[] = "ZU_HOST";

// A relative value that the process has seen. None is ever released: its text may be in use.
struct relative_value {
    std::string given;
    std::string absolute;
    const relative_value* next;
};

const char* absolute_path_of(const char* given) {
    static std::atomic<const relative_value*> seen{nullptr};
    for (const relative_value* value = seen.load(std::memory_order_acquire); value; value = value->next) {
        if (value->given == given)
            return value->absolute.c_str();
    }
    char* directory = getcwd(nullptr, 0);
    // Without a working directory a relative path leads nowhere, so it may as well stay as it is.
    if (!directory)
        return given;
    auto* const fresh = new relative_value{given, std::string(directory) + '/' + given, seen.load()};
    std::free(directory);
    while (!seen.compare_exchange_weak(fresh->next, fresh, std::memory_order_acq_rel)) {}
    return fresh->absolute.c_str();
}

// The first call is made when the library is loaded, so that a relative value counts from the directory in which the
// process was started.
[[maybe_unused]] const char* const at_the_start = host_directory();

bool is_variable(const char* entry) {
    constexpr size_t length = sizeof variable - 1;
    return std::strncmp(entry, variable, length) == 0 && entry[length] == '=';
}

} // namespace

const char* host_directory() {
    // secure_getenv: a set-id program must not take its drives and services from whoever starts it.
    const char* given = secure_getenv(variable);
    if (!given || !*given)
        return standard_host_directory;
    return *given == '/' ? given : absolute_path_of(given);
}

std::string in_host_directory(const char* relative) {
    return std::string(host_directory()) + '/' + relative;
}

bool host_directory_watch::may_have_changed() {
    // setenv and putenv add behind the last variable, replace an entry in its place, or move to a new list; unsetenv
    // moves the entries behind its own forward.
    if (environ && environ == environment_ && environ[at_] == entry_ && (is_set_ || !environ[at_ + 1]))
        return false;
    environment_ = nullptr;
    is_set_ = false;
    for (size_t i = 0; environ && environ[i] && !is_set_; ++i) {
        environment_ = environ;
        at_ = i;
        entry_ = environ[i];
        is_set_ = is_variable(entry_);
    }
    return true;
}

} // namespace platform
