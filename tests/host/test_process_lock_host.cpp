// The files in /dev/shm behind named process locks: who may have them, what is left of them, forked children, many
// killed processes, and the order of arrival at locks of both kinds.
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
        std::atomic<int64_t> counter;
        int32_t inside, doubles;
        std::atomic<bool> over;
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

int ended(pid_t child, int signal = 0) {
    int status = 0;
    if (child > 0 && kill(child, signal) == 0)
        waitpid(child, &status, 0);
    return status;
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

// On two processors, a thread that is woken needs longer to get to the lock than the one that is there.
void keep_to_processor(int number) {
    cpu_set_t one;
    CPU_ZERO(&one);
    CPU_SET(number, &one);
    sched_setaffinity(0, sizeof one, &one);
}

// Counted are the times that two other processes, or another thread, take the lock again while this thread sleeps for
// it. A time limit of 0 stands for the lock of threads.
TEST_F(process_lock, giving_one_back_lets_a_sleeper_go_first) {
    ZU_lock_thread of_threads;
    ZU_lock_thread_init(&of_threads);
    ZU_lock_process lock = create();
    keep_to_processor(0);
    for (const uint32_t timeout_ms : {60000u, ZU_WAIT_INFINITE, 0u}) {
        const auto take = [&] {
            return timeout_ms ? ZU_lock_process_lock_timeout(lock, timeout_ms)
                              : ZU_lock_thread_lock(&of_threads);
        };
        const auto leave = [&] {
            return timeout_ms ? ZU_lock_process_unlock(lock) : ZU_lock_thread_unlock(&of_threads);
        };
        const auto take_again = [&] {
            keep_to_processor(1);
            while (!shared->over && take()) {
                ++shared->counter;
                for (const uint32_t start = ZU_get_tick_count(); ZU_get_tick_count() - start < 2;) {}
                leave();
            }
        };
        shared->over = false;
        pid_t others[2] = {};
        crew threads;
        for (pid_t& other : others)
            other = timeout_ms ? fork_child(take_again) : 0;
        if (!timeout_ms)
            threads.add(take_again);
        std::vector<int64_t> overtakings;
        for (int64_t before = 0; overtakings.size() < 21;) {
            while (shared->counter == before)
                platform::Sleep(1);
            before = shared->counter;
            EXPECT_TRUE(take());
            overtakings.push_back(shared->counter - before);
            EXPECT_TRUE(leave());
        }
        shared->over = true;
        for (const pid_t other : others)
            ended(other);
        std::sort(overtakings.begin(), overtakings.end());
        EXPECT_LE(overtakings[10], timeout_ms ? 4 : 3) << "half of the times, at " << timeout_ms;
    }
    EXPECT_TRUE(ZU_lock_process_close(lock));
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

TEST_F(process_lock, no_file_outlives_a_process_for_long) {
    run_child([&] {
        ZU_lock_process_lock(create());
        std::exit(0);
    });
    EXPECT_FALSE(has_file()) << "it ended in order";
    holder([&] {
        return code_of(ZU_lock_process_lock(create()));
    }).end(); // which leaves it behind, unless another test cleans up meanwhile
    run_child([&] { ZU_lock_process_close(ZU_lock_process_create((wide_name + u"b").c_str())); });
    EXPECT_FALSE(has_file()) << "this user's next process with a lock has cleaned up";
}

TEST_F(process_lock, killed_processes) {
    pid_t children[8] = {};
    std::srand(7);
    const auto random_wait = [] { return std::rand() % 2 ? 3 : ZU_WAIT_INFINITE; };
    for (int kills = 0; kills < 600; ++kills) {
        pid_t& child = children[std::rand() % 8];
        ended(child, SIGKILL);
        child = fork_child([&] { take_and_leave(INT_MAX, random_wait(), false); });
        usleep(static_cast<useconds_t>(std::rand() % 5000));
    }
    for (const pid_t child : children)
        ended(child, SIGKILL);
    EXPECT_EQ(shared->doubles, 0);
    EXPECT_GT(shared->counter, 0);
    for (int round = 0; round < 30; ++round) {
        children[0] = fork_child([&] { take_and_leave(INT_MAX, ZU_WAIT_INFINITE, round % 2 != 0); });
        usleep(static_cast<useconds_t>(round * 1500));
        ended(children[0], SIGKILL);
        ZU_lock_process lock = create();
        EXPECT_EQ(GetLastError(), codes::none);
        ZU_lock_process_lock_timeout(lock, 20000); // owned afterwards, and maybe abandoned
        EXPECT_TRUE(ZU_lock_process_unlock(lock)) << round << ' ' << GetLastError();
        expect_free(lock);
        EXPECT_TRUE(ZU_lock_process_close(lock));
    }
    EXPECT_FALSE(has_file());
}

TEST_F(process_lock, users) {
    if (!is_root())
        GTEST_SKIP() << "needs root to become another user";
    for (bool everyone : {false, true}) {
        // Held open by a process of its own, since a forked child would find this one's handle.
        const holder other([&] { return code_of((everyone ? create_everyone() : create()) != nullptr); });
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
    EXPECT_TRUE(WIFSIGNALED(ended(maker, SIGKILL))) << "nor has it disturbed its maker";
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
    // Spoiled under the feet of a holder, which goes on: it is cut, or written over, or the byte under which it is made
    // and removed is locked for ever by a process that may open it.
    for (const int way : {0, 1, 2}) {
        const holder spoiler([&] {
            ZU_lock_process lock = create();
            const int file = ::open(path.c_str(), O_RDWR | O_CLOEXEC);
            struct flock byte = {F_WRLCK, SEEK_SET, 1 << 20, 1, 0};
            const bool spoiled = way == 0   ? ftruncate(file, 0) == 0
                                 : way == 1 ? pwrite(file, "Z", 1, 0) == 1
                                            : fcntl(file, F_OFD_SETLK, &byte) == 0;
            expect_free(lock);
            return code_of(spoiled && !HasFailure() && (way < 2 || ZU_lock_process_close(lock)));
        });
        EXPECT_EQ(spoiler.result(), 0u);
        const uint32_t refused = way == 2 ? codes::timed_out : codes::invalid_handle;
        EXPECT_EQ(code(), refused) << way;
        EXPECT_EQ(code_of(open() != nullptr), refused) << way;
    }
}

TEST_F(process_lock, made_and_closed_all_the_time) {
    const auto body = [&] { take_and_leave(1000, ZU_WAIT_INFINITE, true); };
    const pid_t others[] = {fork_child(body), fork_child(body)};
    body();
    EXPECT_EQ(ended(others[0]) + ended(others[1]), 0);
    EXPECT_EQ(shared->counter, 3000);
    EXPECT_EQ(shared->doubles, 0);
    // Whoever makes it owns it, or hears that it was there.
    const pid_t rival = fork_child([&] { take_and_leave(INT_MAX, 0, true); });
    for (int i = 0; i < 3000; ++i) {
        const platform::HANDLE lock = platform::CreateMutexW(nullptr, 1, wide_name.c_str());
        const bool was_there = GetLastError() == codes::already_exists;
        EXPECT_EQ(platform::ReleaseMutex(lock) != 0, !was_there);
        EXPECT_TRUE(platform::CloseHandle(lock));
    }
    ended(rival, SIGKILL);
}

} // namespace
