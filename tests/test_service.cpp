// Services: real processes under the helper, and what becomes of them when either is killed.
#include <cctype>
#include <sstream>

#include "platform/text/command_line.h"
#include "support/test.h"

namespace {

// The services are this program itself, started with --service LOG STEP... A step is a report to send (READY=1), behind
// `first=` only while the log is empty, a number of milliseconds to sleep, `exit=N`, `log` or `log-helper`, which add
// the process's number, or its helper's, to the log, `child`, which leaves a process behind that hears no SIGTERM and
// says that it is ready, or `vfork`, which is held up by a child for a while. Then it waits for ever.

void report(const char* text) {
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, std::getenv("NOTIFY_SOCKET"), sizeof address.sun_path - 1);
    const int sender = socket(AF_UNIX, SOCK_DGRAM, 0);
    sendto(sender, text, std::strlen(text), 0, reinterpret_cast<sockaddr*>(&address), sizeof address);
    close(sender);
}

const char* log_file;

void log_process(pid_t process) {
    std::ofstream(log_file, std::ios::app) << process << '\n';
}

void take_step(const std::string& step) {
    if (step == "log" || step == "log-helper") {
        log_process(step == "log" ? getpid() : getppid());
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
    } else if (step == "vfork") {
        if (vfork() == 0) {
            usleep(500'000);
            _exit(0);
        }
    } else if (step.compare(0, 6, "first=") == 0) {
        if (std::ifstream(log_file).peek() == EOF)
            report(step.c_str() + 6);
    } else if (step.compare(0, 5, "exit=") == 0) {
        _exit(std::stoi(step.substr(5)));
    } else if (std::isdigit(step[0])) {
        usleep(static_cast<useconds_t>(std::stoi(step)) * 1000);
    } else {
        report(step.c_str());
    }
}

__attribute__((constructor)) void be_a_service(int count, char** arguments) {
    if (count < 3 || std::strcmp(arguments[1], "--service") != 0)
        return;
    log_file = arguments[2];
    std::for_each(arguments + 3, arguments + count, take_step);
    pause();
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
    service() { setenv("ZU_HELPER", ZU_HELPER_PROGRAM, 1); }

    // What is deleted goes with the last that lives of it; where the helper was killed, whoever looks for it next
    // removes it.
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
        const std::string self = std::filesystem::read_symlink("/proc/self/exe");
        return install(name, wide('"' + self + "\" --service " + place_.host_path("log ") + steps), needs);
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
    uint32_t control_code(const char16_t* name, uint32_t control) const {
        SERVICE_STATUS unused;
        return code_of(platform::ControlService(open(name), control, &unused));
    }
    SERVICE_STATUS status(const char16_t* name) const {
        SERVICE_STATUS found = {};
        EXPECT_TRUE(platform::QueryServiceStatus(open(name, SERVICE_QUERY_STATUS), &found));
        return found;
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

TEST_F(service, whole_life_of_one_that_says_nothing) {
    EXPECT_EQ(state(u"Quiet"), 0u);
    EXPECT_EQ(GetLastError(), 1060u);
    ASSERT_TRUE(install_steps(u"Quiet", "vfork vfork vfork"));
    EXPECT_TRUE(ZU_NT_service_exist(nullptr, u"quIET"));
    SERVICE_STATUS now = status(u"Quiet");
    EXPECT_TRUE(now.dwServiceType == 0x10 && now.dwCurrentState == SERVICE_STOPPED
                && now.dwControlsAccepted == 0 && now.dwWin32ExitCode == ERROR_SERVICE_NEVER_STARTED
                && now.dwWaitHint == 0);

    EXPECT_EQ(start_code(u"Quiet"), 0u);
    now = status(u"Quiet");
    EXPECT_TRUE(now.dwCurrentState == SERVICE_START_PENDING && now.dwCheckPoint == 0 && now.dwWaitHint == 2000
                && now.dwWin32ExitCode == 0);
    EXPECT_EQ(control_code(u"Quiet", SERVICE_CONTROL_STOP), 1061u) << "while it is starting";
    EXPECT_TRUE(starts(u"Quiet")) << "what is starting, or runs, is waited for";
    EXPECT_EQ(start_code(u"Quiet"), 1056u);
    EXPECT_EQ(status(u"Quiet").dwControlsAccepted, 3u);

    EXPECT_EQ(control_code(u"Quiet", SERVICE_CONTROL_PAUSE), 0u) << "while it is held up by a child";
    EXPECT_TRUE(becomes(u"Quiet", SERVICE_PAUSED));
    EXPECT_EQ(control_code(u"Quiet", SERVICE_CONTROL_CONTINUE), 0u);
    EXPECT_TRUE(becomes(u"Quiet", SERVICE_RUNNING));
    EXPECT_EQ(control_code(u"Quiet", SERVICE_CONTROL_PAUSE), 0u);
    EXPECT_TRUE(becomes(u"Quiet", SERVICE_PAUSED));
    EXPECT_TRUE(stops(u"quiet"));
    EXPECT_EQ(code_of(platform::ControlService(open(u"Quiet"), SERVICE_CONTROL_STOP, &now)), 1062u);
    EXPECT_TRUE(now.dwCurrentState == SERVICE_STOPPED && now.dwWin32ExitCode == 0);
    EXPECT_TRUE(ZU_NT_service_uninstall(nullptr, u"Quiet"));
}

TEST_F(service, programs_that_cannot_run) {
    place_.write("plain", "#!/bin/sh\n");
    place_.write("text", "no program\n");
    chmod(place_.host_path("text").c_str(), 0755);
    const std::pair<std::u16string, uint32_t> rows[] = {{place_.drive_path(u"missing.exe -x"), 2},
                                                        {wide(place_.host_path("no/such/folder")), 3},
                                                        {place_.drive_path(u"plain"), 5},
                                                        {place_.drive_path(u"TEXT"), 193}};
    for (const auto& [command, code] : rows) {
        ASSERT_TRUE(install(u"broken", command));
        EXPECT_EQ(start_code(u"broken"), code);
        EXPECT_EQ(status(u"broken").dwWin32ExitCode, code);
        EXPECT_EQ(code_of(starts(u"broken")), 1053u);
        ASSERT_TRUE(ZU_NT_service_uninstall(nullptr, u"broken"));
    }
}

TEST_F(service, those_that_end_by_themselves) {
    ASSERT_TRUE(install_steps(u"brief", "exit=7"));
    EXPECT_EQ(code_of(starts(u"brief")), 1053u);
    EXPECT_TRUE(becomes(u"brief", SERVICE_STOPPED));
    EXPECT_EQ(status(u"brief").dwWin32ExitCode, 1066u);
    EXPECT_EQ(status(u"brief").dwServiceSpecificExitCode, 7u);

    // Its child ignores the request to end, and is killed: only then is the service stopped.
    ASSERT_TRUE(install_steps(u"parent", "child READY=1 log STOPPING=1"));
    ASSERT_EQ(start_code(u"parent"), 0u);
    EXPECT_TRUE(becomes(u"parent", SERVICE_STOP_PENDING)) << "it says so itself";
    EXPECT_EQ(kill(logged().back(), SIGTERM), 0);
    ASSERT_TRUE(becomes(u"parent", SERVICE_STOPPED));
    EXPECT_EQ(status(u"parent").dwWin32ExitCode, 1067u);
    EXPECT_EQ(kill(logged().front(), 0), -1);
}

TEST_F(service, reports_decide_from_the_first_one_on) {
    ASSERT_TRUE(install_steps(u"slow", "first=EXTEND_TIMEOUT_USEC=900000 log 700 A= 700 B= 700 READY=1"));
    EXPECT_TRUE(starts(u"slow")) << "it asked for less than a second each time, and took two";
    EXPECT_EQ(status(u"slow").dwCheckPoint, 0u);
    EXPECT_TRUE(stops(u"slow"));
    EXPECT_EQ(start_code(u"slow"), 0u);
    ZU_sleep(600);
    EXPECT_EQ(state(u"slow"), SERVICE_START_PENDING + 0u) << "it has reported before: silence does not count";

    ASSERT_TRUE(install_steps(u"never", "child log EXTEND_TIMEOUT_USEC=500000"));
    EXPECT_EQ(code_of(starts(u"never")), 1053u);
    const SERVICE_STATUS it = status(u"never");
    EXPECT_TRUE(it.dwCurrentState == SERVICE_START_PENDING && it.dwCheckPoint == 1 && it.dwWaitHint == 500);
}

TEST_F(service, killed_from_outside) {
    ASSERT_TRUE(install_steps(u"victim", "child log log-helper READY=1"));
    for (const auto& [program, helper] : {std::pair(true, false), {false, true}, {true, true}}) {
        SCOPED_TRACE(testing::Message() << "program " << program << ", helper " << helper);
        ASSERT_EQ(code_of(starts(u"victim")), 0u);
        const std::vector<pid_t> processes = logged();
        ASSERT_GE(processes.size(), 3u);
        if (helper)
            kill(processes.back(), SIGKILL); // first, so that it does not report the end of the program
        if (program)
            kill(processes.end()[-2], SIGKILL);
        // Without the helper, the child holds on.
        ASSERT_TRUE(becomes(u"victim", helper ? SERVICE_STOP_PENDING : SERVICE_STOPPED));
        EXPECT_TRUE(program || stops(u"victim"));
        const SERVICE_STATUS now = status(u"victim");
        EXPECT_TRUE(now.dwCurrentState != SERVICE_STOPPED || now.dwWin32ExitCode == 1067);
    }
    EXPECT_TRUE(starts(u"victim"));
}

TEST_F(service, of_starts_at_the_same_time_one_succeeds) {
    ASSERT_TRUE(install_steps(u"single", "log READY=1"));
    for (size_t round = 1; round <= 5; ++round) {
        std::atomic<uint32_t> sum_of_codes{0};
        crew starters;
        for (int i = 0; i < 8; ++i)
            starters.add([&] { sum_of_codes += start_code(u"single"); });
        starters.join();
        EXPECT_EQ(sum_of_codes, 7 * 1056u);
        EXPECT_TRUE(becomes(u"single", SERVICE_RUNNING));
        EXPECT_EQ(logged().size(), round);
        EXPECT_TRUE(stops(u"single"));
    }
}

TEST_F(service, dependencies_come_first) {
    ASSERT_TRUE(install_steps(u"top", "log READY=1", u"middle\0BASE\0"));
    ASSERT_TRUE(install_steps(u"middle", "log READY=1", u"base\0"));
    EXPECT_EQ(start_code(u"top"), 1075u) << "a missing one of a missing one";
    ASSERT_TRUE(install_steps(u"base", "exit=1"));
    EXPECT_EQ(start_code(u"top"), 1068u);
    ASSERT_TRUE(ZU_NT_service_uninstall(nullptr, u"base"));
    ASSERT_TRUE(install_steps(u"base", "log 300 READY=1"));
    EXPECT_TRUE(starts(u"top"));
    EXPECT_TRUE(state(u"base") == SERVICE_RUNNING && state(u"middle") == SERVICE_RUNNING);
    EXPECT_EQ(control_code(u"base", SERVICE_CONTROL_STOP), 1051u) << "others need it";
    EXPECT_TRUE(stops(u"top") && stops(u"middle") && stops(u"base"));

    EXPECT_EQ(code_of(install(u"self", u"/bin/true", u"Self\0")), 1059u);
    ASSERT_TRUE(install(u"early", u"/bin/true", u"late\0"));
    EXPECT_EQ(code_of(install(u"late", u"/bin/true", u"top\0early\0")), 1059u);
}

TEST_F(service, names_rights_and_arguments) {
    ASSERT_TRUE(install(u"taken", u"/bin/true", nullptr, SERVICE_DISABLED));
    EXPECT_EQ(start_code(u"taken"), 1058u);
    const std::u16string longest(256, u'é'), too_long(257, u'x');
    const struct {
        const char16_t *name, *display;
        uint32_t type, start;
        const char16_t* command;
        uint32_t code;
    } rows[] = {{longest.c_str(), u"", 0x110, 2, u"x", 0},
                {u"..", u"%25 \xD800 d", 1, 0, u"x", 0}, // a driver, under an odd name
                {u"TAKEN", nullptr, 0x10, 3, u"x", 1073},
                {u"other", u"Taken", 0x10, 3, u"x", 1078},
                {u"", nullptr, 0x10, 3, u"x", 123},
                {u"a/b", nullptr, 0x10, 3, u"x", 123},
                {too_long.c_str(), nullptr, 0x10, 3, u"x", 123},
                {u"n", too_long.c_str(), 0x10, 3, u"x", 123},
                {u"n", nullptr, 0x30, 3, u"x", 87},
                {u"n", nullptr, 0x10, 1, u"x", 87},
                {u"n", nullptr, 0x10, 3, nullptr, 87}};
    for (const auto& row : rows) {
        const handle made{platform::CreateServiceW(manager, row.name, row.display, SERVICE_ALL_ACCESS,
                                                   row.type, row.start, 1u, row.command, nullptr, nullptr,
                                                   nullptr, nullptr, nullptr)};
        EXPECT_EQ(code_of(made), row.code) << &row - rows;
        EXPECT_TRUE(!made || platform::DeleteService(made));
    }

    SERVICE_STATUS now;
    const handle looked_at = open(u"taken", SERVICE_QUERY_STATUS);
    EXPECT_EQ(code_of(platform::DeleteService(looked_at)), 5u);
    EXPECT_EQ(code_of(platform::StartServiceW(looked_at, 0, nullptr)), 5u);
    EXPECT_EQ(code_of(platform::ControlService(looked_at, SERVICE_CONTROL_STOP, &now)), 5u);
    EXPECT_EQ(code_of(platform::QueryServiceStatus(open(u"taken", SERVICE_START), &now)), 5u);
    EXPECT_EQ(control_code(u"taken", 77), 87u);
    EXPECT_EQ(control_code(u"taken", SERVICE_CONTROL_INTERROGATE), 1062u);
    EXPECT_EQ(code_of(platform::QueryServiceStatus(manager, &now)), 6u);

    ZU_wchar own[65];
    ASSERT_EQ(ZU_gethostname(own, 65), 1);
    EXPECT_TRUE(ZU_NT_service_exist((u"\\\\" + std::u16string(own)).c_str(), u"taken"));
    EXPECT_EQ(code_of(ZU_NT_service_exist(u"elsewhere.invalid", u"taken")), 1722u);
    EXPECT_EQ(code_of(platform::OpenSCManagerW(nullptr, u"other", 1)), 1065u);

    const int lock = ::open((services_ + "/.lock").c_str(), O_RDWR);
    ASSERT_EQ(flock(lock, LOCK_EX), 0);
    EXPECT_EQ(code_of(open(u"free", 4)), 1060u);
    EXPECT_EQ(code_of(install(u"locked", u"/bin/true")), 1055u);
    ::close(lock);
}

TEST_F(service, deleted_once_it_has_stopped_and_nobody_has_it_open) {
    ASSERT_TRUE(install_steps(u"going", "log READY=1"));
    ASSERT_TRUE(starts(u"going"));
    handle first = open(u"going"), second = open(u"going");
    EXPECT_TRUE(platform::DeleteService(first));
    EXPECT_EQ(code_of(platform::DeleteService(second)), 1072u);
    first.close();
    EXPECT_EQ(state(u"going"), SERVICE_RUNNING + 0u);
    EXPECT_EQ(code_of(install(u"going", u"/bin/true")), 1072u);
    EXPECT_TRUE(stops(u"going"));
    EXPECT_EQ(start_code(u"going"), 1072u);
    EXPECT_TRUE(ZU_NT_service_exist(nullptr, u"going")) << "somebody has it open";
    second.close();
    EXPECT_EQ(left_behind(), "");
    EXPECT_FALSE(ZU_NT_service_exist(nullptr, u"going"));

    ASSERT_TRUE(install_steps(u"going", "log READY=1"));
    ASSERT_TRUE(starts(u"going"));
    EXPECT_TRUE(platform::DeleteService(open(u"going")));
    kill(logged().back(), SIGTERM);
    for (int i = 0; i < 1000 && !left_behind().empty(); ++i)
        ZU_sleep(5);
    EXPECT_EQ(left_behind(), "") << "the helper itself was the last";
}

// Whatever moment it is: the service is there as a whole, or it is not there.
TEST_F(service, installing_and_removing_can_be_cut_short) {
    for (useconds_t round = 0; round < 100; ++round) {
        const pid_t child = fork();
        while (child == 0) {
            ZU_NT_service_install(nullptr, u"cut", u"A display name", u"/bin/true -x", 0x10, 3, u"a\0b\0");
            ZU_NT_service_uninstall(nullptr, u"cut");
        }
        usleep(2000 + round * 37 % 1000);
        kill(child, SIGKILL);
        waitpid(child, nullptr, 0);
        if (code_of(ZU_NT_service_exist(nullptr, u"cut")) != 1060) {
            EXPECT_EQ(state(u"cut"), SERVICE_STOPPED + 0u);
            EXPECT_TRUE(ZU_NT_service_uninstall(nullptr, u"cut") || GetLastError() == 1072);
        }
    }
    EXPECT_TRUE(install(u"cut", u"/bin/true"));
}

TEST_F(service, ordinary_users_look_and_do_not_touch) {
    if (!is_root())
        GTEST_SKIP() << "an ordinary user cannot become another one";
    ASSERT_TRUE(install_steps(u"system", "log READY=1"));
    ASSERT_EQ(chmod(std::getenv("ZU_HOST"), 0755), 0);
    ASSERT_TRUE(starts(u"system"));
    const outcome user = run_as_ordinary_user([&] {
        const handle users{platform::OpenSCManagerW(u"", u"SERVICESACTIVE", SC_MANAGER_CONNECT)};
        printf("state %u, stop %u, open %u, install %u", state(u"system"), code_of(stops(u"system")),
               code_of(platform::OpenServiceW(users, u"system", SERVICE_STOP)),
               code_of(install(u"mine", u"/bin/true")));
    });
    EXPECT_EQ(user.output, "state 4, stop 5, open 5, install 5");

    // Locks that anybody can place on what anybody may read keep nothing from being started.
    EXPECT_TRUE(stops(u"system"));
    const int reader = ::open((services_ + "/system/status").c_str(), O_RDONLY);
    struct flock lock = {};
    lock.l_type = F_RDLCK;
    EXPECT_EQ(fcntl(reader, F_OFD_SETLK, &lock), 0);
    EXPECT_TRUE(starts(u"system"));
    ::close(reader);
}

TEST(command_line, words_quotes_and_backslashes) {
    // clang-format off
    const std::pair<std::u16string, std::u16string> rows[] = {
        {u"/bin/a", u"/bin/a|"}, {u"  \"C:\\my dir\\a.exe\"  -x  y ", u"C:\\my dir\\a.exe|-x|y|"},
        {u"a \"b c\"d e\"\"f", u"a|b cd|ef|"}, {u"a \\\\ \\\"b \\\\\"c d\"", u"a|\\\\|\"b|\\c d|"},
        {u"a \"b\"\"c\" \"\"", u"a|b\"c||"}, {u"\"open", u"open|"}, {u"", u"|"}};
    // clang-format on
    for (const auto& [text, expected] : rows) {
        const platform::command_line line(text);
        std::u16string words = line.program + u'|';
        for (const std::u16string& word : line.arguments)
            words += word + u'|';
        EXPECT_EQ(words, expected);
    }
}

} // namespace
