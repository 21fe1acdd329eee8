// Services: real processes under the helper, and what becomes of them when either is killed. About Linux: the layer has
// a service manager of its own.
#include <sys/prctl.h>

#include <cctype>

#include "support/child.h"
#include "support/service.h"
#include "support/test.h"

namespace zu_test {
void tell_manager(const std::string& text); // of support/posix/service.cpp
}

namespace {

// The services are this program itself, playing a part with LOG STEP... A step is a report to send (READY=1), a number
// of milliseconds to sleep, `log`, which adds the process's number to the log, `child`, which leaves a process behind
// that hears no SIGTERM and says that it is ready, or `loose`, which does what lets a program survive its helper. Then it
// waits for ever. Nothing is reported while there is a file LOG.hush.

std::string log_file;

void report(const std::string& text) {
    if (access((log_file + ".hush").c_str(), F_OK) != 0)
        tell_manager(text);
}

void log_process(pid_t process) {
    std::ofstream(log_file, std::ios::app) << process << '\n';
}

void take_step(const std::string& step) {
    if (step == "log") {
        log_process(getpid());
    } else if (step == "child") {
        signal(SIGTERM, SIG_IGN);
        if (const pid_t child = fork(); child != 0) {
            log_process(child);
        } else {
            setsid();
            report("READY=1"); // which does not count: it is not of the program's session
            pause();
        }
        signal(SIGTERM, SIG_DFL);
    } else if (step == "loose") {
        prctl(PR_SET_PDEATHSIG, 0);
        close_range(3, ~0u, 0);
    } else if (std::isdigit(step[0])) {
        usleep(static_cast<useconds_t>(std::stoi(step)) * 1000);
    } else {
        report(step);
    }
}

const part service_part("service", [](const words& arguments) {
    log_file = arguments[0];
    std::for_each(arguments.begin() + 1, arguments.end(), take_step);
    return pause();
});

// A field of a process, as ps names it; empty once the process has gone.
std::string field_of(pid_t process, const std::string& field) {
    return run_command("ps -o " + field + "= -p " + std::to_string(process)).output;
}
pid_t parent_of(pid_t process) {
    return std::stoi(field_of(process, "ppid"));
}
bool is_gone(pid_t process) {
    const std::string state = field_of(process, "stat");
    return state.empty() || state[0] == 'Z'; // whose parent has not looked yet
}

using platform::SERVICE_STATUS;

struct handle {
    platform::SC_HANDLE value;
    ~handle() { close(); }
    void close() { EXPECT_TRUE(!value || platform::CloseServiceHandle(std::exchange(value, nullptr))); }
    operator platform::SC_HANDLE() const { return value; }
};

class service : public testing::Test {
protected:
    service() {
        setenv("ZU_HELPER", ZU_HELPER_PROGRAM, 1);
        put_service_program(place_.at("")); // makes the manager ready
    }

    // Inside a booted system (test_service_units.cpp) the services are units of it.
    const bool are_units = std::getenv("ZU_TEST_UNITS") != nullptr;

    // A deleted service goes with the last process that lives of it; where helper and keeper were killed, the next look
    // for it removes it.
    ~service() override {
        for (const char16_t* name : installed_)
            ZU_NT_service_uninstall(nullptr, name);
        for (pid_t process : logged())
            kill(process, SIGKILL);
        for (int i = 0; i < 1000 && !left_behind().empty(); ++i) {
            for (const char16_t* name : installed_)
                open(name, SERVICE_QUERY_STATUS);
            ZU_sleep(10);
        }
        EXPECT_EQ(left_behind(), "");
    }

    // The numbers of the processes that services have logged.
    std::vector<pid_t> logged() const {
        std::istringstream text(place_.read("log"));
        return {std::istream_iterator<pid_t>(text), {}};
    }

    bool install(const char16_t* name, const std::u16string& command, const char16_t* dependencies = nullptr,
                 uint32_t start_type = SERVICE_DEMAND_START) {
        installed_.push_back(name);
        return ZU_NT_service_install(nullptr, name, nullptr, command.c_str(), SERVICE_WIN32_OWN_PROCESS,
                                     start_type, dependencies);
    }
    bool install_steps(const char16_t* name, const std::string& steps, const char16_t* needs = nullptr) {
        const std::string command = '"' + own_program().string() + "\" --part service ";
        return install(name, wide(command + place_.host_path("log ") + steps), needs);
    }

    handle open(const char16_t* name, uint32_t access = SERVICE_ALL_ACCESS) const {
        return {platform::OpenServiceW(manager, name, access)};
    }

