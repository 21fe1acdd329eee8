// The files in /dev/shm behind named process locks: who may have them, what is left of them, and forked children.
#include "support/test.h"

namespace {

// A name of this test alone, and the file behind it.
struct process_lock : testing::Test {
    ~process_lock() override { unlink(path.c_str()); }
    bool has_file() const { return access(path.c_str(), F_OK) == 0; }
    ZU_lock_process create() const { return ZU_lock_process_create(wide_name.c_str()); }
    ZU_lock_process create_everyone() const { return ZU_lock_process_create_everyone(wide_name.c_str()); }
    ZU_lock_process open() const { return ZU_lock_process_open(wide_name.c_str()); }
    const std::string name = "zutest" + std::to_string(getpid()), path = "/dev/shm/zu.mutex." + name;
    const std::u16string wide_name{name.begin(), name.end()};
};

TEST_F(process_lock, a_forked_child_is_another_process) {
    const ZU_lock_process lock = create();
    EXPECT_TRUE(ZU_lock_process_lock(lock));
    const outcome first = run_child([&] {
        std::printf("%u ", code_of(ZU_lock_process_unlock(lock)));
        std::printf("%d", ZU_lock_process_lock_timeout(lock, 0));
        ZU_lock_process_close(lock);
    });
    EXPECT_EQ(first.output, "288 0") << "the parent owns it";
    std::thread later(
        [&] { EXPECT_EQ(run_child([&] { std::printf("%d", ZU_lock_process_lock(lock)); }).output, "1"); });
    EXPECT_TRUE(has_file()) << "although a child has closed it";
    EXPECT_TRUE(ZU_lock_process_unlock(lock));
    later.join();
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

TEST_F(process_lock, users) {
    if (!is_root())
        GTEST_SKIP() << "needs root to become another user";
    for (bool everyone : {false, true}) {
        // Held open by a process of its own, since a forked child would find this one's handle.
        const holder other([&] { return code_of((everyone ? create_everyone() : create()) != nullptr); });
        const outcome user = run_as_ordinary_user([&] {
            const std::u16string the_same = (everyone ? u"Global\\" : u"Session\\12\\") + wide_name;
            ZU_lock_process lock = ZU_lock_process_create(the_same.c_str());
            std::printf("%u ", GetLastError());
            std::printf("%d", lock && ZU_lock_process_lock(lock) && ZU_lock_process_unlock(lock));
        });
        EXPECT_EQ(user.output, everyone ? "183 1" : "5 0");
    }
    const pid_t maker = fork();
    if (maker == 0) {
        while (ZU_lock_process lock = create_everyone())
            ZU_lock_process_close(lock);
        _exit(1);
    }
    const outcome user = run_as_ordinary_user([&] {
        for (int i = 0; i < 50000; ++i) {
            ZU_lock_process lock = open();
            if (!lock && GetLastError() != codes::file_not_found)
                std::printf("%u ", GetLastError());
            ZU_lock_process_close(lock);
        }
    });
    EXPECT_EQ(user.output + std::to_string(user.exit_code), "0") << "there for everyone, or not yet";
    int status = 0;
    EXPECT_EQ(kill(maker, SIGKILL) + waitpid(maker, &status, 0), maker);
    EXPECT_TRUE(WIFSIGNALED(status)) << "nor has it disturbed its maker";
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
            const bool usable = ZU_lock_process_lock_timeout(lock, 0) && ZU_lock_process_unlock(lock);
            return code_of(spoiled && usable && (way < 2 || ZU_lock_process_close(lock)));
        });
        EXPECT_EQ(spoiler.result(), 0u);
        const uint32_t refused = way == 2 ? codes::timed_out : codes::invalid_handle;
        EXPECT_EQ(code(), refused) << way;
        EXPECT_EQ(code_of(open() != nullptr), refused) << way;
    }
}

} // namespace
