// Services: real processes under the helper, and what becomes of them when either is killed.
#include <dirent.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "platform/command_line.h"
#include "platform/platform.h"
#include "support/files.h"
#include "support/threads.h"
#include "zu/zu.h"

namespace {

// ---- The services: this program itself, started with --service LOG STEP... --------------------------------------
//
// A step is a report to send (READY=1), a number of milliseconds to sleep, `exit=N`, `log`, which adds the process's
// number to the log, `child`, which leaves a process behind that hears no SIGTERM, or `wait`, for ever.

void report(const char* text) {
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, std::getenv("NOTIFY_SOCKET"), sizeof address.sun_path - 1);
    const int sender = socket(AF_UNIX, SOCK_DGRAM, 0);
    sendto(sender, text, std::strlen(text), 0, reinterpret_cast<sockaddr*>(&address), sizeof address);
    close(sender);
}

void log_process(const char* log) {
    std::ofstream(log, std::ios::app) << getpid() << '\n';
}

void take_step(const char* log, const char* step) {
    if (std::strcmp(step, "log") == 0) {
        log_process(log);
    } else if (std::strcmp(step, "child") == 0) {
        if (fork() == 0) {
            setsid();
            signal(SIGTERM, SIG_IGN);
            log_process(log);
            pause();
        }
    } else if (std::strcmp(step, "wait") == 0) {
        pause();
    } else if (std::strncmp(step, "exit=", 5) == 0) {
        _exit(std::atoi(step + 5));
    } else if (step[0] >= '0' && step[0] <= '9') {
        usleep(static_cast<useconds_t>(std::atoi(step)) * 1000);
    } else {
        report(step);
    }
}

const char* stop_log;
void stop_slowly(int) {
    for (const char* step : {"STOPPING=1\nEXTEND_TIMEOUT_USEC=1000000", "700", "EXTEND_TIMEOUT_USEC=1000000",
                             "700", "EXTEND_TIMEOUT_USEC=1000000", "700", "exit=0"})
        take_step(stop_log, step);
}

__attribute__((constructor)) void be_a_service(int count, char** arguments) {
    if (count < 3 || std::strcmp(arguments[1], "--service") != 0)
        return;
    stop_log = arguments[2];
    for (int i = 3; i < count; ++i) {
        if (std::strcmp(arguments[i], "slow-stop") == 0)
            signal(SIGTERM, stop_slowly);
        else
            take_step(arguments[2], arguments[i]);
    }
    _exit(0);
}

// ---- What the tests share -------------------------------------------------------------------------------------

using platform::SERVICE_STATUS;

struct handle {
    explicit handle(platform::SC_HANDLE opened) : value(opened) {}
    ~handle() { close(); }
    void close() {
        EXPECT_TRUE(!value || platform::CloseServiceHandle(value));
        value = nullptr;
    }
    operator platform::SC_HANDLE() const { return value; }
    platform::SC_HANDLE value;
};

class service : public testing::Test {
protected:
    service() : manager(platform::OpenSCManagerW(nullptr, nullptr, SC_MANAGER_ALL_ACCESS)) {
        setenv("ZU_HELPER", ZU_HELPER_PROGRAM, 1);
    }

    ~service() override {
        for (const std::u16string& name : installed_) {
            ZU_NT_service_uninstall(nullptr, name.c_str());
            for (pid_t process : logged(name))
                kill(process, SIGKILL);
        }
        for (int i = 0; i < 500 && !left_behind().empty(); ++i) {
            platform::OpenServiceW(manager, installed_[0].c_str(), SERVICE_QUERY_STATUS);
            ZU_sleep(10);
        }
        EXPECT_EQ(left_behind(), "");
    }

    std::string log_of(const std::u16string& name) const {
        return place_.host_path(zu_test::narrow(name) + ".log");
    }

    std::vector<pid_t> logged(const std::u16string& name) const {
        std::istringstream text(place_.read(zu_test::narrow(name) + ".log"));
        return {std::istream_iterator<pid_t>(text), {}};
    }