    // The library's calls, which wait for the state, and the platform's, which do not.
    static bool starts(const char16_t* name) { return ZU_NT_service_start(nullptr, name); }
    static bool stops(const char16_t* name) { return ZU_NT_service_stop(nullptr, name); }
    static uint32_t state(const char16_t* name) { return ZU_NT_service_get_state(nullptr, name); }
    uint32_t start_code(const char16_t* name) const {
        return code_of(platform::StartServiceW(open(name), 0, nullptr));
    }
    uint32_t stop_code(const char16_t* name, uint32_t control = SERVICE_CONTROL_STOP) const {
        SERVICE_STATUS unused;
        return code_of(platform::ControlService(open(name), control, &unused));
    }
    SERVICE_STATUS status(const char16_t* name) const {
        SERVICE_STATUS found = {};
        EXPECT_TRUE(platform::QueryServiceStatus(open(name, SERVICE_QUERY_STATUS), &found));
        return found;
    }

    static std::string text_of(const SERVICE_STATUS& it) {
        std::ostringstream text;
        text << "type " << it.dwServiceType << ", state " << it.dwCurrentState << ", takes "
             << it.dwControlsAccepted << ", exit " << it.dwWin32ExitCode << ", check point "
             << it.dwCheckPoint << ", hint " << it.dwWaitHint;
        return text.str();
    }

    static bool becomes(const char16_t* name, uint32_t wanted) {
        for (int i = 0; i < 2000 && state(name) != wanted; ++i)
            ZU_sleep(5);
        return state(name) == wanted;
    }

    std::string left_behind() const {
        std::string names;
        std::error_code none_yet;
        for (const auto& entry : std::filesystem::directory_iterator(services_, none_yet)) {
            if (const std::string name = entry.path().filename(); name[0] != '.' || name == ".new")
                names += name + ' ';
        }
        return names;
    }

