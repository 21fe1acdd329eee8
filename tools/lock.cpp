// zu lock: the named locks of this machine.
#include <pwd.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>

#include "platform/text/utf8.h"
#include "platform/threads/mutex_file.h"
#include "tools/tools.h"

namespace zu_tools {

namespace {

std::vector<platform::mutex_facts> all_locks() {
    std::vector<platform::mutex_facts> locks;
    check(platform::mutex_file::list(locks), "the locks");
    return locks;
}

std::string user_name(uid_t id) {
    const passwd* const entry = getpwuid(id);
    return entry ? entry->pw_name : std::to_string(id);
}

// The process of a thread, and its program; empty when it has ended.
std::string process_of(uint32_t thread) {
    const std::string folder = "/proc/" + std::to_string(thread);
    std::ifstream status(folder + "/status"), comm(folder + "/comm");
    std::string program, number;
    std::getline(comm, program);
    for (std::string line; std::getline(status, line);) {
        if (line.starts_with("Tgid:\t"))
            number = line.substr(6);
    }
    return number.empty() ? "" : number + ' ' + program;
}

int list(const arguments& given) {
    table rows({"name", "user", "for", "state", "owner"});
    for (const platform::mutex_facts& lock : all_locks()) {
        const std::string owner = lock.owner ? process_of(lock.owner) : "";
        const char* const state = lock.name.empty()     ? "unreadable"
                                  : lock.is_left_behind ? "left behind"
                                  : !lock.owner         ? "free"
                                  : owner.empty()       ? "abandoned"
                                                        : "held";
        rows.add({lock.name.empty() ? lock.path : platform::utf8_of(lock.name), user_name(lock.user),
                  lock.for_everyone ? "everyone" : "user", state, lock.is_left_behind ? "" : owner});
    }
    rows.print(given);
    return done;
}

int clean(const arguments& given) {
    const auto left_behind = [] {
        size_t count = 0;
        for (const platform::mutex_facts& lock : all_locks())
            count += lock.is_left_behind;
        return count;
    };
    const size_t before = left_behind();
    platform::mutex_file::sweep();
    const size_t after = left_behind();
    facts result;
    result.add("removed", uint64_t{before > after ? before - after : 0});
    result.add("left", uint64_t{after});
    result.print(given);
    if (after > 0)
        std::fprintf(stderr, "zu lock: those that are left are other users'; root can remove them\n");
    return after > 0 ? failed : done;
}

} // namespace

int lock(const arguments& given) {
    given.allow({"--json"});
    given.expect(1, 1);
    return run_order(given, {{"list", list}, {"clean", clean}});
}

} // namespace zu_tools