    std::u16string steps(const std::u16string& name, const std::string& what) const {
        char self[4096];
        const ssize_t size = readlink("/proc/self/exe", self, sizeof self);
        return zu_test::wide("\"" + std::string(self, static_cast<size_t>(size)) + "\" --service "
                             + log_of(name) + ' ' + what);
    }

    bool install(const std::u16string& name, const std::u16string& command,
                 const char16_t* dependencies = nullptr, uint32_t start_type = SERVICE_DEMAND_START) {
        installed_.push_back(name);
        return ZU_NT_service_install(nullptr, name.c_str(), nullptr, command.c_str(),
                                     SERVICE_WIN32_OWN_PROCESS, start_type, dependencies);
    }

    handle open(const std::u16string& name, uint32_t access = SERVICE_ALL_ACCESS) const {
        return handle(platform::OpenServiceW(manager, name.c_str(), access));
    }

    // 0, or the code of the failure.
    uint32_t start_code(const std::u16string& name) const {
        return platform::StartServiceW(open(name), 0, nullptr) ? 0 : GetLastError();
    }
    uint32_t control_code(const std::u16string& name, uint32_t control,
                          SERVICE_STATUS* status = nullptr) const {
        SERVICE_STATUS unused;
        return platform::ControlService(open(name), control, status ? status : &unused) ? 0 : GetLastError();
    }
    SERVICE_STATUS status(const std::u16string& name) const {
        SERVICE_STATUS found = {};
        EXPECT_TRUE(platform::QueryServiceStatus(open(name, SERVICE_QUERY_STATUS), &found));
        return found;
    }
    static uint32_t state(const std::u16string& name) {
        return ZU_NT_service_get_state(nullptr, name.c_str());
    }

    bool becomes(const std::u16string& name, uint32_t wanted) const {
        for (int i = 0; i < 1000 && state(name) != wanted; ++i)
            ZU_sleep(5);
        return state(name) == wanted;
    }

    bool starts(const std::u16string& name) const { return ZU_NT_service_start(nullptr, name.c_str()); }

    // The helper of a service is its program's parent.
    static pid_t parent_of(pid_t process) {
        std::ifstream text("/proc/" + std::to_string(process) + "/stat");
        std::string skipped;
        pid_t parent = 0;
        text >> skipped >> skipped >> skipped >> parent;
        return parent;
    }

    std::string left_behind() const {
        std::string names;
        DIR* const directory = opendir((std::getenv("ZU_HOST") + std::string("/services")).c_str());
        while (const dirent* entry = directory ? readdir(directory) : nullptr) {
            if (entry->d_name[0] != '.' || entry->d_name == std::string_view(".new"))
                names += entry->d_name;
        }
        if (directory)
            closedir(directory);
        return names;
    }

    zu_test::file_place place_;
    handle manager;
    std::vector<std::u16string> installed_;
};

const uint32_t timed_out = ERROR_SERVICE_REQUEST_TIMEOUT;

// ---- The tests ------------------------------------------------------------------------------------------------

TEST_F(service, whole_life_of_one_that_says_nothing) {
    EXPECT_EQ(state(u"Quiet"), 0u);
    EXPECT_EQ(GetLastError(), static_cast<uint32_t>(ERROR_SERVICE_DOES_NOT_EXIST));
    ASSERT_TRUE(install(u"Quiet", u"/bin/sh -c \"while :; do sleep 1; done\""));
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

    EXPECT_EQ(control_code(u"Quiet", SERVICE_CONTROL_PAUSE), 0u);
    EXPECT_TRUE(becomes(u"Quiet", SERVICE_PAUSED));
    EXPECT_EQ(control_code(u"Quiet", SERVICE_CONTROL_CONTINUE), 0u);
    EXPECT_TRUE(becomes(u"Quiet", SERVICE_RUNNING));
    EXPECT_EQ(control_code(u"Quiet", SERVICE_CONTROL_PAUSE), 0u);
    EXPECT_TRUE(becomes(u"Quiet", SERVICE_PAUSED)) << "and a paused one can be stopped:";
    EXPECT_TRUE(ZU_NT_service_stop(nullptr, u"quiet"));
    EXPECT_EQ(control_code(u"Quiet", SERVICE_CONTROL_STOP, &now), 1062u);
    EXPECT_TRUE(now.dwCurrentState == SERVICE_STOPPED && now.dwWin32ExitCode == 0);
    EXPECT_TRUE(ZU_NT_service_stop(nullptr, u"Quiet"));
    EXPECT_TRUE(ZU_NT_service_uninstall(nullptr, u"Quiet"));
    EXPECT_FALSE(ZU_NT_service_exist(nullptr, u"Quiet"));
}

