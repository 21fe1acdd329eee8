// Named process locks between real processes, with owners that die and users that differ.
#include <sys/mman.h>

#include "support/test.h"

namespace {

// A name of this test alone, and the file behind it.
struct lock_name {
    ~lock_name() { unlink(path.c_str()); }
    bool has_file() const { return access(path.c_str(), F_OK) == 0; }
    ZU_lock_process create() const { return ZU_lock_process_create(wide.c_str()); }
    ZU_lock_process create_everyone() const { return ZU_lock_process_create_everyone(wide.c_str()); }
    ZU_lock_process open() const { return ZU_lock_process_open(wide.c_str()); }

    const std::string text = "zutest" + std::to_string(getpid());
    const std::u16string wide{text.begin(), text.end()};
    const std::string path = "/dev/shm/zu.mutex." + text;
};

pid_t fork_child(const std::function<void()>& body) {
    const pid_t child = fork();
    if (child == 0) {
        body();
        _exit(0);
    }
    return child;
}

int ended(pid_t child) {
    int status = 0;
    waitpid(child, &status, 0);
    return status;
}

// Another process, which has the lock open or holds it until it is killed.
holder held_elsewhere(const lock_name& name, bool locks = true, bool everyone = false) {
    return holder([&] {
        ZU_lock_process lock = everyone ? name.create_everyone() : name.create();
        return code_after(lock && (!locks || ZU_lock_process_lock(lock)));
    });
}

TEST(process_lock, recursion_ownership_and_results) {
    const lock_name name;
    ZU_lock_process lock = name.create();
    ASSERT_NE(lock, nullptr);
    EXPECT_EQ(GetLastError(), 0u);
    ZU_lock_process again = name.create_everyone(), opened = name.open();
    EXPECT_EQ(GetLastError(), 183u);
    EXPECT_EQ(code_after(ZU_lock_process_unlock(lock)), 288u);
    EXPECT_TRUE(ZU_lock_process_lock(lock));
    EXPECT_TRUE(ZU_lock_process_lock_timeout(again, 0)) << "the owner, through another handle";
    EXPECT_TRUE(ZU_lock_process_unlock(lock));
    const auto tries = [&] { return ZU_lock_process_lock_timeout(lock, 2) && ZU_lock_process_unlock(lock); };
    std::thread([&] {
        SetLastError(4711);
        EXPECT_FALSE(tries()) << "locked twice and unlocked once";
        EXPECT_EQ(GetLastError(), 4711u);
        EXPECT_FALSE(ZU_lock_process_unlock(lock));
    }).join();
    EXPECT_TRUE(ZU_lock_process_unlock(again));
    std::thread([&] { EXPECT_TRUE(tries()); }).join();

    ASSERT_NE(opened, nullptr);
    EXPECT_EQ(code_after(ZU_lock_process_lock(opened)), 5u);
    EXPECT_EQ(code_after(platform::WaitForMultipleObjects(1, &opened, 0, 0) != WAIT_FAILED), 5u);
    EXPECT_EQ(code_after(platform::WaitForMultipleObjects(1, &lock, 0, 0) != WAIT_FAILED), 50u)
        << "only alone";
    for (ZU_lock_process one : {opened, again, lock})
        EXPECT_TRUE(ZU_lock_process_close(one));
    for (const auto call : {ZU_lock_process_close, ZU_lock_process_lock, ZU_lock_process_unlock})
        EXPECT_EQ(code_after(call(lock)), 6u) << "it is closed";
    EXPECT_FALSE(name.has_file());
    EXPECT_EQ(code_after(name.open() != nullptr), 2u);
    EXPECT_TRUE(ZU_lock_process_close(nullptr) && ZU_lock_process_destroy(nullptr));
}

TEST(process_lock, names) {
    const lock_name name;
    ZU_lock_process lock = name.create();
    const std::u16string long_name(254, u'\u00e9');
    ZU_lock_process long_lock = ZU_lock_process_create((long_name + u"A").c_str());
    EXPECT_TRUE(lock && long_lock);
    // clang-format off
    const std::pair<std::u16string, uint32_t> rows[] = {
        {u"Local\\" + name.wide, 183}, {u"Global\\" + name.wide, 183}, {u"Session\\12\\" + name.wide, 183},
        {long_name + u"A", 183}, {long_name + u"a", 0}, // case matters, also at the end of a long name
        {u"", 0}, {u"Local\\", 123}, {u"Session\\1\\", 123}, {u"Session\\1", 3}, {u"Session\\\\" + name.wide, 3},
        {u"local\\" + name.wide, 3}, {u"Global\\a\\b", 3}, {u"\\a", 161}, {u"Global", 6},
        {std::u16string(261, u'x'), 206}};
    // clang-format on
    for (const auto& [wanted, code] : rows) {
        SetLastError(4711);
        ZU_lock_process opened = ZU_lock_process_create(wanted.c_str());
        EXPECT_EQ(GetLastError(), code) << narrow(wanted);
        EXPECT_EQ(opened != nullptr, code == 0 || code == 183) << narrow(wanted);
        EXPECT_TRUE(ZU_lock_process_close(opened));
    }
    ZU_lock_process_close(lock);
    ZU_lock_process_close(long_lock);
    ZU_lock_process one = ZU_lock_process_create(nullptr), two = ZU_lock_process_create(nullptr);
    EXPECT_TRUE(ZU_lock_process_lock(one));
    std::thread([&] {
        EXPECT_FALSE(ZU_lock_process_lock_timeout(one, 0));
        EXPECT_TRUE(ZU_lock_process_lock_timeout(two, 0)) << "without a name, it is another lock";
    }).join();
    EXPECT_TRUE(ZU_lock_process_close(one) && ZU_lock_process_close(two));
}

// Who waits for a while is asleep meanwhile, and looks now and then whether the owner has died.
TEST(process_lock, an_owner_that_ends_leaves_it_abandoned_once) {
    const lock_name name;
    holder owner = held_elsewhere(name);
    ZU_lock_process lock = name.create(), unnamed = ZU_lock_process_create(nullptr);
    EXPECT_FALSE(ZU_lock_process_lock_timeout(lock, 0));
    rusage before, after;
    getrusage(RUSAGE_THREAD, &before);
    EXPECT_EQ(platform::WaitForSingleObject(lock, 500), static_cast<platform::DWORD>(WAIT_TIMEOUT));
    getrusage(RUSAGE_THREAD, &after);
    EXPECT_LE(after.ru_nvcsw - before.ru_nvcsw, 500 / 50 + 5) << "times that it slept";
    EXPECT_FALSE(ZU_lock_process_unlock(lock));
    std::thread killer([&] {
        platform::Sleep(20);
        owner.end();
    });
    for (ZU_lock_process one : {lock, unnamed}) {
        if (one == unnamed)
            std::thread([&] { ZU_lock_process_lock(unnamed); }).join();
        EXPECT_EQ(platform::WaitForSingleObject(one, 60000), WAIT_ABANDONED);
        EXPECT_TRUE(ZU_lock_process_unlock(one)) << "it is owned all the same";
        EXPECT_TRUE(ZU_lock_process_lock_timeout(one, 0)) << "and ordinary again";
        EXPECT_TRUE(ZU_lock_process_unlock(one));
    }
    killer.join();
    std::thread([&] { ZU_lock_process_lock(lock); }).join();
    EXPECT_EQ(platform::WaitForSingleObject(lock, 0), WAIT_ABANDONED) << "a thread ended";
    EXPECT_TRUE(ZU_lock_process_close(lock));
    EXPECT_FALSE(name.has_file());
}

TEST(process_lock, giving_it_up_wakes_a_limited_wait) {
    const lock_name name;
    constexpr int rounds = 10;
    int ready[2];
    ASSERT_EQ(pipe(ready), 0);
    const pid_t giver = fork_child([&] {
        ZU_lock_process lock = name.create();
        int slept_on = 0;
        for (int i = 0; i < rounds; ++i) {
            ZU_lock_process_lock(lock);
            slept_on += write(ready[1], "r", 1) != 1;
            platform::Sleep(5);
            ZU_lock_process_unlock(lock);
            platform::Sleep(15); // less than a sleeper sleeps by itself
            slept_on += ZU_lock_process_lock_timeout(lock, 0) && ZU_lock_process_unlock(lock);
        }
        _exit(slept_on);
    });
    for (int i = 0; i < rounds; ++i) {
        char byte;
        ASSERT_EQ(read(ready[0], &byte, 1), 1);
        ZU_lock_process lock = name.create();
        EXPECT_TRUE(ZU_lock_process_lock_timeout(lock, 60000));
        platform::Sleep(30);
        EXPECT_TRUE(ZU_lock_process_unlock(lock) && ZU_lock_process_close(lock));
    }
    EXPECT_LT(WEXITSTATUS(ended(giver)), rounds / 2);
}

TEST(process_lock, a_handle_closed_under_a_waiting_thread_leaves_the_wait_its_lock) {
    const lock_name name;
    holder owner = held_elsewhere(name);
    ZU_lock_process lock = name.create();
    ASSERT_NE(lock, nullptr);
    std::thread waiting([&] { EXPECT_FALSE(ZU_lock_process_lock(lock)) << "the owner was killed"; });
    platform::Sleep(100); // until it sleeps in the kernel
    EXPECT_TRUE(ZU_lock_process_close(lock));
    owner.end();
    waiting.join();
    EXPECT_FALSE(name.has_file());
}

// A call works on the lock that its handle was for, or fails with 6.
TEST(process_lock, handles_may_be_closed_while_others_use_them) {
    const lock_name name;
    ZU_lock_process kept = name.create();
    std::atomic<ZU_lock_process> changing{name.create()};
    std::atomic<int> taken{0};
    std::atomic<bool> over{false};
    int counter = 0; // plain: only the lock keeps it right
    crew users;
    for (int i = 0; i < 2; ++i) {
        users.add([&] {
            while (!over) {
                ZU_lock_process lock = changing;
                if (!ZU_lock_process_lock_timeout(lock, 1))
                    continue;
                ++counter;
                ++taken;
                EXPECT_TRUE(ZU_lock_process_unlock(lock) || ZU_lock_process_unlock(kept));
            }
        });
    }
    for (int i = 0; i < 20000; ++i)
        EXPECT_TRUE(ZU_lock_process_close(changing.exchange(name.create())));
    over = true;
    users.join();
    EXPECT_EQ(counter, taken);
    ZU_lock_process_close(changing);
    ZU_lock_process_close(kept);
    EXPECT_FALSE(name.has_file());
}

TEST(process_lock, when_all_holders_are_killed_the_next_one_starts_clean) {
    const lock_name name;
    for (const bool opens : {false, true}) {
        held_elsewhere(name).end();
        EXPECT_TRUE(name.has_file());
        if (opens) {
            EXPECT_EQ(code_after(name.open() != nullptr), 2u) << "nobody has it";
        }
        ZU_lock_process lock = name.create();
        EXPECT_EQ(GetLastError(), 0u) << "a new one";
        EXPECT_TRUE(ZU_lock_process_lock_timeout(lock, 0) && ZU_lock_process_close(lock));
        EXPECT_FALSE(name.has_file());
    }
}

// What the processes share beside the lock: one of them at most may be inside.
struct arena {
    int64_t counter;
    int32_t inside;
    int32_t doubles;
};

void take_and_leave(const lock_name& name, arena& shared, int rounds, uint32_t timeout_ms,
                    bool closes = false) {
    ZU_lock_process lock = name.create();
    for (int i = 0; i < rounds; ++i) {
        const platform::DWORD result = platform::WaitForSingleObject(lock, timeout_ms);
        if (result == WAIT_ABANDONED)
            shared.inside = 0; // whoever was inside is dead
        else if (result != WAIT_OBJECT_0)
            continue;
        const int32_t self = static_cast<int32_t>(getpid());
        shared.doubles += shared.inside != 0;
        shared.inside = self;
        ++shared.counter;
        if (closes)
            sched_yield();
        shared.doubles += shared.inside != self;
        shared.inside = 0;
        ZU_lock_process_unlock(lock);
        if (closes) {
            ZU_lock_process_close(lock);
            lock = name.create();
        }
    }
    ZU_lock_process_close(lock);
}

arena* new_arena() {
    void* memory = mmap(nullptr, sizeof(arena), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    return memory == MAP_FAILED ? nullptr : new (memory) arena{};
}

TEST(process_lock, processes_exclude_each_other_also_where_the_file_comes_and_goes) {
    for (const bool closes : {false, true}) {
        const lock_name name;
        arena* shared = new_arena();
        ASSERT_NE(shared, nullptr);
        std::vector<pid_t> children(closes ? 2 : 8);
        for (pid_t& child : children)
            child = fork_child([&] { take_and_leave(name, *shared, 10000, ZU_WAIT_INFINITE, closes); });
        for (pid_t child : children)
            EXPECT_EQ(ended(child), 0);
        EXPECT_EQ(shared->counter, static_cast<int64_t>(children.size()) * 10000);
        EXPECT_EQ(shared->doubles, 0);
        EXPECT_FALSE(name.has_file());
    }
}

TEST(process_lock, processes_killed_at_random_leave_no_trace) {
    const lock_name name;
    arena* shared = new_arena();
    ASSERT_NE(shared, nullptr);
    std::vector<pid_t> children(8, 0);
    std::srand(7);
    const uint32_t start = ZU_get_tick_count();
    const auto end = [](pid_t& victim) {
        if (victim == 0)
            return;
        kill(victim, SIGKILL);
        ended(std::exchange(victim, 0));
    };
    while (ZU_get_tick_count() - start < 10000) {
        for (pid_t& child : children) {
            if (child == 0)
                child = fork_child(
                    [&] { take_and_leave(name, *shared, 1 << 30, std::rand() % 2 ? 3 : ZU_WAIT_INFINITE); });
        }
        usleep(static_cast<useconds_t>(std::rand() % 5000));
        end(children[static_cast<size_t>(std::rand()) % children.size()]);
    }
    std::for_each(children.begin(), children.end(), end);
    EXPECT_EQ(shared->doubles, 0);
    EXPECT_GT(shared->counter, 0);
    ZU_lock_process lock = name.create();
    EXPECT_EQ(GetLastError(), 0u);
    EXPECT_TRUE(ZU_lock_process_lock(lock) && ZU_lock_process_unlock(lock) && ZU_lock_process_close(lock));
    EXPECT_FALSE(name.has_file());
}

// The exit code of a child that is another user.
int as_nobody(const std::function<bool()>& body) {
    return ended(fork_child([&] {
        if (setgid(65534) != 0 || setuid(65534) != 0)
            _exit(9);
        _exit(body() ? 0 : 1);
    }));
}

TEST(process_lock, another_user_needs_the_everyone_form) {
    if (geteuid() != 0)
        GTEST_SKIP() << "needs root to become another user";
    const lock_name name;
    for (bool everyone : {false, true}) {
        // Held open by a process of its own, since a forked child would find this one's handle.
        const holder other = held_elsewhere(name, false, everyone);
        const auto use = [&] {
            ZU_lock_process lock = name.create();
            if (!everyone)
                return !lock && GetLastError() == 5;
            return lock && GetLastError() == 183 && ZU_lock_process_lock_timeout(lock, 1000)
                   && ZU_lock_process_unlock(lock) && ZU_lock_process_close(lock);
        };
        EXPECT_EQ(as_nobody(use), 0) << everyone;
    }
}

TEST(process_lock, another_user_is_never_refused_while_the_everyone_form_is_made) {
    if (geteuid() != 0)
        GTEST_SKIP() << "needs root to become another user";
    const lock_name name;
    const pid_t maker = fork_child([&] {
        while (ZU_lock_process lock = name.create_everyone())
            ZU_lock_process_close(lock);
    });
    EXPECT_EQ(as_nobody([&] {
                  for (int i = 0; i < 50000; ++i) {
                      ZU_lock_process lock = name.open();
                      if (!lock && GetLastError() != 2)
                          return false;
                      ZU_lock_process_close(lock);
                  }
                  return true;
              }),
              0)
        << "it is there for everyone, or not there yet";
    kill(maker, SIGKILL);
    EXPECT_TRUE(WIFSIGNALED(ended(maker))) << "nor has it disturbed its maker";
}

TEST(process_lock, hostile_files_under_its_name_are_refused) {
    const lock_name name;
    const auto code = [&] {
        ZU_lock_process lock = name.create();
        return code_after(lock && ZU_lock_process_close(lock));
    };
    const char* path = name.path.c_str();
    ASSERT_EQ(mkfifo(path, 0666), 0);
    EXPECT_EQ(code(), 6u) << "a pipe";
    ASSERT_EQ(std::remove(path) + symlink("/etc/passwd", path), 0);
    EXPECT_EQ(code(), 6u) << "a link";
    ASSERT_EQ(std::remove(path) + mkdir(path, 0777), 0);
    EXPECT_EQ(code(), 6u) << "a directory";
    ASSERT_EQ(std::remove(path), 0);
    if (geteuid() == 0) {
        close(open(path, O_CREAT | O_RDWR | O_CLOEXEC, 0600));
        ASSERT_EQ(chown(path, 65534, 65534), 0);
        EXPECT_EQ(code(), 5u) << "another user's";
        ASSERT_EQ(std::remove(path), 0);
    }
    // A file that nobody holds open as a lock is set right, whatever is in it.
    const int stale = open(path, O_CREAT | O_RDWR | O_CLOEXEC, 0600);
    EXPECT_EQ(ftruncate(stale, 100000), 0);
    EXPECT_EQ(code(), 0u);
    EXPECT_FALSE(name.has_file());
    close(stale);
    // Spoiled under the feet of a holder: the next one refuses it, the holder goes on.
    for (const bool cut : {true, false}) {
        const holder spoiler([&] {
            ZU_lock_process lock = name.create();
            const int file = open(path, O_RDWR | O_CLOEXEC);
            const bool spoiled = cut ? ftruncate(file, 0) == 0 : pwrite(file, "Z", 1, 0) == 1;
            return code_after(spoiled && ZU_lock_process_lock(lock) && ZU_lock_process_unlock(lock));
        });
        EXPECT_EQ(spoiler.result(), 0u);
        EXPECT_EQ(code(), 6u) << cut;
    }
}

TEST(access_lists, hold_their_entries_and_refuse_what_they_cannot) {
    platform::SID_IDENTIFIER_AUTHORITY world = {SECURITY_WORLD_SID_AUTHORITY};
    platform::PSID everyone = nullptr;
    ASSERT_TRUE(platform::AllocateAndInitializeSid(&world, 1, 0, 0, 0, 0, 0, 0, 0, 0, &everyone));
    platform::EXPLICIT_ACCESS_W entry = {MUTEX_ALL_ACCESS, SET_ACCESS, 0, {}};
    entry.Trustee.ptstrName = static_cast<ZU_wchar*>(everyone);
    platform::ACL *list = nullptr, *merged = nullptr;
    EXPECT_EQ(platform::SetEntriesInAclW(0, nullptr, nullptr, &list), 0u);
    EXPECT_EQ(list, nullptr);
    EXPECT_EQ(platform::SetEntriesInAclW(1, &entry, nullptr, &list), 0u);
    ASSERT_NE(list, nullptr);
    EXPECT_EQ(list->AclSize, 8 + 8 + 12) << "the list, its entry and the identifier in it";
    EXPECT_EQ(platform::SetEntriesInAclW(1, &entry, list, &merged), 50u) << "nothing is added to a list";
    EXPECT_EQ(merged, nullptr);
    platform::SECURITY_DESCRIPTOR descriptor;
    EXPECT_EQ(code_after(platform::InitializeSecurityDescriptor(&descriptor, 2)), 1305u);

    // Without an entry for everyone, or with too few rights in it, the lock stays its user's.
    const lock_name name;
    for (platform::DWORD rights : {MUTEX_ALL_ACCESS, MUTEX_MODIFY_STATE}) {
        platform::LocalFree(list);
        entry.grfAccessPermissions = rights;
        ASSERT_EQ(platform::SetEntriesInAclW(1, &entry, nullptr, &list), 0u);
        ASSERT_TRUE(platform::InitializeSecurityDescriptor(&descriptor, 1));
        ASSERT_TRUE(platform::SetSecurityDescriptorDacl(&descriptor, 1, list, 0));
        platform::SECURITY_ATTRIBUTES attributes = {sizeof attributes, &descriptor, 0};
        platform::HANDLE lock = platform::CreateMutexW(&attributes, 1, name.wide.c_str());
        struct stat status = {};
        EXPECT_EQ(stat(name.path.c_str(), &status), 0);
        EXPECT_EQ(status.st_mode & 0777, rights == MUTEX_ALL_ACCESS ? 0666u : 0600u);
        EXPECT_TRUE(platform::ReleaseMutex(lock)) << "owned from the start";
        EXPECT_TRUE(platform::CloseHandle(lock));
    }
    platform::LocalFree(list);
    platform::FreeSid(everyone);
}

} // namespace
