// The locks that stand for share modes on this host: between users, on files of all modes, in forked children, without
// descriptors, and while files are moved away.
#include "support/test.h"

namespace {

using namespace platform;
using sharing = file_test;

// A way to open a file: what it does with the data and what it shares, in the bits of share modes.
struct way {
    DWORD needs, share;
};
constexpr DWORD read = FILE_SHARE_READ, write = FILE_SHARE_WRITE;
constexpr way read_alone{read, 0}, write_alone{write, 0}, all_alone{read | write, 0}, readers{read, read};

struct opened : layer_file {
    opened(const std::u16string& path, const way& how, DWORD disposition = OPEN_EXISTING)
        : layer_file(path,
                     how.needs == 0
                         ? FILE_WRITE_ATTRIBUTES
                         : (how.needs & read ? GENERIC_READ : 0) | (how.needs & write ? GENERIC_WRITE : 0),
                     disposition, how.share) {}
};

// A child that has a file open until it is killed; its result is the code.
holder opened_elsewhere(const std::u16string& path, const way& how, bool as_ordinary_user = false) {
    return holder([&] {
        if (as_ordinary_user)
            become_ordinary_user();
        return (new opened(path, how))->code;
    });
}

constexpr std::pair<const char*, mode_t> kinds[] = {
    {"plain", 0666}, {"read-only", 0444}, {"write-only", 0222}};

void make_kinds(const file_place& place) {
    for (const auto& [name, mode] : kinds) {
        place.write(name, "data");
        chmod(place.host_path(name).c_str(), mode);
    }
}

// The code of opening as long as nobody else has the file open.
DWORD code_alone(mode_t mode, const way& how, bool as_root) {
    const bool denied =
        ((how.needs & write) && mode == 0444) || ((how.needs & read) && mode == 0222 && !as_root);
    return denied ? codes::access_denied : codes::none;
}

bool go_together(const way& first, const way& second) {
    return first.needs == 0 || second.needs == 0
           || ((first.needs & ~second.share) == 0 && (second.needs & ~first.share) == 0);
}

// Runs all pairs, the first in a child, the second here. Returns what was wrong.
std::string run_matrix(const file_place& place, bool first_is_root, bool second_is_root) {
    std::ostringstream wrong;
    for (const auto& [name, mode] : kinds) {
        const std::u16string path = place.long_path(wide(name));
        for (DWORD i = 0; i < 16; ++i) {
            const way first{i / 4, i % 4};
            const holder child = opened_elsewhere(path, first, !first_is_root);
            if (child.result() != code_alone(mode, first, first_is_root))
                wrong << name << " alone " << i << ": " << child.result() << "; ";
            for (DWORD j = 0; child.result() == 0 && j < 16; ++j) {
                const way second{j / 4, j % 4};
                // A descriptor that can only write has no shared locks: two writers that would share the file
                // exclude each other.
                const bool by_mistake = mode == 0222 && (first.needs & second.needs & write)
                                        && !(first_is_root && second_is_root);
                DWORD wanted = code_alone(mode, second, second_is_root);
                if (wanted == 0 && (by_mistake || !go_together(first, second)))
                    wanted = codes::sharing_violation;
                const DWORD code = opened(path, second).code;
                if (code != wanted)
                    wrong << name << ' ' << i << '+' << j << ": " << code << ", not " << wanted << "; ";
            }
        }
    }
    return wrong.str();
}

TEST_F(sharing, all_pairs_of_ways_to_open) {
    make_kinds(place);
    EXPECT_EQ(run_matrix(place, is_root(), is_root()), "");
    if (!is_root())
        GTEST_SKIP() << "another user takes root";
    EXPECT_EQ(run_matrix(place, false, true), "");
    const outcome child =
        run_as_ordinary_user([&] { std::printf("<%s>", run_matrix(place, false, false).c_str()); });
    EXPECT_EQ(child.output, "<>");
}

TEST_F(sharing, end_of_a_claim) {
    place.write("file", "data");
    const std::u16string path = place.long_path(u"file");
    holder killed = opened_elsewhere(path, all_alone);
    EXPECT_EQ(opened(path, all_alone).code, codes::sharing_violation);
    killed.end();
    opened mine(path, all_alone);
    EXPECT_EQ(mine.code, 0u);
    EXPECT_EQ(opened(path, all_alone).code, codes::sharing_violation) << "within one process too";
    run_child([&] { mine.close(); });
    EXPECT_EQ(opened(path, all_alone).code, codes::sharing_violation) << "a child has closed its copy";
    const holder copy([] { return 0u; }); // has one of the descriptor until it ends
    mine.close();
    EXPECT_EQ(opened(path, all_alone).code, 0u);
}

TEST_F(sharing, callers_short_of_descriptors) {
    const std::u16string path = place.long_path(u"file"), other = place.long_path(u"other");
    place.write("file", "file");
    place.write("other", "other");
    const holder child = opened_elsewhere(path, all_alone);
    const outcome starved = run_child([&] {
        const rlimit limit{10, 10};
        setrlimit(RLIMIT_NOFILE, &limit);
        while (dup(STDOUT_FILENO) >= 0) {}
        std::printf("%u ", code_of(DeleteFileW(path.c_str())));
        std::printf("%u", code_of(MoveFileExW(other.c_str(), path.c_str(), MOVEFILE_REPLACE_EXISTING)));
    });
    EXPECT_EQ(starved.output, "4 4");
    EXPECT_EQ(place.read("file") + place.read("other"), "fileother");
}

} // namespace