    file_place place_;
    handle manager{platform::OpenSCManagerW(nullptr, nullptr, SC_MANAGER_ALL_ACCESS)};
    std::vector<const char16_t*> installed_;
    const std::string services_ = std::getenv("ZU_HOST") + std::string("/services");
};

TEST_F(service, life_of_one_that_says_nothing) {
    ASSERT_TRUE(install_steps(u"Quiet", ""));
    SERVICE_STATUS now = status(u"Quiet");
    EXPECT_EQ(text_of(now), "type 16, state 1, takes 0, exit 1077, check point 0, hint 0");

    EXPECT_EQ(start_code(u"Quiet"), 0u);
    EXPECT_EQ(text_of(status(u"Quiet")), "type 16, state 2, takes 0, exit 0, check point 0, hint 2000");
    EXPECT_EQ(stop_code(u"Quiet"), codes::service_cannot_accept_control) << "while it is starting";
    EXPECT_TRUE(starts(u"Quiet")) << "what is starting, or runs, is waited for";
    EXPECT_EQ(start_code(u"Quiet"), codes::service_already_running);
    EXPECT_EQ(text_of(status(u"Quiet")), "type 16, state 4, takes 1, exit 0, check point 0, hint 0");
    EXPECT_TRUE(stops(u"quiet"));
    EXPECT_EQ(code_of(platform::ControlService(open(u"Quiet"), SERVICE_CONTROL_STOP, &now)),
              codes::service_not_active);
    EXPECT_EQ(text_of(now), "type 16, state 1, takes 0, exit 0, check point 0, hint 2000");
}

TEST_F(service, programs_that_cannot_run_and_bytes_in_arguments) {
    place_.write("plain", "#!/bin/sh\n");
    place_.write("text", "no program\n");
    chmod(place_.host_path("text").c_str(), 0755);
    const std::pair<std::u16string, uint32_t> rows[] = {
        {place_.drive_path(u"missing.exe -x"), codes::file_not_found},
        {wide(place_.host_path("no/such/folder")), codes::path_not_found},
        {place_.drive_path(u"plain"), codes::access_denied},
        {place_.drive_path(u"TEXT"), codes::bad_exe_format}};
    for (const auto& [command, code] : rows) {
        ASSERT_TRUE(install(u"broken", command));
        EXPECT_EQ(start_code(u"broken"), code);
        EXPECT_EQ(status(u"broken").dwWin32ExitCode, code);
        ASSERT_TRUE(ZU_NT_service_uninstall(nullptr, u"broken"));
    }

    // Arguments stay what they are, also bytes that are no UTF-8; a directory that has the first word's name is no program.
    place_.make_directory("a");
    place_.write("a b", "#!/bin/sh\nprintf '<%s>' \"$@\" >\"$0.said\"\n");
    chmod(place_.host_path("a b").c_str(), 0755);
    ASSERT_TRUE(install(u"..", wide(place_.host_path("a b")) + u" * caf" + char16_t{0xDCE9}));
    EXPECT_EQ(start_code(u".."), 0u);
    EXPECT_TRUE(becomes(u"..", SERVICE_STOPPED));
    EXPECT_EQ(place_.read("a b.said"), "<*><caf\xE9>");
}

TEST_F(service, those_that_end_by_themselves) {
    ASSERT_TRUE(install(u"brief", u"/bin/sh -c \"exit 7\""));
    EXPECT_EQ(start_code(u"brief"), 0u);
    EXPECT_TRUE(becomes(u"brief", SERVICE_STOPPED));
    EXPECT_EQ(status(u"brief").dwWin32ExitCode, codes::service_specific_error);
    EXPECT_EQ(status(u"brief").dwServiceSpecificExitCode, 7u);

    // Its child ignores the request to end, and is killed: only then is the service stopped.
    ASSERT_TRUE(install_steps(u"parent", "child READY=1 log STOPPING=1"));
    ASSERT_EQ(start_code(u"parent"), 0u);
    EXPECT_TRUE(becomes(u"parent", SERVICE_STOP_PENDING)) << "it says so itself";
    EXPECT_EQ(kill(logged().back(), SIGTERM), 0);
    ASSERT_TRUE(becomes(u"parent", SERVICE_STOPPED));
    EXPECT_EQ(status(u"parent").dwWin32ExitCode, codes::process_aborted);
    EXPECT_EQ(kill(logged().front(), 0), -1);
}

TEST_F(service, reports_decide_from_the_first_one_on) {
    ASSERT_TRUE(install_steps(u"slow", "2000 READY=1 log"));
    EXPECT_TRUE(starts(u"slow")) << "silence counts";
    while (logged().empty())
        ZU_sleep(5);
    EXPECT_TRUE(stops(u"slow"));
    EXPECT_EQ(start_code(u"slow"), 0u);
    ZU_sleep(600);
    EXPECT_EQ(state(u"slow"), SERVICE_START_PENDING + 0u) << "it has reported before: silence does not count";
    EXPECT_TRUE(becomes(u"slow", SERVICE_RUNNING));

    // Once it does not report any more it waits in vain, but can be stopped, and then silence counts again.
    EXPECT_TRUE(stops(u"slow"));
    std::ofstream(place_.host_path("log.hush"));
    EXPECT_EQ(code_of(starts(u"slow")), codes::service_request_timeout);
    EXPECT_TRUE(stops(u"slow"));
    EXPECT_TRUE(starts(u"slow"));
    std::filesystem::remove(place_.host_path("log.hush"));

    ASSERT_TRUE(install_steps(u"never", "child log EXTEND_TIMEOUT_USEC=500000"));
    EXPECT_EQ(code_of(starts(u"never")), codes::service_request_timeout);
    EXPECT_EQ(text_of(status(u"never")), "type 16, state 2, takes 1, exit 0, check point 1, hint 500");
    EXPECT_TRUE(stops(u"never")) << "it has been silent for longer than it asked for";
}

// Whatever is killed, and however the program has cut itself loose: nothing lives on, and no second one is started.
TEST_F(service, whose_helpers_are_killed) {
    ASSERT_TRUE(install_steps(u"victim", "child log READY=1 loose"));
    enum { program = 1, helper = 2, keeper = 4 };
    for (const int killed : {+program, +helper, program | helper, helper | keeper}) {
        if (killed & keeper && are_units)
            break; // a control group has none
        SCOPED_TRACE(killed);
        ASSERT_EQ(code_of(starts(u"victim")), 0u);
        const pid_t program_process = logged().back(), helper_process = parent_of(program_process);
        if (killed & keeper)
            kill(parent_of(helper_process), SIGKILL);
        if (killed & helper)
            kill(helper_process, SIGKILL); // before the program, so that it does not report its end
        if (killed & program)
            kill(program_process, SIGKILL);
        if (killed & keeper) {
            EXPECT_TRUE(becomes(u"victim", SERVICE_STOP_PENDING)) << "the program lives";
            continue; // the next start ends it
        }
        EXPECT_TRUE(becomes(u"victim", SERVICE_STOPPED));
        EXPECT_EQ(status(u"victim").dwWin32ExitCode, codes::process_aborted);
        EXPECT_TRUE(is_gone(program_process));
    }
    const pid_t left = logged().back();
    EXPECT_EQ(code_of(starts(u"victim")), 0u);
    EXPECT_TRUE(is_gone(left));
}

TEST_F(service, rights_and_arguments) {
    ASSERT_TRUE(install(u"taken", u"/bin/true", nullptr, SERVICE_DISABLED));
    EXPECT_EQ(start_code(u"taken"), codes::service_disabled);
    EXPECT_EQ(stop_code(u"taken", 77), codes::invalid_service_control);
    ASSERT_TRUE(install(u"top", u"/bin/true", u"middle\0"));
    ASSERT_TRUE(install(u"middle", u"/bin/true", u"base\0"));
    EXPECT_EQ(start_code(u"top"), codes::service_dependency_deleted) << "a missing one of a needed one";
    ASSERT_TRUE(install(u"base", u"/none"));
    EXPECT_EQ(start_code(u"top"), codes::service_dependency_fail);
    SERVICE_STATUS now;
    const handle looked_at = open(u"taken", SERVICE_QUERY_STATUS), started = open(u"taken", SERVICE_START);
    EXPECT_EQ(code_of(platform::DeleteService(looked_at)), codes::access_denied);
    EXPECT_EQ(code_of(platform::StartServiceW(looked_at, 0, nullptr)), codes::access_denied);
    EXPECT_EQ(code_of(platform::ControlService(looked_at, SERVICE_CONTROL_STOP, &now)), codes::access_denied);
    EXPECT_EQ(code_of(platform::QueryServiceStatus(started, &now)), codes::access_denied);
    EXPECT_EQ(code_of(platform::QueryServiceStatus(manager, &now)), codes::invalid_handle);
    EXPECT_EQ(code_of(platform::OpenSCManagerW(nullptr, u"other", 1)), codes::database_does_not_exist);

    const int lock = ::open((services_ + "/.lock").c_str(), O_RDWR);
    ASSERT_EQ(flock(lock, LOCK_EX), 0);
    EXPECT_EQ(code_of(open(u"free", 4)), codes::service_does_not_exist);
    EXPECT_EQ(code_of(install(u"locked", u"/bin/true")), codes::service_database_locked);
    ::close(lock);
}

TEST_F(service, deletion_while_running_or_open_or_cut_short) {
    ASSERT_TRUE(install_steps(u"going", "log READY=1"));
    ASSERT_TRUE(starts(u"going"));
    handle first = open(u"going"), second = open(u"going");
    EXPECT_TRUE(platform::DeleteService(first));
    EXPECT_EQ(code_of(platform::DeleteService(second)), codes::service_marked_for_delete);
    first.close();
    EXPECT_TRUE(stops(u"going"));
    EXPECT_EQ(start_code(u"going"), codes::service_marked_for_delete) << "somebody has it open";
    second.close();
    EXPECT_EQ(left_behind(), "");

    ASSERT_TRUE(install_steps(u"going", "log READY=1"));
    ASSERT_TRUE(starts(u"going"));
    EXPECT_TRUE(platform::DeleteService(open(u"going")));
    kill(logged().back(), SIGTERM);
    for (int i = 0; i < 1000 && !left_behind().empty(); ++i)
        ZU_sleep(5);
    EXPECT_EQ(left_behind(), "") << "the helper itself was the last";

    // Installing and removing can be cut short: the service is there as a whole, or it is not there.
    for (useconds_t round = 0; round < (are_units ? 0 : 100); ++round) {
        const pid_t child = fork();
        while (child == 0) {
            ZU_NT_service_install(nullptr, u"cut", u"A display name", u"/bin/true -x", 0x10, 3, u"a\0b\0");
            ZU_NT_service_uninstall(nullptr, u"cut");
        }
        usleep(2000 + round * 37 % 1000);
        kill(child, SIGKILL);
        waitpid(child, nullptr, 0);
        if (code_of(ZU_NT_service_exist(nullptr, u"cut")) != codes::service_does_not_exist) {
            EXPECT_EQ(state(u"cut"), SERVICE_STOPPED + 0u);
            EXPECT_TRUE(ZU_NT_service_uninstall(nullptr, u"cut")
                        || GetLastError() == codes::service_marked_for_delete);
        }
    }
    EXPECT_TRUE(install(u"cut", u"/bin/true"));
}

// A question that could not be asked has no answer: a running service is not taken for a dead one, nor a needed one for
// a free one.
TEST_F(service, callers_short_of_descriptors) {
    ASSERT_TRUE(install_steps(u"slow to end", "log READY=1"));
    ASSERT_TRUE(install_steps(u"on top", "READY=1", u"slow to end\0"));
    ASSERT_TRUE(starts(u"on top"));
    // Asks with room for no descriptor up to seven. Prints each code that is neither the expected one nor 4, which seven
    // do not lead to any more.
    const auto ask = [](uint32_t expected, const std::function<bool()>& question) {
        for (rlim_t room = 0; room < 8; ++room) {
            rlimit limit = {1024, 1024};
            setrlimit(RLIMIT_NOFILE, &limit);
            limit.rlim_cur = static_cast<rlim_t>(dup(0)) + room;
            setrlimit(RLIMIT_NOFILE, &limit);
            const uint32_t code = code_of(question());
            if (code != expected && (code != codes::too_many_open_files || room == 7))
                printf("with room for %d: %u, not %u\n", int(room), code, expected);
        }
        printf("asked ");
    };
    const auto ask_state = [&] { ask(0, [] { return state(u"slow to end") == SERVICE_RUNNING; }); };
    const outcome starved = run_child([&] {
        const handle opened = open(u"slow to end");
        SERVICE_STATUS now;
        ask(codes::dependent_services_running,
            [&] { return platform::ControlService(opened, SERVICE_CONTROL_STOP, &now) != 0; });
        ask(codes::duplicate_service_name,
            [] { return ZU_NT_service_install(nullptr, u"too", u"On Top", u"x", 0x10, 3, nullptr) != 0; });
        ask_state();
    });
    EXPECT_EQ(starved.output, "asked asked asked ");
    ASSERT_TRUE(stops(u"on top"));
    ASSERT_TRUE(platform::DeleteService(open(u"slow to end")));
    EXPECT_EQ(run_child(ask_state).output, "asked ");
    EXPECT_EQ(state(u"slow to end"), SERVICE_RUNNING + 0u) << "marked, and alive";
}

// Ordinary users look and do not touch, whatever the umask was; who may write to the directory of a service may start it.
TEST_F(service, other_users) {
    if (!is_root())
        GTEST_SKIP() << "an ordinary user cannot become another one";
    setenv("ZU_HOST", place_.host_path("deep/host").c_str(), 1);
    const std::string all = place_.host_path("deep/host/services"), own = all + "/shared";
    const mode_t before = umask(077);
    ASSERT_TRUE(install_steps(u"shared", "log READY=1"));
    EXPECT_TRUE(starts(u"shared"));
    umask(before);
    const outcome user = run_as_ordinary_user([&] {
        const handle users{platform::OpenSCManagerW(u"", u"SERVICESACTIVE", SC_MANAGER_CONNECT)};
        printf("state %u, stop %u, open %u, install %u", state(u"shared"), code_of(stops(u"shared")),
               code_of(platform::OpenServiceW(users, u"shared", SERVICE_STOP)),
               code_of(install(u"mine", u"/bin/true")));
    });
    EXPECT_EQ(user.output, "state 4, stop 5, open 5, install 5");

    // Nor does a lock for reading, which anybody may place on what anybody may read, keep anything from starting.
    holder reader([&] {
        become_ordinary_user();
        std::thread([own] {
            for (int last = -1;; usleep(500)) {
                const int status = ::open((own + "/status").c_str(), O_RDONLY | O_CLOEXEC);
                struct flock helper_byte = {F_RDLCK, SEEK_SET, 1, 1, 0};
                fcntl(status, F_OFD_SETLK, &helper_byte);
                ::close(std::exchange(last, status));
            }
        }).detach();
        return 0u;
    });
    for (int i = 0; i < 4; ++i) {
        EXPECT_TRUE(stops(u"shared"));
        EXPECT_TRUE(starts(u"shared"));
    }
    reader.end();
    EXPECT_TRUE(stops(u"shared"));

    for (const std::string& directory : {all, own}) {
        ASSERT_EQ(chown(directory.c_str(), 0, 12345), 0);
        ASSERT_EQ(chmod(directory.c_str(), 0775), 0);
    }
    EXPECT_TRUE(starts(u"shared")) << "gives the lock to the group";
    EXPECT_TRUE(stops(u"shared"));
    const outcome member = run_as_ordinary_user([&] {
        unsetenv("XDG_RUNTIME_DIR");
        printf("group %u, state %u", getegid(), state(u"shared"));
        printf(", start %u", code_of(starts(u"shared")));
        printf(", stop %u", stop_code(u"shared"));
    });
    EXPECT_EQ(member.output, "group 12345, state 1, start 0, stop 0");
}

} // namespace
