// The files in /dev/shm behind named process locks: who may have them, what is left of them, forked children, many
// killed processes, and the order of arrival.
#include <sys/mman.h>

#include "support/test.h"

namespace {

// A name of this test alone, and the file behind it.
struct process_lock : testing::Test {
    ~process_lock() override { unlink(path.c_str()); }
    bool has_file() const { return access(path.c_str(), F_OK) == 0; }
    ZU_lock_process create() const { return ZU_lock_process_create(wide_name.c_str()); }
    ZU_lock_process create_everyone() const { return ZU_lock_process_create_everyone(wide_name.c_str()); }
    ZU_lock_process open() const { return ZU_lock_process_open(wide_name.c_str()); }
    // Another process, which has the lock open or holds it until it is killed.
    holder held_elsewhere(bool locks = true, bool everyone = false) const {
        return holder([&] {
            ZU_lock_process lock = everyone ? create_everyone() : create();
            return code_of(lock && (!locks || ZU_lock_process_lock(lock)));
        });
    }
    // Goes in and out, with a new handle each time where it closes.
    void take_and_leave(int rounds, uint32_t timeout_ms, bool closes) const {
        ZU_lock_process lock = create();
        const int32_t self = getpid();
        for (int i = 0; i < rounds; ++i) {
            const platform::DWORD result = platform::WaitForSingleObject(lock, timeout_ms);
            if (result == WAIT_ABANDONED)
                shared->inside = 0; // whoever was inside is dead
            else if (result != WAIT_OBJECT_0)
                continue;
            shared->doubles += shared->inside != 0;
            shared->inside = self;
            ++shared->counter;
            if (closes)
                sched_yield();
            shared->doubles += shared->inside != self;
            shared->inside = 0;
            ZU_lock_process_unlock(lock);
            if (closes) {
                ZU_lock_process_close(lock);
                lock = create();
            }
        }
        ZU_lock_process_close(lock);
    }
    // The processes share it beside the lock: one of them at most may be inside.
    struct arena {
        int64_t counter;
        int32_t inside, doubles;
    };
    arena* const shared =
        new (mmap(nullptr, sizeof(arena), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0)) arena{};
    const std::string name = "zutest" + std::to_string(getpid()), path = "/dev/shm/zu.mutex." + name;
    const std::u16string wide_name{name.begin(), name.end()};
};

pid_t fork_child(const std::function<void()>& body) {
    if (const pid_t child = fork(); child != 0)
        return child;
    body();
    _exit(0);
}

int ended(pid_t child) {
    int status = 0;
    if (child > 0)
        waitpid(child, &status, 0);
    return status;
}

int kill_child(pid_t child) {
    if (child > 0)
        kill(child, SIGKILL);
    return ended(child);
}

void expect_free(ZU_lock_process lock) {
    EXPECT_TRUE(ZU_lock_process_lock_timeout(lock, 0));
    EXPECT_TRUE(ZU_lock_process_unlock(lock));
}

TEST_F(process_lock, a_forked_child_is_another_process) {
    const ZU_lock_process lock = create();
    EXPECT_TRUE(ZU_lock_process_lock(lock));
    ended(fork_child([&] {
        shared->counter = code_of(ZU_lock_process_unlock(lock));
        shared->doubles = ZU_lock_process_lock_timeout(lock, 0);
        ZU_lock_process_close(lock);
    }));
    EXPECT_EQ(shared->counter, 288);
    EXPECT_EQ(shared->doubles, 0) << "the parent owns it";
    const pid_t later = fork_child([&] { shared->inside = ZU_lock_process_lock(lock); });
    EXPECT_TRUE(has_file()) << "although a child has closed it";
    EXPECT_TRUE(ZU_lock_process_unlock(lock));
    ended(later);
    EXPECT_EQ(shared->inside, 1);
    EXPECT_TRUE(ZU_lock_process_close(lock));
}

// Counted are the times that another process takes the lock again while this one waits for it.
TEST_F(process_lock, giving_it_back_lets_a_sleeper_go_first) {
    for (const uint32_t timeout_ms : {60000u, ZU_WAIT_INFINITE}) {
        const auto take_again = [&] {
            for (ZU_lock_process lock = create(); ZU_lock_process_lock_timeout(lock, timeout_ms);) {
                ++shared->counter;
                for (const uint32_t start = ZU_get_tick_count(); ZU_get_tick_count() - start < 2;) {}
                ZU_lock_process_unlock(lock);
            }
        };
        const pid_t others[] = {fork_child(take_again), fork_child(take_again)};
        ZU_lock_process lock = create();
        std::vector<int64_t> overtakings;
        for (int64_t before = 0; overtakings.size() < 21;) {
            while (shared->counter == before)
                platform::Sleep(1);
            before = shared->counter;
            EXPECT_TRUE(ZU_lock_process_lock_timeout(lock, timeout_ms));
            overtakings.push_back(shared->counter - before);
            EXPECT_TRUE(ZU_lock_process_unlock(lock));
        }
        std::for_each(others, others + 2, kill_child);
        std::sort(overtakings.begin(), overtakings.end());
        EXPECT_LE(overtakings[10], 4) << "half of the times";
        EXPECT_TRUE(ZU_lock_process_close(lock));
    }
}

TEST_F(process_lock, one_space_of_names) {
    ZU_lock_process lock = create();
    const std::pair<std::u16string, uint32_t> rows[] = {{u"Global\\" + wide_name, codes::already_exists},
                                                        {u"Session\\12\\" + wide_name, codes::already_exists},
                                                        {u"Session\\1", codes::path_not_found},
                                                        {u"Session\\\\" + wide_name, codes::path_not_found}};
    for (const auto& [wanted, code] : rows) {
        ZU_lock_process opened = ZU_lock_process_create(wanted.c_str());
        EXPECT_EQ(GetLastError(), code) << narrow(wanted);
        EXPECT_TRUE(ZU_lock_process_close(opened));
    }
    EXPECT_TRUE(ZU_lock_process_close(lock));
}

// A process that may open the file can lock the byte under which it is made and removed, and keep it.
TEST_F(process_lock, a_file_kept_from_others) {
    ZU_lock_process lock = create();
    const holder jam([&] {
        const int file = ::open(path.c_str(), O_RDWR | O_CLOEXEC);
        struct flock byte = {};
        byte.l_type = F_WRLCK;
        byte.l_start = 1 << 20;
        byte.l_len = 1;
        return code_of(fcntl(file, F_OFD_SETLK, &byte) == 0);
    });
    ASSERT_EQ(jam.result(), 0u);
    expect_free(lock);
    EXPECT_TRUE(ZU_lock_process_close(lock));
    EXPECT_EQ(code_of(create() != nullptr), codes::timed_out);
    EXPECT_EQ(code_of(open() != nullptr), codes::timed_out);
}

TEST_F(process_lock, no_file_outlives_a_process_for_long) {
    held_elsewhere().end();
    EXPECT_EQ(code_of(open() != nullptr), codes::file_not_found) << "nobody has it";
    EXPECT_FALSE(has_file());
    ZU_lock_process unnamed = ZU_lock_process_create(nullptr);
    std::thread([&] { ZU_lock_process_lock(unnamed); }).join();
    EXPECT_EQ(platform::WaitForSingleObject(unnamed, 60000), WAIT_ABANDONED);
    EXPECT_TRUE(ZU_lock_process_unlock(unnamed)) << "it is owned anyway";
    EXPECT_TRUE(ZU_lock_process_close(unnamed));
    run_child([&] {
        ZU_lock_process_lock(create());
        std::exit(0);
    });
    EXPECT_FALSE(has_file()) << "it ended in order";
    held_elsewhere().end(); // which leaves it behind, unless another test cleans up meanwhile
    run_child([&] { ZU_lock_process_close(ZU_lock_process_create((wide_name + u"b").c_str())); });
    EXPECT_FALSE(has_file()) << "this user's next process with a lock has cleaned up";
}

TEST_F(process_lock, killed_processes) {
    pid_t children[8] = {};
    std::srand(7);
    const auto random_wait = [] { return std::rand() % 2 ? 3 : ZU_WAIT_INFINITE; };
    for (int kills = 0; kills < 600; ++kills) {
        pid_t& child = children[std::rand() % 8];
        kill_child(child);
        child = fork_child([&] { take_and_leave(1 << 30, random_wait(), false); });
        usleep(static_cast<useconds_t>(std::rand() % 5000));
    }
    std::for_each(children, children + 8, kill_child);
    EXPECT_EQ(shared->doubles, 0);
    EXPECT_GT(shared->counter, 0);
    ZU_lock_process lock = create();
    EXPECT_EQ(GetLastError(), codes::none);
    expect_free(lock);
    EXPECT_TRUE(ZU_lock_process_close(lock));
    for (int round = 0; round < 30; ++round) {
        children[0] = fork_child([&] { take_and_leave(INT_MAX, ZU_WAIT_INFINITE, round % 2 != 0); });
        usleep(static_cast<useconds_t>(round * 1500));
        kill_child(children[0]);
        lock = create();
        ZU_lock_process_lock_timeout(lock, 20000); // owned afterwards, and maybe abandoned
        EXPECT_TRUE(ZU_lock_process_unlock(lock)) << round << ' ' << GetLastError();
        expect_free(lock);
        EXPECT_TRUE(ZU_lock_process_close(lock));
    }
    EXPECT_FALSE(has_file());
}

TEST_F(process_lock, exclusion_between_processes) {
    for (bool closes : {true, false}) {
        shared->counter = 0;
        const auto body = [&] { take_and_leave(1000, ZU_WAIT_INFINITE, closes); };
        const pid_t others[] = {fork_child(body), fork_child(body)};
        body();
        EXPECT_EQ(ended(others[0]) + ended(others[1]), 0);
        EXPECT_EQ(std::pair(shared->counter, shared->doubles), std::pair(int64_t{3000}, 0)) << closes;
    }
}

TEST_F(process_lock, users) {
    if (!is_root())
        GTEST_SKIP() << "needs root to become another user";
    for (bool everyone : {false, true}) {
        // Held open by a process of its own, since a forked child would find this one's handle.
        const holder other = held_elsewhere(false, everyone);
        const outcome user = run_as_ordinary_user([&] {
            ZU_lock_process lock = create();
            std::printf("%u ", GetLastError());
            std::printf("%d", lock && ZU_lock_process_lock(lock) && ZU_lock_process_unlock(lock));
        });
        EXPECT_EQ(user.output, everyone ? "183 1" : "5 0");
    }
    const pid_t maker = fork_child([&] {
        while (ZU_lock_process lock = create_everyone())
            ZU_lock_process_close(lock);
    });
    const outcome user = run_as_ordinary_user([&] {
        for (int i = 0; i < 50000; ++i) {
            ZU_lock_process lock = open();
            if (!lock && GetLastError() != codes::file_not_found)
                std::printf("%u ", GetLastError());
            ZU_lock_process_close(lock);
        }
    });
    EXPECT_EQ(user.output, "") << "it is there for everyone, or not there yet";
    EXPECT_TRUE(WIFSIGNALED(kill_child(maker))) << "nor has it disturbed its maker";
}

TEST_F(process_lock, hostile_files) {
    const auto code = [&] {
        ZU_lock_process lock = create();
        return code_of(lock && ZU_lock_process_close(lock));
    };
    for (const std::string make : {"mkfifo -m 666 ", "ln -s /etc/passwd ", "mkdir -m 777 "}) {
        ASSERT_EQ(run_command(make + path).exit_code, 0) << make;
        EXPECT_EQ(code(), codes::invalid_handle) << make;
        ASSERT_EQ(std::remove(path.c_str()), 0);
    }
    // A file that nobody holds open as a lock is set right, whatever is in it; another user's, by root alone.
    ASSERT_EQ(run_command("umask 077; truncate -s 100000 " + path).exit_code, 0);
    if (is_root()) {
        EXPECT_EQ(run_as_ordinary_user([&] { std::printf("%u", code()); }).output, "5");
        ASSERT_EQ(run_command("chown 65534 " + path).exit_code, 0);
    }
    EXPECT_EQ(code(), codes::none);
    const outcome cramped = run_child([&] {
        const rlimit few_bytes{20, 20};
        setrlimit(RLIMIT_FSIZE, &few_bytes);
        _exit(static_cast<int>(code()));
    });
    EXPECT_EQ(cramped.exit_code, static_cast<int>(codes::disk_full));
    EXPECT_FALSE(has_file());
    // Spoiled under the feet of a holder: the next one refuses it, the holder goes on.
    for (const bool cut : {true, false}) {
        const holder spoiler([&] {
            ZU_lock_process lock = create();
            const int file = ::open(path.c_str(), O_RDWR | O_CLOEXEC);
            const bool spoiled = cut ? ftruncate(file, 0) == 0 : pwrite(file, "Z", 1, 0) == 1;
            return code_of(spoiled && ZU_lock_process_lock(lock) && ZU_lock_process_unlock(lock));
        });
        EXPECT_EQ(spoiler.result(), 0u);
        EXPECT_EQ(code(), codes::invalid_handle) << cut;
    }
}

TEST_F(process_lock, whoever_makes_it_owns_it_or_hears_that_it_was_there) {
    const pid_t rival = fork_child([&] { take_and_leave(INT_MAX, 0, true); });
    for (int i = 0; i < 3000; ++i) {
        const platform::HANDLE lock = platform::CreateMutexW(nullptr, 1, wide_name.c_str());
        const bool was_there = GetLastError() == codes::already_exists;
        EXPECT_EQ(platform::ReleaseMutex(lock) != 0, !was_there);
        EXPECT_TRUE(platform::CloseHandle(lock));
    }
    kill_child(rival);
}

// Without an entry for everyone, or with too few rights in it, the lock stays its user's.
TEST_F(process_lock, access_lists) {
    platform::SID_IDENTIFIER_AUTHORITY world = {SECURITY_WORLD_SID_AUTHORITY};
    platform::PSID everyone = nullptr;
    ASSERT_TRUE(platform::AllocateAndInitializeSid(&world, 1, 0, 0, 0, 0, 0, 0, 0, 0, &everyone));
    platform::EXPLICIT_ACCESS_W entry = {MUTEX_ALL_ACCESS, SET_ACCESS, 0, {}};
    entry.Trustee.ptstrName = static_cast<ZU_wchar*>(everyone);
    platform::ACL *list = nullptr, *merged = nullptr;
    platform::SECURITY_DESCRIPTOR descriptor;
    for (platform::DWORD rights : {MUTEX_ALL_ACCESS, MUTEX_MODIFY_STATE}) {
        entry.grfAccessPermissions = rights;
        ASSERT_EQ(platform::SetEntriesInAclW(1, &entry, nullptr, &list), 0u);
        EXPECT_EQ(platform::SetEntriesInAclW(1, &entry, list, &merged), 50u) << "nothing is added to a list";
        EXPECT_EQ(code_of(platform::InitializeSecurityDescriptor(&descriptor, 2)), codes::unknown_revision);
        ASSERT_TRUE(platform::InitializeSecurityDescriptor(&descriptor, 1));
        ASSERT_TRUE(platform::SetSecurityDescriptorDacl(&descriptor, 1, list, 0));
        platform::SECURITY_ATTRIBUTES attributes = {sizeof attributes, &descriptor, 0};
        platform::HANDLE lock = platform::CreateMutexW(&attributes, 1, wide_name.c_str());
        struct stat status = {};
        EXPECT_EQ(stat(path.c_str(), &status), 0);
        EXPECT_EQ(status.st_mode & 0777, rights == MUTEX_ALL_ACCESS ? 0666u : 0600u);
        EXPECT_TRUE(platform::ReleaseMutex(lock)) << "owned from the start";
        EXPECT_TRUE(platform::CloseHandle(lock));
        platform::LocalFree(list);
    }
    platform::FreeSid(everyone);
}

} // namespace
