// Work of several families, done once for each memory block that it takes and each call of the system that it makes, with
// that one failing. Its answers must then be right, or failures with a code that says no less than the
// truth; or the process ends with the report of memory that ran out. No crash, no hang, no wrong answer.
#include <fcntl.h>
#include <pwd.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/ptrace.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/user.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>

#include "zu/zu.h"

extern "C" { // the C library's own
void* __libc_malloc(size_t);
void* __libc_calloc(size_t, size_t);
void* __libc_realloc(void*, size_t);
}

namespace {

// The parent sees it as well.
struct shared_state {
    std::atomic<long> blocks_until_failure; // 0 or less: none fails any more
    std::atomic<bool> is_in_library;        // nothing of the scenario's own fails
};
shared_state* state = nullptr;

// The calls of the library that the scenario makes.
template <class Work>
auto asked(Work work) {
    SetLastError(0);
    state->is_in_library = true;
    const auto result = work();
    state->is_in_library = false;
    return result;
}

bool fails_now() {
    if (!state || !state->is_in_library || state->blocks_until_failure.fetch_sub(1) != 1)
        return false;
    errno = ENOMEM;
    return true;
}

std::string folder;   // of the host
std::u16string drive; // the same as a drive path
constexpr char text[] = "the text of a file";

std::u16string in_drive(const char16_t* name) {
    return drive + u'\\' + name;
}

[[noreturn]] void give_up(const char* what) {
    state->is_in_library = false;
    std::fprintf(stderr, "wrong: %s, code %u\n", what, GetLastError());
    std::fflush(stderr);
    _exit(1);
}

void expect(bool holds, const char* what) {
    if (!holds)
        give_up(what);
}

// After a failure: the code must say why, and not that there is no such thing.
void expect_honest_code(const char* what) {
    switch (GetLastError()) {
    case 0:    // ERROR_SUCCESS
    case 2:    // ERROR_FILE_NOT_FOUND
    case 3:    // ERROR_PATH_NOT_FOUND
    case 18:   // ERROR_NO_MORE_FILES
    case 1332: // ERROR_NONE_MAPPED
        give_up(what);
    default: break;
    }
}

// ---- The work --------------------------------------------------------------------------------------------------

bool is_there(const char* name) {
    return access((folder + name).c_str(), F_OK) == 0;
}

void use_files() {
    const std::u16string path = in_drive(u"written"), moved = in_drive(u"moved");
    char read[sizeof text] = {};
    uint32_t done = 0;
    ZU_file* const file = asked([&] {
        return ZU_open_file(path.c_str(), ZU_FILE_READ | ZU_FILE_WRITE | ZU_FILE_CREATE_ALWAYS, nullptr);
    });
    if (!file)
        return expect_honest_code("a file is not made");
    if (!asked([&] { return ZU_write_file(file, text, sizeof text, &done); }))
        expect_honest_code("a file is not written");
    else if (!asked([&] {
                 return ZU_seek_file(file, 0, nullptr, ZU_SEEK_BEGIN)
                        && ZU_read_file(file, read, sizeof read, &done);
             }))
        expect_honest_code("a file is not read");
    else
        expect(done == sizeof text && std::memcmp(read, text, sizeof text) == 0, "another text is read");
    asked([&] { return ZU_close_file(file), 0; });

    ZU_stat status;
    if (asked([&] { return ZU_stat64(path.c_str(), &status); }) != 0)
        expect_honest_code("a file that exists has no status");
    if (!asked([&] { return ZU_move_file(path.c_str(), moved.c_str()); }))
        return expect_honest_code("a file is not moved");
    expect(is_there("/moved") && !is_there("/written"), "a file that was moved is not there");
    if (!asked([&] { return ZU_delete_file(moved.c_str()); }))
        return expect_honest_code("a file is not deleted");
    expect(!is_there("/moved"), "a file that was deleted is there");
}

void list_folder() {
    const std::u16string path = in_drive(u"listed");
    int entries = 0;
    ZU_enum_dir* const walk =
        asked([&] { return ZU_enum_dir_begin(path.c_str(), ZU_ENUM_DIR_SKIP_DOTS | ZU_ENUM_DIR_SIZE); });
    if (!walk)
        return expect_honest_code("a folder is not listed");
    asked([&] {
        for (entries = 1; ZU_enum_dir_next(walk); ++entries) {}
        return 0;
    });
    expect(entries == 3 || GetLastError() != 18, "a folder is listed in part"); // 18: ERROR_NO_MORE_FILES
    asked([&] { return ZU_enum_dir_end(walk), 0; });
}

void ask_the_host() {
    uint32_t number = 1, length = 0;
    if (!asked([&] {
            return ZU_registry_get_uint32(HKEY_LOCAL_MACHINE, u"Software\\Test", u"Number", &number);
        })) {
        expect_honest_code("a value of the registry is not there");
        expect(number == 0, "a value that failed is not 0");
    } else {
        expect(number == 7, "another value of the registry");
    }
    // The C library crashes when its look-up of users gets no memory the first time. So that time is no part of the work.
    [[maybe_unused]] const bool has_looked = state->blocks_until_failure > 0 && getpwuid(0);
    if (!asked([&] { return ZU_user_exist(nullptr, u"root"); }))
        expect_honest_code("root does not exist");
    ZU_tm local;
    if (asked([&] { return ZU_localtime(1000000000, &local); }))
        expect(local.tm_hour == 3 && local.tm_isdst == 1, "another local time");
    // Two bytes of EUC-JP.
    ZU_wchar* const wide = asked([&] { return ZU_char_2_wchar(ZU_ENCODING_ANSI, "\xC6\xFC", 2, &length); });
    if (length == 0)
        expect_honest_code("a text is not converted");
    else
        expect(length == 1 && wide[0] == u'\u65e5', "a text in another character set");
    ZU_free(wide);
}

uint32_t take_lock(void* name) {
    ZU_lock_process const lock = ZU_lock_process_create(static_cast<const ZU_wchar*>(name));
    if (!lock)
        expect_honest_code("a lock is not made");
    else if (!ZU_lock_process_lock_timeout(lock, 5000))
        expect_honest_code("a lock is not taken");
    else
        expect(ZU_lock_process_unlock(lock), "a lock that was taken is not given back");
    ZU_lock_process_close(lock);
    return 5;
}

void use_threads() {
    std::u16string name = drive.substr(drive.rfind(u'\\') + 1);
    uint32_t exit_code = 0;
    int waited = 0;
    const bool is_started = asked([&] {
        ZU_thread* const thread = ZU_thread_create(take_lock, name.data());
        waited = thread ? ZU_thread_wait_for_termination(thread, &exit_code) : 0;
        return thread != nullptr;
    });
    if (!is_started || waited != 0)
        expect_honest_code("a thread is not started, or not waited for");
    else
        expect(exit_code == 5, "another exit code");
}

void write_log() {
    const std::u16string path = in_drive(u"log");
    const uint32_t written = asked([&] {
        ZU_init();
        ZU_log_set_output(ZU_LOG_OUT_FILE);
        ZU_log_set_log_file_ex(path.c_str(), 0, ZU_ENCODING_UTF8, 1000, 2, nullptr, nullptr);
        const uint32_t outputs = ZU_log_write(ZU_LOG_ALERT, u"%s %d", u"record", 1);
        ZU_shutdown();
        return outputs;
    });
    std::string line;
    std::ifstream log(folder + "/log");
    std::getline(log, line);
    expect(!(written & ZU_LOG_OUT_FILE) || line.find("record 1") != line.npos, "a record is not in the log");
}

void work() {
    use_files();
    list_folder();
    ask_the_host();
    use_threads();
    write_log();
}

// ---- What fails ------------------------------------------------------------------------------------------------

// The error that a call of the system fails with; 0 for those that cannot fail in this use of them.
int error_of(long call) {
    switch (call) {
    case SYS_exit:
    case SYS_exit_group:
    case SYS_futex:
    case SYS_rt_sigaction:
    case SYS_rt_sigprocmask:
    case SYS_rt_sigreturn:
    case SYS_munmap:
    case SYS_madvise:
    case SYS_sched_yield:
    case SYS_gettid:
    case SYS_getpid:
    case SYS_getuid:
    case SYS_geteuid:
    case SYS_getgid:
    case SYS_getegid:
    case SYS_set_robust_list:
    case SYS_rseq:
    case SYS_clock_gettime:
    case SYS_clock_nanosleep:
    case SYS_brk: // tells the old end in place of an error
    case SYS_close: return 0;
    case SYS_mmap:
    case SYS_mremap:
    case SYS_mprotect: return ENOMEM;
    case SYS_clone:
    case SYS_clone3: return EAGAIN;
    case SYS_open:
    case SYS_openat:
    case SYS_socket:
    case SYS_memfd_create:
    case SYS_eventfd2:
    case SYS_dup:
    case SYS_fcntl: return EMFILE;
    default: return EIO;
    }
}

// Lets a stopped child and its threads run to the end, and fails the call of that number. Gives how many there were and
// how the child ended.
long run_traced(pid_t child, long failing, long& failed_call, int& status) {
    constexpr long options = PTRACE_O_TRACESYSGOOD | PTRACE_O_TRACECLONE | PTRACE_O_EXITKILL;
    ptrace(PTRACE_SETOPTIONS, child, nullptr, options);
    ptrace(PTRACE_SYSCALL, child, nullptr, nullptr);
    long calls = 0;
    pid_t failed_thread = 0;
    int failed_error = 0;
    for (;;) {
        const pid_t thread = waitpid(-1, &status, __WALL);
        if (thread < 0)
            return calls;
        if (!WIFSTOPPED(status)) {
            if (thread == child)
                return calls;
            continue;
        }
        const int signal = WSTOPSIG(status);
        if (signal == (SIGTRAP | 0x80)) {
            __ptrace_syscall_info info = {};
            ptrace(PTRACE_GET_SYSCALL_INFO, thread, sizeof info, &info);
            if (info.op == PTRACE_SYSCALL_INFO_ENTRY) {
                const int error = error_of(static_cast<long>(info.entry.nr));
                if (error != 0 && state->is_in_library && ++calls == failing) {
                    failed_thread = thread;
                    failed_error = error;
                    failed_call = static_cast<long>(info.entry.nr);
                    ptrace(PTRACE_POKEUSER, thread, offsetof(user_regs_struct, orig_rax), -1L);
                }
            } else if (thread == failed_thread) {
                failed_thread = 0;
                ptrace(PTRACE_POKEUSER, thread, offsetof(user_regs_struct, rax),
                       static_cast<long>(-failed_error));
            }
        }
        const bool is_ours = signal == (SIGTRAP | 0x80) || signal == SIGTRAP || signal == SIGSTOP;
        ptrace(PTRACE_SYSCALL, thread, nullptr, static_cast<long>(is_ours ? 0 : signal));
    }
}

enum class failing { block, call };
int faults = 0; // children that ended in another way than they may

// Runs the work in a child with the failure of that number. False when it had fewer.
bool run(failing what, long number) {
    constexpr unsigned seconds = 20;
    const int said = memfd_create("said", MFD_CLOEXEC);
    state->blocks_until_failure = 0;
    state->is_in_library = false;
    const pid_t child = fork();
    if (child == 0) {
        dup2(said, STDERR_FILENO);
        alarm(seconds);
        if (what == failing::call) {
            ptrace(PTRACE_TRACEME, 0, nullptr, nullptr);
            raise(SIGSTOP);
        } else {
            state->blocks_until_failure = number;
        }
        work();
        _exit(0);
    }
    int status = 0;
    long failed_call = -1;
    bool had_as_many = true;
    waitpid(child, &status, 0);
    if (what == failing::call)
        had_as_many = run_traced(child, number, failed_call, status) >= number;
    else
        had_as_many = state->blocks_until_failure <= 0;
    state->blocks_until_failure = 0;

    char words[500] = {};
    const ssize_t size = pread(said, words, sizeof words - 1, 0);
    close(said);
    const bool has_report = size > 0 && std::strstr(words, "Failed to allocate memory");
    const bool is_good = (WIFEXITED(status) && WEXITSTATUS(status) == 0)
                         || (WIFSIGNALED(status) && WTERMSIG(status) == SIGABRT && has_report);
    if (!is_good) {
        std::printf("%s %ld failed", what == failing::block ? "block" : "call", number);
        if (what == failing::call)
            std::printf(" (system call %ld)", failed_call);
        std::printf(": %s %d: %s\n", WIFSIGNALED(status) ? "signal" : "exit",
                    WIFSIGNALED(status) ? WTERMSIG(status) : WEXITSTATUS(status), words);
    }
    faults += !is_good;
    return had_as_many;
}

} // namespace

