// zu open: who holds a file. A handle's share mode is locks on the file's last bytes, which the host shows beside each
// descriptor of each process.
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <memory>

#include "platform/core/error.h"
#include "platform/files/place.h"
#include "platform/files/sharing.h"
#include "platform/text/utf8.h"
#include "tools/tools.h"

namespace zu_tools {

namespace {

std::vector<std::string> numbers_in(const std::string& folder) {
    std::vector<std::string> names;
    const std::unique_ptr<DIR, int (*)(DIR*)> reader(opendir(folder.c_str()), closedir);
    while (const dirent* entry = reader ? readdir(reader.get()) : nullptr) {
        if (entry->d_name[0] >= '0' && entry->d_name[0] <= '9')
            names.emplace_back(entry->d_name);
    }
    return names;
}

std::string first_line_of(const std::string& path) {
    std::ifstream file(path);
    std::string line;
    std::getline(file, line);
    return line;
}

// lock:	1: OFDLCK  ADVISORY  READ -1 fe:00:131 9223372036854775553 9223372036854775553
bool read_claim(const std::string& descriptor_info, platform::share_claim& claim) {
    std::ifstream file(descriptor_info);
    bool found = false;
    for (std::string line; std::getline(file, line);) {
        long long first, last;
        char kind[16];
        if (std::sscanf(line.c_str(), "lock: %*d: %15s %*s %*s %*d %*x:%*x:%*u %lld %lld", kind, &first,
                        &last)
                == 3
            && std::string_view(kind) == "OFDLCK")
            found = platform::add_claim_of_lock(first, last, claim) || found;
    }
    return found;
}

const char* pair_name(bool first, bool second, const char* one, const char* other, const char* both) {
    return first && second ? both : first ? one : second ? other : "nothing";
}

void look_at(const std::string& process, const struct stat& wanted, table& rows) {
    const std::string folder = "/proc/" + process, descriptors = folder + "/fd";
    for (const std::string& number : numbers_in(descriptors)) {
        struct stat status;
        std::string path = descriptors;
        if (stat(path.append("/").append(number).c_str(), &status) != 0 || status.st_ino != wanted.st_ino
            || status.st_dev != wanted.st_dev)
            continue;
        platform::share_claim claim{};
        std::string info = folder;
        info.append("/fdinfo/").append(number);
        const bool is_ours = read_claim(info, claim);
        rows.add({uint64_t{std::strtoull(process.c_str(), nullptr, 10)}, first_line_of(folder + "/comm"),
                  is_ours ? pair_name(claim.reads, claim.writes, "read", "write", "read, write") : "unknown",
                  is_ours
                      ? pair_name(!claim.denies_reads, !claim.denies_writes, "read", "write", "read, write")
                      : "everything",
                  cell(is_ours)});
    }
}

} // namespace

int open_file(const arguments& given) {
    given.allow({"--json"});
    given.expect(1, 1);
    platform::place at;
    check(at.set(wide_path(given.words[0]).c_str()), given.words[0]);
    struct stat status;
    if (at.attempt([&](int directory, const char* name) { return fstatat(directory, name, &status, 0); })
        != 0)
        fail(given.words[0], at.code_of(errno));
    table rows({"pid", "program", "access", "shares", "by_zu"});
    size_t unseen = 0;
    for (const std::string& process : numbers_in("/proc")) {
        unseen += access(("/proc/" + process + "/fd").c_str(), R_OK | X_OK) != 0 && errno == EACCES;
        look_at(process, status, rows);
    }
    rows.print(given);
    if (unseen > 0)
        std::fprintf(stderr, "zu open: %zu processes of other users could not be looked at\n", unseen);
    return rows.is_empty() ? failed : done;
}

} // namespace zu_tools