TEST_F(service, programs_that_cannot_run) {
    place_.write("plain", "#!/bin/sh\n");
    place_.write("text", "no program\n");
    chmod(place_.host_path("text").c_str(), 0755);
    const struct {
        std::u16string command;
        uint32_t code;
    } rows[] = {{place_.drive_path(u"missing.exe -x"), 2},
                {zu_test::wide(place_.host_path("no/such/folder")), 3},
                {place_.drive_path(u"plain"), 5},
                {place_.drive_path(u"TEXT"), 193}};
    for (const auto& row : rows) {
        ASSERT_TRUE(install(u"broken", row.command));
        EXPECT_EQ(start_code(u"broken"), row.code);
        EXPECT_EQ(status(u"broken").dwWin32ExitCode, row.code);
        EXPECT_FALSE(starts(u"broken"));
        EXPECT_EQ(GetLastError(), timed_out);
        EXPECT_EQ(state(u"broken"), SERVICE_STOPPED + 0u);
        ASSERT_TRUE(ZU_NT_service_uninstall(nullptr, u"broken"));
    }
}

TEST_F(service, those_that_end_by_themselves) {
    ASSERT_TRUE(install(u"brief", steps(u"brief", "exit=7")));
    EXPECT_FALSE(starts(u"brief"));
    EXPECT_EQ(GetLastError(), timed_out);
    EXPECT_TRUE(becomes(u"brief", SERVICE_STOPPED));
    EXPECT_EQ(status(u"brief").dwWin32ExitCode, 1066u);
    EXPECT_EQ(status(u"brief").dwServiceSpecificExitCode, 7u);

    // Its child ignores the request to end, and is killed: only then is the service stopped.
    ASSERT_TRUE(install(u"parent", steps(u"parent", "child READY=1 log 300 exit=0")));
    ASSERT_EQ(start_code(u"parent"), 0u);
    EXPECT_TRUE(becomes(u"parent", SERVICE_STOP_PENDING));
    ASSERT_TRUE(becomes(u"parent", SERVICE_STOPPED) || becomes(u"parent", SERVICE_STOPPED));
    EXPECT_EQ(status(u"parent").dwWin32ExitCode, 0u);
    EXPECT_EQ(logged(u"parent").size(), 2u);
    for (pid_t process : logged(u"parent"))
        EXPECT_EQ(kill(process, 0), -1);
}

