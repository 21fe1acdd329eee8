// Share modes between processes, users and handles: all pairs of access and share mode; deleting and moving.
#include "support/test.h"

namespace {

using namespace platform;

constexpr DWORD accesses[] = {FILE_WRITE_ATTRIBUTES, GENERIC_READ, GENERIC_WRITE,
                              GENERIC_READ | GENERIC_WRITE};

// One of the sixteen ways to open a file.
struct way {
    explicit way(int number) : access(accesses[number / 4]), share(static_cast<DWORD>(number % 4)) {}

    bool reads() const { return (access & GENERIC_READ) != 0; }
    bool writes() const { return (access & GENERIC_WRITE) != 0; }
    DWORD needs() const { return (reads() ? FILE_SHARE_READ : 0) | (writes() ? FILE_SHARE_WRITE : 0); }

    DWORD access;
    DWORD share;
};

DWORD open_code(const std::u16string& path, const way& how, HANDLE* opened,
                DWORD disposition = OPEN_EXISTING) {
    *opened = CreateFileW(path.c_str(), how.access, how.share, nullptr, disposition, 0x80, nullptr);
    return *opened == INVALID_HANDLE_VALUE ? GetLastError() : ERROR_SUCCESS;
}

// A child that has a file open until it is killed; its result is the code.
holder opened_elsewhere(const std::u16string& path, const way& how, bool as_ordinary_user = false) {
    return holder([&] {
        if (as_ordinary_user)
            become_ordinary_user();
        HANDLE opened;
        return open_code(path, how, &opened);
    });
}

struct file_kind {
    const char* name;
    mode_t mode;
};
constexpr file_kind kinds[] = {{"plain", 0666}, {"read-only", 0444}, {"write-only", 0222}};

// What opening says as long as nobody else has the file open.
DWORD code_alone(const file_kind& kind, const way& how, bool is_root) {
    if (how.writes() && kind.mode == 0444)
        return 5;
    return how.reads() && kind.mode == 0222 && !is_root ? 5 : 0;
}

bool go_together(const way& first, const way& second) {
    return first.needs() == 0 || second.needs() == 0
           || ((first.needs() & ~second.share) == 0 && (second.needs() & ~first.share) == 0);
}

// A descriptor that can only write has no shared locks: two writers that would share the file exclude each other.
bool exclude_by_mistake(const file_kind& kind, const way& first, bool first_is_root, const way& second,
                        bool second_is_root) {
    return kind.mode == 0222 && first.writes() && second.writes() && !(first_is_root && second_is_root);
}

// Runs all pairs, the first in a child, the second here. Returns what was wrong.
std::string run_matrix(const file_place& place, bool first_is_root, bool second_is_root) {
    std::string wrong;
    for (const file_kind& kind : kinds) {
        const std::u16string path = place.long_path(wide(kind.name));
        for (int i = 0; i < 16; ++i) {
            const way first(i);
            const holder child = opened_elsewhere(path, first, !first_is_root);
            if (child.result() != code_alone(kind, first, first_is_root))
                wrong += kind.name + std::string(" alone ") + std::to_string(i) + "; ";
            if (child.result() != 0)
                continue;
            for (int j = 0; j < 16; ++j) {
                const way second(j);
                DWORD wanted = code_alone(kind, second, second_is_root);
                if (wanted == 0
                    && (!go_together(first, second)
                        || exclude_by_mistake(kind, first, first_is_root, second, second_is_root)))
                    wanted = 32;
                HANDLE opened;
                const DWORD code = open_code(path, second, &opened);
                if (code == 0)
                    CloseHandle(opened);
                if (code != wanted)
                    wrong += kind.name + std::string(" ") + std::to_string(i) + "+" + std::to_string(j) + ": "
                             + std::to_string(code) + " instead of " + std::to_string(wanted) + "; ";
            }
        }
    }
    return wrong;
}

void make_kinds(const file_place& place) {
    for (const file_kind& kind : kinds) {
        place.write(kind.name, "data");
        chmod(place.host_path(kind.name).c_str(), kind.mode);
    }
}

TEST(sharing, all_pairs_between_two_processes_of_one_user) {
    const file_place place;
    make_kinds(place);
    EXPECT_EQ(run_matrix(place, is_root(), is_root()), "");
    if (!is_root())
        return;
    const outcome child =
        run_as_ordinary_user([&] { std::printf("%s", run_matrix(place, false, false).c_str()); });
    EXPECT_EQ(child.output, "");
    EXPECT_EQ(child.exit_code, 0);
}

TEST(sharing, all_pairs_between_root_and_an_ordinary_user) {
    if (!is_root())
        GTEST_SKIP() << "takes root and another user";
    const file_place place;
    make_kinds(place);
    EXPECT_EQ(run_matrix(place, false, true), "");
}

TEST(sharing, all_pairs_within_one_process) {
    const file_place place;
    place.write("file", "data");
    const std::u16string path = place.long_path(u"file");
    for (int i = 0; i < 16; ++i) {
        HANDLE first;
        ASSERT_EQ(open_code(path, way(i), &first), 0u);
        for (int j = 0; j < 16; ++j) {
            HANDLE second;
            const DWORD code = open_code(path, way(j), &second);
            EXPECT_EQ(code, go_together(way(i), way(j)) ? 0u : 32u) << i << ' ' << j;
            if (code == 0) {
                EXPECT_TRUE(CloseHandle(second));
            }
        }
        EXPECT_TRUE(CloseHandle(first));
    }
}

TEST(sharing, a_refused_open_leaves_the_data_and_the_checks_have_their_order) {
    const file_place place;
    make_kinds(place);
    const way alone(12), reading(4), writing(8);
    const std::u16string path = place.long_path(u"plain");
    HANDLE opened;
    {
        const holder child = opened_elsewhere(path, alone);
        for (const DWORD disposition : {CREATE_ALWAYS, OPEN_ALWAYS, TRUNCATE_EXISTING})
            EXPECT_EQ(open_code(path, writing, &opened, disposition), 32u);
        EXPECT_EQ(open_code(path, writing, &opened, CREATE_NEW), 80u);
        EXPECT_EQ(place.read("plain"), "data");
    }
    // Who has emptied it without access for writing does not count as a writer afterwards.
    for (const int number : {1, 5, 6, 4}) {
        ASSERT_EQ(open_code(path, way(number), &opened, CREATE_ALWAYS), 0u);
        const holder child = opened_elsewhere(path, way(5));
        EXPECT_EQ(child.result(), go_together(way(number), way(5)) ? 0u : 32u) << number;
        EXPECT_TRUE(CloseHandle(opened));
    }
    const std::u16string read_only = place.long_path(u"read-only");
    const holder child = opened_elsewhere(read_only, reading);
    EXPECT_EQ(open_code(read_only, writing, &opened), 5u);
    EXPECT_EQ(open_code(read_only, reading, &opened), 32u);
    EXPECT_EQ(code_after(DeleteFileW(read_only.c_str())), 32u);
}

TEST(sharing, ends_with_the_process_and_with_the_close_whoever_has_copies) {
    const file_place place;
    place.write("file", "data");
    const std::u16string path = place.long_path(u"file");
    const way alone(12);
    HANDLE opened;
    holder killed = opened_elsewhere(path, alone);
    EXPECT_EQ(open_code(path, alone, &opened), 32u);
    killed.end();
    EXPECT_EQ(open_code(path, alone, &opened), 0u);

    int end[2];
    ASSERT_EQ(pipe(end), 0);
    const pid_t copy = fork(); // has a copy of the descriptor until it ends
    if (copy == 0) {
        close(end[1]);
        char byte;
        _exit(static_cast<int>(read(end[0], &byte, 1)));
    }
    EXPECT_TRUE(CloseHandle(opened));
    EXPECT_EQ(open_code(path, alone, &opened), 0u);
    EXPECT_TRUE(CloseHandle(opened));
    close(end[0]);
    close(end[1]);
    waitpid(copy, nullptr, 0);
}

TEST(sharing, an_open_file_is_not_deleted_moved_or_replaced) {
    const file_place place;
    for (int i = 0; i < 16; ++i) {
        place.write("file", "file");
        place.write("other", "other");
        const way how(i);
        const bool matters = how.needs() != 0;
        const std::u16string path = place.long_path(u"file"), other = place.long_path(u"other");
        const std::u16string moved = place.long_path(u"moved");
        const holder child = opened_elsewhere(path, how);
        ASSERT_EQ(child.result(), 0u);
        EXPECT_EQ(code_after(MoveFileExW(path.c_str(), moved.c_str(), 0)), matters ? 32u : 0u) << i;
        if (!matters) {
            EXPECT_TRUE(MoveFileExW(moved.c_str(), path.c_str(), 0));
        }
        EXPECT_EQ(code_after(MoveFileExW(other.c_str(), path.c_str(), MOVEFILE_REPLACE_EXISTING)),
                  matters ? 5u : 0u)
            << i;
        EXPECT_EQ(code_after(DeleteFileW(path.c_str())), matters ? 32u : 0u) << i;
        EXPECT_EQ(place.read("file"), matters ? "file" : "") << i;
    }
}

// Writers that open, append and close for each line while others delete and move the file: a line that was reported as
// written is in one of the files that are left or were moved away.
TEST(sharing, no_line_goes_to_a_file_that_is_gone) {
    const file_place place;
    const std::u16string live = place.long_path(u"log");
    constexpr int writers = 3, lines = 3000;
    int counts[2];
    ASSERT_EQ(pipe(counts), 0);
    pid_t children[writers];
    for (pid_t& child : children) {
        child = fork();
        if (child != 0)
            continue;
        int written = 0;
        for (int i = 0; i < lines; ++i) {
            HANDLE file;
            if (open_code(live, way(9), &file, OPEN_ALWAYS) != 0)
                continue;
            LARGE_INTEGER nowhere;
            nowhere.QuadPart = 0;
            DWORD done;
            if (SetFilePointerEx(file, nowhere, nullptr, FILE_END)
                && WriteFile(file, "line\n", 5, &done, nullptr))
                ++written;
            CloseHandle(file);
        }
        _exit(write(counts[1], &written, sizeof written) == sizeof written ? 0 : 1);
    }
    int kept = 0, running = writers;
    const auto take = [&] {
        const std::u16string away = place.long_path(u"away");
        if (!MoveFileExW(live.c_str(), away.c_str(), 0))
            return;
        kept += static_cast<int>(place.read("away").size());
        // A writer that had it open already is about to find out that it was moved.
        while (!DeleteFileW(away.c_str()))
            ASSERT_EQ(GetLastError(), 32u);
    };
    while (running > 0) {
        take();
        int status;
        if (waitpid(-1, &status, WNOHANG) > 0)
            --running;
    }
    take();
    int written = 0;
    for (int i = 0; i < writers; ++i) {
        int part = 0;
        ASSERT_EQ(read(counts[0], &part, sizeof part), static_cast<ssize_t>(sizeof part));
        written += part;
    }
    EXPECT_GT(written, 0);
    EXPECT_EQ(kept, written * 5);
}

} // namespace
