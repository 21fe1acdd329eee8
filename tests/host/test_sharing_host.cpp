// The locks that stand for share modes: between users, on files of all modes, in forked children, without descriptors.
#include "support/test.h"

namespace {

using namespace platform;
using sharing = file_test;

// A file, opened in a way: bits 0 and 1 are what it shares, bits 2 and 3 what it does with the data, as in share modes.
struct opened : layer_file {
    opened(const std::u16string& path, DWORD way)
        : layer_file(path,
                     way < 4 ? FILE_WRITE_ATTRIBUTES
                             : (way & reads ? GENERIC_READ : 0) | (way & writes ? GENERIC_WRITE : 0),
                     OPEN_EXISTING, way % 4) {}
    static constexpr DWORD reads = 4, writes = 8, all_alone = reads | writes;
};

bool go_together(DWORD first, DWORD second) {
    return first < 4 || second < 4 || ((first / 4 & ~second) == 0 && (second / 4 & ~first) == 0);
}

// Runs all pairs, the first in a child, the second here. Returns what was wrong.
std::string run_matrix(const file_place& place, mode_t mode, bool first_is_root, bool second_is_root) {
    std::ostringstream wrong;
    const std::u16string path = place.long_path(wide(std::to_string(mode)));
    // As long as nobody else has the file open.
    const auto code_alone = [mode](DWORD way, bool as_root) {
        const bool denied =
            ((way & opened::writes) && mode == 0444) || ((way & opened::reads) && mode == 0222 && !as_root);
        return denied ? codes::access_denied : codes::none;
    };
    for (DWORD first = 0; first < 16; ++first) {
        const holder child([&] {
            if (!first_is_root)
                become_ordinary_user();
            return (new opened(path, first))->code;
        });
        if (child.result() != code_alone(first, first_is_root))
            wrong << " alone " << first << ": " << child.result() << "; ";
        for (DWORD second = 0; child.result() == 0 && second < 16; ++second) {
            // A descriptor that can only write has no shared locks: two writers that would share the file exclude each
            // other.
            const bool by_mistake =
                mode == 0222 && (first & second & opened::writes) && !(first_is_root && second_is_root);
            DWORD wanted = code_alone(second, second_is_root);
            if (wanted == 0 && (by_mistake || !go_together(first, second)))
                wanted = codes::sharing_violation;
            const DWORD code = opened(path, second).code;
            if (code != wanted)
                wrong << first << '+' << second << ": " << code << ", not " << wanted << "; ";
        }
    }
    return wrong.str();
}

TEST_F(sharing, of_files_of_all_modes_between_users) {
    for (const mode_t mode : {0666, 0444, 0222}) {
        SCOPED_TRACE(mode);
        place.write(std::to_string(mode), "data");
        chmod(place.host_path(std::to_string(mode)).c_str(), mode);
        EXPECT_EQ(run_matrix(place, mode, is_root(), is_root()), "");
        if (!is_root())
            continue;
        EXPECT_EQ(run_matrix(place, mode, false, true), "");
        const outcome child =
            run_as_ordinary_user([&] { std::printf("<%s>", run_matrix(place, mode, false, false).c_str()); });
        EXPECT_EQ(child.output, "<>");
    }
    if (!is_root())
        GTEST_SKIP() << "another user takes root";
}

TEST_F(sharing, copies_of_descriptors_and_lack_of_them) {
    place.write("file", "data");
    const std::u16string path = place.long_path(u"file");
    opened mine(path, opened::all_alone);
    run_child([&] { mine.close(); });
    EXPECT_EQ(opened(path, opened::all_alone).code, codes::sharing_violation) << "it is a copy";
    const holder copy([] { return 0u; }); // has one of the descriptor until it ends
    mine.close();
    EXPECT_EQ(opened(path, opened::all_alone).code, 0u);
    place.write("other", "other");
    const opened alone(path, opened::all_alone);
    const outcome starved = run_child([&] {
        const rlimit limit{10, 10};
        setrlimit(RLIMIT_NOFILE, &limit);
        while (dup(STDOUT_FILENO) >= 0) {}
        std::printf("%u ", code_of(ZU_delete_file(u"T:\\file")));
        std::printf("%u", code_of(ZU_move_file(u"T:\\other", u"T:\\file")));
    });
    EXPECT_EQ(starved.output, "4 4");
    EXPECT_EQ(place.read("file") + place.read("other"), "dataother");
}

} // namespace