TEST_F(service, reports_decide_from_the_first_one_on) {
    ASSERT_TRUE(install(u"never", steps(u"never", "log STATUS=working wait")));
    ASSERT_TRUE(install(u"stalls",
                        steps(u"stalls", "log EXTEND_TIMEOUT_USEC=500000 600 EXTEND_TIMEOUT_USEC=500000 600 "
                                         "EXTEND_TIMEOUT_USEC=500000 600 EXTEND_TIMEOUT_USEC=500000 wait")));
    ASSERT_TRUE(install(
        u"slow", steps(u"slow", "log EXTEND_TIMEOUT_USEC=800000 700 STATUS=1 700 STATUS=2 700 STATUS=3 "
                                "700 READY=1 slow-stop wait")));
    zu_test::crew waiting;
    for (const char16_t* name : {u"never", u"stalls"}) {
        waiting.add([this, name] {
            EXPECT_FALSE(starts(name));
            EXPECT_EQ(GetLastError(), timed_out);
            EXPECT_EQ(state(name), SERVICE_START_PENDING + 0u);
        });
    }
    waiting.add([this] {
        EXPECT_TRUE(starts(u"slow")) << "it asked for less than a second each time, and took three";
        EXPECT_EQ(status(u"slow").dwCheckPoint, 0u);
        EXPECT_TRUE(ZU_NT_service_stop(nullptr, u"slow")) << "two seconds, reported one after another";
        EXPECT_EQ(start_code(u"slow"), 0u);
        ZU_sleep(600);
        EXPECT_EQ(state(u"slow"), SERVICE_START_PENDING + 0u)
            << "it has reported before: silence is not readiness";
    });
    waiting.join();
    EXPECT_EQ(status(u"never").dwCheckPoint, 1u);
    EXPECT_EQ(status(u"stalls").dwCheckPoint, 4u);
    EXPECT_EQ(status(u"stalls").dwWaitHint, 500u);

    // Somebody else's report does not count.
    const std::string environment = "/proc/" + std::to_string(logged(u"never").at(0)) + "/environ";
    std::stringstream text;
    text << std::ifstream(environment).rdbuf();
    const std::string all = text.str();
    setenv("NOTIFY_SOCKET", all.c_str() + all.find("NOTIFY_SOCKET=") + std::strlen("NOTIFY_SOCKET="), 1);
    report("READY=1");
    ZU_sleep(50);
    EXPECT_EQ(state(u"never"), SERVICE_START_PENDING + 0u);
}

TEST_F(service, killed_from_outside) {
    ASSERT_TRUE(install(u"victim", steps(u"victim", "child log READY=1 wait")));
    for (const char* victim : {"program", "helper", "both", "again"}) {
        SCOPED_TRACE(victim);
        ASSERT_TRUE(starts(u"victim"));
        ASSERT_EQ(state(u"victim"), SERVICE_RUNNING + 0u);
        for (int i = 0; i < 500 && logged(u"victim").size() % 2 != 0; ++i)
            ZU_sleep(5);
        const std::vector<pid_t> processes = logged(u"victim");
        ASSERT_GE(processes.size(), 2u);
        // The program, not its child, has the helper as its parent.
        const pid_t last[] = {processes[processes.size() - 2], processes.back()};
        const pid_t program = parent_of(last[0]) == last[1] ? last[1] : last[0];
        const pid_t helper = parent_of(program);
        ASSERT_GT(helper, 1);
        if (*victim == 'p' || *victim == 'b')
            kill(program, SIGKILL);
        if (*victim == 'h' || *victim == 'b' || *victim == 'a')
            kill(helper, SIGKILL);
        if (*victim == 'p') {
            ASSERT_TRUE(becomes(u"victim", SERVICE_STOPPED) || becomes(u"victim", SERVICE_STOPPED));
        } else {
            EXPECT_TRUE(becomes(u"victim", SERVICE_STOP_PENDING)) << "the child holds on";
            EXPECT_TRUE(*victim != 'h' || ZU_NT_service_stop(nullptr, u"victim"));
        }
        const SERVICE_STATUS now = status(u"victim");
        EXPECT_TRUE(now.dwCurrentState != SERVICE_STOPPED || now.dwWin32ExitCode == 1067);
    }
    EXPECT_TRUE(starts(u"victim"));
}

TEST_F(service, of_starts_at_the_same_time_one_succeeds) {
    ASSERT_TRUE(install(u"single", steps(u"single", "log READY=1 wait")));
    for (int round = 1; round <= 5; ++round) {
        std::atomic<int> started{0}, refused{0};
        zu_test::crew starters;
        for (int i = 0; i < 8; ++i) {
            starters.add([&] {
                const uint32_t code = start_code(u"single");
                started += code == 0;
                refused += code == 1056;
            });
        }
        starters.join();
        EXPECT_EQ(started, 1);
        EXPECT_EQ(refused, 7);
        EXPECT_TRUE(becomes(u"single", SERVICE_RUNNING));
        EXPECT_EQ(logged(u"single").size(), static_cast<size_t>(round));
        EXPECT_TRUE(ZU_NT_service_stop(nullptr, u"single"));
    }
}