extern "C" void* malloc(size_t size) {
    return fails_now() ? nullptr : __libc_malloc(size);
}

extern "C" void* calloc(size_t count, size_t size) {
    return fails_now() ? nullptr : __libc_calloc(count, size);
}

extern "C" void* realloc(void* block, size_t size) {
    return fails_now() ? nullptr : __libc_realloc(block, size);
}

// The argument is a folder for its files; its name is that of the lock as well.
int main(int, char** arguments) {
    folder = arguments[1];
    drive = u"C:" + std::u16string(folder.begin(), folder.end());
    for (char16_t& unit : drive)
        unit = unit == u'/' ? u'\\' : unit;
    mkdir((folder + "/listed").c_str(), 0755);
    for (const char* name : {"/listed/one", "/listed/two", "/listed/three"})
        std::ofstream(folder + name).flush();
    std::ofstream(folder + "/registry.reg") << "Windows Registry Editor Version 5.00\n\n"
                                               "[HKEY_LOCAL_MACHINE\\Software\\Test]\n\"Number\"=dword:7\n";
    setenv("ZU_HOST", folder.c_str(), 1);
    setenv("TZ", "Europe/Berlin", 1);
    setenv("LC_ALL", "x.EUC-JP", 1);
    state = static_cast<shared_state*>(
        mmap(nullptr, sizeof *state, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
    for (const failing what : {failing::block, failing::call}) {
        long number = 1;
        while (run(what, number))
            ++number;
        std::printf("   %ld %s failed, one in each run\n", number - 1,
                    what == failing::block ? "memory blocks" : "calls of the system");
        faults += number < 20; // then the work was not done
    }
    return faults == 0 ? 0 : 1;
}
