// Threads of the host: their ends, stacks and identifiers, what the layer remembers for each of them, its handles, and
// locks in forked children.
#include <pthread.h>

#include "support/test.h"

namespace {

uint32_t give_back(void* argument) {
    return *static_cast<uint32_t*>(argument);
}

TEST(threads, are_gone_when_their_end_has_been_waited_for) {
    uint32_t code = 4711;
    ZU_thread* exits = ZU_thread_create([](void*) -> uint32_t { pthread_exit(nullptr); }, nullptr);
    EXPECT_EQ(ZU_thread_wait_for_termination(exits, &code), 0) << "it ends without returning";
    EXPECT_EQ(code, 0u);
    const auto threads = [] {
        return std::distance(std::filesystem::directory_iterator("/proc/self/task"), {});
    };
    long after_the_first = 0; // which brings a helper of the thread sanitizer with it, which stays
    for (int round = 1; round <= 200; ++round) {
        ASSERT_EQ(ZU_thread_wait_for_termination(ZU_thread_create(give_back, &code), nullptr), 0);
        if (round == 1)
            after_the_first = threads();
    }
    // The kernel takes an ended thread off its list a moment after the join.
    while (threads() > after_the_first)
        platform::Sleep(1);
}

// Asks what the layer remembers for each thread, in a destructor that runs when that is gone.
struct late_questions {
    void ask() {
        char* const narrow_text = ZU_wchar_2_char(ZU_ENCODING_ANSI, u"\u65e5", -1, nullptr);
        ZU_tm local{};
        ZU_localtime(1'000'000'000, &local);
        ZU_stat status;
        const int32_t found = ZU_stat64(u"C:\\file", &status);
        const platform::hostent* const host = platform::gethostbyname("127.0.0.1");
        answers = narrow_text + std::to_string(local.tm_hour) + std::to_string(found) + host->h_name;
        ZU_free(narrow_text);
    }
    ~late_questions() {
        const std::string before = answers;
        ask();
        std::puts(before == answers ? "same" : answers.c_str());
        std::fflush(stdout);
    }
    std::string answers;
};

TEST(threads, ask_the_library_to_their_last_breath) {
    const outcome child = run_child([] {
        setenv("LC_ALL", "ja_JP.EUC-JP", 1);
        setenv("ZU_HOST", "/a/host/directory/that/is/not/there", 1);
        ZU_init();
        for (int i = 0; i < 2; ++i) {
            std::thread([] {
                static thread_local late_questions last;
                last.ask();
            }).join();
        }
    });
    EXPECT_EQ(child.output, "same\nsame\n") << child.signal;
}

// Calls of the layer on what the library never gives them.
TEST(handles, good_closed_null_and_of_the_wrong_kind) {
    using namespace platform;
    const HANDLE sem = CreateSemaphoreW(nullptr, 1, 2, nullptr), good = CreateEventW(nullptr, 1, 1, nullptr),
                 closed = CreateEventW(nullptr, 1, 1, nullptr);
    EXPECT_TRUE(CloseHandle(closed));
    DWORD code = 0;
    for (const HANDLE bad : {HANDLE{nullptr}, closed, sem}) {
        const HANDLE pair[] = {sem, bad == sem ? closed : bad};
        EXPECT_EQ(code_of(SetEvent(bad)), codes::invalid_handle);
        EXPECT_EQ(code_of(ResetEvent(bad)), codes::invalid_handle);
        EXPECT_EQ(code_of(GetExitCodeThread(bad, &code)), codes::invalid_handle);
        EXPECT_EQ(code_of(WaitForMultipleObjects(2, pair, FALSE, 0) != WAIT_FAILED), codes::invalid_handle);
    }
    EXPECT_EQ(code_of(ReleaseSemaphore(good, 1, nullptr)), codes::invalid_handle);
    for (const LONG count : {-1, 0, 2, INT32_MAX})
        EXPECT_EQ(code_of(ReleaseSemaphore(sem, count, nullptr)),
                  count > 0 ? codes::too_many_posts : codes::invalid_parameter);
    for (const bool left : {true, false})
        EXPECT_EQ(WaitForSingleObject(sem, 0) == WAIT_OBJECT_0, left) << "nothing above has changed it";
}

TEST(thread_lock, in_a_forked_child_and_after_the_end_of_its_owner) {
    ZU_lock_thread lock;
    ASSERT_EQ(ZU_lock_thread_init_recursive(&lock), 1);
    // The child's thread is still the owner of what it held; afterwards the lock works there as here. A thread that
    // ends with it leaves it taken, also for a thread that gets its place in memory.
    ZU_lock_thread_lock(&lock);
    const outcome child = run_child([&] {
        ZU_lock_thread_unlock(&lock);
        std::thread([&] { ZU_lock_thread_lock(&lock); }).join();
        sleeping_crew next(1, [&](int) -> uint32_t {
            ZU_lock_thread_lock(&lock);
            _exit(1);
        });
        _exit(42);
    });
    EXPECT_EQ(child.exit_code, 42);
    ZU_lock_thread_unlock(&lock);
    EXPECT_EQ(ZU_lock_thread_destroy(&lock), 1);
}

TEST(threads, a_stack_that_does_not_fit_fails_with_code_8) {
    if (built_with_sanitizer)
        GTEST_SKIP() << "a sanitizer's shadow memory does not live under an address-space limit";
    const outcome child = run_child([] {
        const rlimit limit{1u << 30, 1u << 30};
        setrlimit(RLIMIT_AS, &limit);
        uint32_t code = code_of(ZU_thread_create_ex(give_back, nullptr, 3u << 30));
        _exit(ZU_thread_wait_for_termination(ZU_thread_create_ex(give_back, &code, 1 << 20), &code) ? 1
                                                                                                    : code);
    });
    EXPECT_EQ(child.exit_code, static_cast<int>(codes::not_enough_memory));
}

TEST(identifiers, and_ticks_are_the_hosts) {
    const auto are_the_hosts = [] {
        return ZU_get_current_process_id() == static_cast<uint32_t>(getpid())
               && ZU_get_current_thread_id() == static_cast<uint32_t>(gettid());
    };
    EXPECT_TRUE(are_the_hosts());
    EXPECT_EQ(run_child([&] { _exit(are_the_hosts() ? 0 : 1); }).exit_code, 0) << "in a forked child";
    double uptime = 0;
    std::ifstream("/proc/uptime") >> uptime;
    EXPECT_LT(ZU_get_tick_count() - static_cast<uint32_t>(static_cast<uint64_t>(uptime * 1000)), 60000u);
}

} // namespace