TEST_F(service, dependencies_come_first) {
    ASSERT_TRUE(install(u"top", steps(u"base", "log READY=1 wait"), u"middle\0BASE\0"));
    EXPECT_EQ(start_code(u"top"), 1075u);
    ASSERT_TRUE(install(u"middle", steps(u"base", "log READY=1 wait"), u"base\0"));
    EXPECT_EQ(start_code(u"top"), 1075u) << "a missing one of a missing one";
    ASSERT_TRUE(install(u"base", steps(u"base", "exit=1")));
    EXPECT_EQ(start_code(u"top"), 1068u);
    ASSERT_TRUE(ZU_NT_service_uninstall(nullptr, u"base"));
    ASSERT_TRUE(install(u"base", steps(u"base", "log 300 READY=1 wait")));
    EXPECT_TRUE(starts(u"top"));
    const std::vector<pid_t> order = logged(u"base");
    ASSERT_EQ(order.size(), 3u);
    EXPECT_TRUE(state(u"base") == SERVICE_RUNNING && state(u"middle") == SERVICE_RUNNING);
    EXPECT_EQ(control_code(u"base", SERVICE_CONTROL_STOP), 1051u) << "others need it";
    EXPECT_TRUE(ZU_NT_service_stop(nullptr, u"top"));
    EXPECT_TRUE(ZU_NT_service_stop(nullptr, u"middle"));
    EXPECT_TRUE(ZU_NT_service_stop(nullptr, u"base"));

    EXPECT_FALSE(install(u"self", u"/bin/true", u"Self\0"));
    EXPECT_EQ(GetLastError(), 1059u);
    ASSERT_TRUE(install(u"early", u"/bin/true", u"late\0"));
    EXPECT_FALSE(install(u"late", u"/bin/true", u"top\0early\0"));
    EXPECT_EQ(GetLastError(), 1059u);
}

TEST_F(service, names_rights_and_arguments) {
    ASSERT_TRUE(install(u"taken", u"/bin/true", nullptr, SERVICE_DISABLED));
    EXPECT_EQ(start_code(u"taken"), 1058u);
    const auto create = [&](const char16_t* name, const char16_t* display, uint32_t type, uint32_t start,
                            const char16_t* command, uint32_t error = 1, platform::SC_HANDLE in = nullptr) {
        handle made(platform::CreateServiceW(in ? in : manager.value, name, display, SERVICE_ALL_ACCESS, type,
                                             start, error, command, nullptr, nullptr, nullptr, nullptr,
                                             nullptr));
        return made.value ? platform::DeleteService(made), 0 : GetLastError();
    };
    const handle reader(platform::OpenSCManagerW(u"", u"SERVICESACTIVE", SC_MANAGER_CONNECT));
    const std::u16string longest(256, u'é'), too_long(257, u'x');
    EXPECT_EQ(create(u"TAKEN", nullptr, 0x10, 3, u"x"), 1073u);
    EXPECT_EQ(create(u"other", u"Taken", 0x10, 3, u"x"), 1078u);
    EXPECT_EQ(create(longest.c_str(), u"", 0x110, 2, u"x"), 0u);
    EXPECT_EQ(create(u"..", u"%25 \xD800 d", 1, 0, u"x"), 0u) << "a driver, under an odd name";
    for (const char16_t* name : {u"", u"a/b", u"a\\b", too_long.c_str()})
        EXPECT_EQ(create(name, nullptr, 0x10, 3, u"x"), 123u);
    EXPECT_EQ(create(u"n", too_long.c_str(), 0x10, 3, u"x"), 123u);
    for (uint32_t type : {0u, 0x30u, 4u})
        EXPECT_EQ(create(u"n", nullptr, type, 3, u"x"), 87u) << type;
    for (uint32_t start : {0u, 1u, 5u})
        EXPECT_EQ(create(u"n", nullptr, 0x10, start, u"x"), 87u) << start;
    EXPECT_EQ(create(u"n", nullptr, 0x10, 3, u"x", 4), 87u);
    EXPECT_EQ(create(u"n", nullptr, 0x10, 3, u""), 87u);
    EXPECT_EQ(create(u"n", nullptr, 0x10, 3, nullptr), 87u);
    EXPECT_EQ(create(u"n", nullptr, 0x10, 3, u"x", 1, reader), 5u);

    SERVICE_STATUS now;
    const auto code_of = [](bool done) { return done ? 0 : GetLastError(); };
    const handle looked_at = open(u"taken", SERVICE_QUERY_STATUS);
    EXPECT_EQ(code_of(platform::DeleteService(looked_at)), 5u);
    EXPECT_EQ(code_of(platform::StartServiceW(looked_at, 0, nullptr)), 5u);
    EXPECT_EQ(code_of(platform::ControlService(looked_at, SERVICE_CONTROL_STOP, &now)), 5u);
    EXPECT_EQ(code_of(platform::QueryServiceStatus(open(u"taken", SERVICE_START), &now)), 5u);
    EXPECT_EQ(control_code(u"taken", 77), 87u);
    EXPECT_EQ(control_code(u"taken", SERVICE_CONTROL_INTERROGATE), 1062u);
    EXPECT_EQ(open(u"", 4).value, nullptr);
    EXPECT_EQ(GetLastError(), 123u);
    for (platform::SC_HANDLE none : {platform::SC_HANDLE(nullptr), platform::SC_HANDLE(manager)}) {
        EXPECT_FALSE(platform::QueryServiceStatus(none, &now));
        EXPECT_EQ(GetLastError(), 6u);
    }

    platform::WCHAR own[256];
    platform::DWORD size = 256;
    ASSERT_TRUE(platform::GetComputerNameW(own, &size));
    EXPECT_TRUE(ZU_NT_service_exist((u"\\\\" + std::u16string(own)).c_str(), u"taken"));
    EXPECT_FALSE(ZU_NT_service_exist(u"elsewhere.invalid", u"taken"));
    EXPECT_EQ(GetLastError(), 1722u);
    EXPECT_EQ(platform::OpenSCManagerW(nullptr, u"other", 1), nullptr);
    EXPECT_EQ(GetLastError(), 1065u);

    const std::string lock_path = std::getenv("ZU_HOST") + std::string("/services/.lock");
    const int lock = ::open(lock_path.c_str(), O_RDWR);
    ASSERT_EQ(flock(lock, LOCK_EX), 0);
    ASSERT_EQ(platform::OpenServiceW(manager, u"free", 4), nullptr);
    EXPECT_FALSE(install(u"locked", u"/bin/true"));
    EXPECT_EQ(GetLastError(), 1055u);
    ::close(lock);
}

TEST_F(service, deleted_once_it_has_stopped_and_nobody_has_it_open) {
    ASSERT_TRUE(install(u"going", steps(u"going", "log READY=1 wait")));
    ASSERT_TRUE(starts(u"going"));
    handle first = open(u"going"), second = open(u"going");
    EXPECT_TRUE(platform::DeleteService(first));
    for (platform::SC_HANDLE again : {first.value, second.value}) {
        EXPECT_FALSE(platform::DeleteService(again));
        EXPECT_EQ(GetLastError(), 1072u);
    }
    first.close();
    EXPECT_EQ(state(u"going"), SERVICE_RUNNING + 0u);
    EXPECT_FALSE(install(u"going", u"/bin/true"));
    EXPECT_EQ(GetLastError(), 1072u);
    EXPECT_TRUE(ZU_NT_service_stop(nullptr, u"going"));
    EXPECT_EQ(start_code(u"going"), 1072u);
    EXPECT_TRUE(ZU_NT_service_exist(nullptr, u"going")) << "somebody has it open";
    second.close();
    EXPECT_EQ(left_behind(), "");
    EXPECT_FALSE(ZU_NT_service_exist(nullptr, u"going"));

    ASSERT_TRUE(install(u"going", steps(u"going", "READY=1 wait")));
    ASSERT_TRUE(starts(u"going"));
    EXPECT_TRUE(platform::DeleteService(open(u"going")));
    EXPECT_EQ(control_code(u"going", SERVICE_CONTROL_STOP), 0u);
    for (int i = 0; i < 500 && !left_behind().empty(); ++i)
        ZU_sleep(5);
    EXPECT_EQ(left_behind(), "") << "the helper itself was the last";
}

// Whatever moment it is: the service is there as a whole, or it is not there.
TEST_F(service, installing_and_removing_can_be_cut_short) {
    for (useconds_t round = 0; round < 60; ++round) {
        int begun[2];
        ASSERT_EQ(pipe(begun), 0);
        const pid_t child = fork();
        while (child == 0) {
            ZU_NT_service_install(nullptr, u"cut", u"A display name", u"/bin/true -x", 0x10, 3, u"a\0b\0");
            ZU_NT_service_uninstall(nullptr, u"cut");
            if (write(begun[1], "", 1) != 1)
                _exit(1);
        }
        char byte;
        EXPECT_EQ(read(begun[0], &byte, 1), 1);
        usleep(round * 37 % 1000);
        kill(child, SIGKILL);
        waitpid(child, nullptr, 0);
        close(begun[0]);
        close(begun[1]);
        if (ZU_NT_service_exist(nullptr, u"cut")) {
            EXPECT_EQ(state(u"cut"), SERVICE_STOPPED + 0u);
            EXPECT_TRUE(ZU_NT_service_uninstall(nullptr, u"cut") || GetLastError() == 1072);
        } else {
            EXPECT_EQ(GetLastError(), static_cast<uint32_t>(ERROR_SERVICE_DOES_NOT_EXIST));
        }
    }
    EXPECT_TRUE(install(u"cut", u"/bin/true"));
}

TEST_F(service, ordinary_users_look_and_do_not_touch) {
    if (!zu_test::is_root())
        GTEST_SKIP() << "an ordinary user cannot become another one";
    ASSERT_TRUE(install(u"system", steps(u"system", "log READY=1 wait")));
    ASSERT_EQ(chmod(std::getenv("ZU_HOST"), 0755), 0);
    ASSERT_TRUE(starts(u"system"));
    const zu_test::outcome user = zu_test::run_as_ordinary_user([&] {
        const auto say = [](bool done) { printf("%d/%u ", done, done ? 0 : GetLastError()); };
        say(state(u"system") == SERVICE_RUNNING);
        say(ZU_NT_service_stop(nullptr, u"system"));
        say(platform::OpenServiceW(handle(platform::OpenSCManagerW(nullptr, nullptr, 1)), u"system",
                                   SERVICE_STOP));
        say(ZU_NT_service_install(nullptr, u"mine", nullptr, u"/bin/true", 0x10, 3, nullptr));
    });
    EXPECT_EQ(user.output, "1/0 0/5 0/5 0/5 ");

    // Locks that anybody can place on what anybody may read keep nothing from being started.
    EXPECT_TRUE(ZU_NT_service_stop(nullptr, u"system"));
    const std::string status_path = std::getenv("ZU_HOST") + std::string("/services/system/status");
    const int reader = ::open(status_path.c_str(), O_RDONLY);
    struct flock lock = {};
    lock.l_type = F_RDLCK;
    EXPECT_EQ(fcntl(reader, F_OFD_SETLK, &lock), 0);
    EXPECT_EQ(state(u"system"), SERVICE_STOPPED + 0u);
    EXPECT_TRUE(starts(u"system"));
    ::close(reader);
}

TEST(command_line, words_quotes_and_backslashes) {
    const struct {
        std::u16string text, words;
    } rows[] = {
        {u"/bin/a", u"/bin/a|"},
        {u"  \"C:\\my dir\\a.exe\"  -x  y ", u"C:\\my dir\\a.exe|-x|y|"},
        {u"a \"b c\"d e\"\"f", u"a|b cd|ef|"},
        {u"a \\\\ \\\"b \\\\\"c d\"", u"a|\\\\|\"b|\\c d|"},
        {u"a \"b\"\"c\" \"\"", u"a|b\"c||"},
        {u"\"open", u"open|"},
        {u"", u"|"},
    };
    for (const auto& row : rows) {
        const platform::command_line line(row.text);
        std::u16string words = line.program + u'|';
        for (const std::u16string& word : line.arguments)
            words += word + u'|';
        EXPECT_EQ(words, row.words);
    }
}

} // namespace
