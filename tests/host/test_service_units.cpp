// Services as units of systemd, which is booted for each test in a world of its own. About Linux: units of systemd
// stand for services.
#include "support/child.h"
#include "support/test.h"

namespace {

// Called again inside that world: FUNCTION NAME [COMMAND]. Prints the result, and after a failure the code.
const part caller("call", [](const words& arguments) {
    const std::string& what = arguments[0];
    const std::u16string name = wide(arguments[1]);
    const uint32_t result =
        what == "install" ? ZU_NT_service_install(nullptr, name.c_str(), nullptr, wide(arguments[2]).c_str(),
                                                  SERVICE_WIN32_OWN_PROCESS, SERVICE_AUTO_START, nullptr)
        : what == "uninstall" ? ZU_NT_service_uninstall(nullptr, name.c_str())
        : what == "start"     ? ZU_NT_service_start(nullptr, name.c_str())
        : what == "stop"      ? ZU_NT_service_stop(nullptr, name.c_str())
                              : ZU_NT_service_get_state(nullptr, name.c_str());
    std::printf(result != 0 ? "%u\n" : "%u, code %u\n", result, GetLastError());
    if (platform::SERVICE_STATUS now; what == "status") {
        const auto manager = platform::OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT);
        platform::QueryServiceStatus(platform::OpenServiceW(manager, name.c_str(), SERVICE_QUERY_STATUS),
                                     &now);
        std::printf("exit %u %u, takes %u, hint %u\n", now.dwWin32ExitCode, now.dwServiceSpecificExitCode,
                    now.dwControlsAccepted, now.dwWaitHint);
    }
    return 0;
});

// Units that others wrote, and drop-ins for ours: files of systemd's folder, and their lines.
constexpr std::pair<const char*, const char*> files[] = {
    {"Plain.service", "ExecStart=/bin/sleep 1000"},
    {"many@.service", "ExecStart=/bin/sleep 1000"},
    {"sluggish.service", "Type=notify\nNotifyAccess=all\nTimeoutStartSec=1min 20s 500ms\n"
                         "ExecStart=/bin/sh -c \"sleep 6; systemd-notify --ready; exec sleep 1000\""},
    {"fails.service", "Type=notify\nExecStart=/bin/sh -c \"exit 3\""},
    {"dies.service", "Type=notify\nExecStart=/bin/sh -c \"kill -9 $$$$\""},
    {"unready.service", "Type=notify\nTimeoutStartSec=1\nExecStart=/bin/sleep 1000"},
    {"absent.service", "Type=exec\nExecStart=/no/such/program"},
    {"masked.service", nullptr},
    {"zu@phoenix.service.d/own.conf", "Restart=always\nRestartSec=5"},
    {"zu@tardy.service.d/own.conf", "TimeoutStartSec=2"},
    {"zu@lesser.service.d/own.conf", "User=nobody"}};

class units : public testing::TestWithParam<const char*> {
protected:
    void SetUp() override {
        if (const outcome can = run_command(ZU_BOOT_SUPPORT "can_boot_systemd"); can.exit_code != 0)
            GTEST_SKIP() << can.output;
        place_.make_directory("world");
        ASSERT_EQ(mount("own", world_.c_str(), "tmpfs", 0, ""), 0);
        is_mounted_ = true;
        const std::string own = own_program().parent_path();
        const std::string folder = world_ + "/upper/usr/lib/systemd/", programs = world_ + "/upper/opt/zu";
        const outcome made = run_command(
            "mkdir -p " + folder + "system " + folder + "user " + programs + " && cp " ZU_HELPER_PROGRAM " "
            + own + "/test_service " + own + "/test_service_host " + own + "/test_service_units " + programs
            + " && cp " ZU_LIBRARY " " + world_ + "/upper/opt/libzu.so.1"
            + " && sed 's|@ZU_HELPER@|/opt/zu/zu-helper|; s|@ZU_WANTED_BY@|multi-user.target|' " ZU_UNIT_TEMPLATE
            + " | tee " + folder + "user/zu@.service >" + folder + "system/zu@.service");
        ASSERT_EQ(made.exit_code, 0) << made.error_output;
        for (const auto& [name, lines] : files) {
            const std::filesystem::path path = folder + "system/" + name;
            std::filesystem::create_directories(path.parent_path());
            if (lines)
                std::ofstream(path) << "[Service]\n" << lines << '\n';
            else
                std::filesystem::create_symlink("/dev/null", path);
        }
        boot();
    }

    void TearDown() override {
        end();
        if (is_mounted_)
            umount2(world_.c_str(), MNT_DETACH);
    }

    void boot() {
        starter_ = fork();
        if (starter_ == 0) {
            const int log = open((world_ + "/log").c_str(), O_CREAT | O_WRONLY | O_TRUNC, 0600);
            dup2(log, 1);
            dup2(log, 2);
            execl(ZU_BOOT_SUPPORT "boot_systemd", "boot_systemd", world_.c_str(), nullptr);
            _exit(127);
        }
        for (int i = 0; i < 200 && waitpid(starter_, nullptr, WNOHANG) == 0; ++i, ZU_sleep(50)) {
            const std::string state = inside("systemctl is-system-running 2>/dev/null");
            if (state == "running\n" || state == "degraded\n")
                return;
        }
        FAIL() << "systemd has not come up: " << place_.read("world/log");
    }

    void end() {
        if (starter_ <= 0)
            return;
        kill(starter_, SIGKILL); // and with it process 1 of its namespace, and so all of them
        waitpid(starter_, nullptr, 0);
        run_command("sleep 0.2; find /sys/fs/cgroup -path '*/zu-test-" + std::to_string(starter_)
                    + "*' -depth -type d -exec rmdir {} +");
        starter_ = 0;
    }

    // The output of a command in there.
    std::string inside(const std::string& command) const {
        const std::string first = "P=$(pgrep -P " + std::to_string(starter_) + ") && ";
        return run_command(
                   first
                   + "nsenter -t $P -m -p -n -C -u -i -r env -i PATH=/usr/sbin:/usr/bin:/bin sh -c 'cd / && "
                   + command + "' 2>/dev/null")
            .output;
    }
    std::string call(const std::string& words) const {
        return inside("/opt/zu/test_service_units --part call " + words);
    }

    // The status of a service, once it is the wanted one or ten seconds are over.
    std::string status(const std::string& name, const std::string& wanted) const {
        std::string found = call("status " + name);
        for (int i = 0; i < 100 && found != wanted; ++i, ZU_sleep(100))
            found = call("status " + name);
        return found;
    }

    file_place place_;
    const std::string world_ = place_.host_path("world");
    bool is_mounted_ = false;
    pid_t starter_ = 0;
};

// The rules of services, kept by the manager: those of both platforms, and those of the layer.
TEST_P(units, keep_the_rules_of_services) {
    const std::string program = GetParam(), report = inside("ZU_TEST_UNITS=1 " + program);
    const auto parts = 1 + std::count(program.begin(), program.end(), ':'); // of a filter: one for each test
    const std::string count = parts > 1 ? std::to_string(parts) + " test" : "";
    EXPECT_NE(report.find("[  PASSED  ] " + count), std::string::npos) << report;
    for (const char* wrong : {"[  FAILED  ]", "[  SKIPPED ]", " 0 tests"})
        EXPECT_EQ(report.find(wrong), std::string::npos) << report;
}
INSTANTIATE_TEST_SUITE_P(
    table, units,
    testing::Values("GTEST_TOTAL_SHARDS=2 GTEST_SHARD_INDEX=0 /opt/zu/test_service",
                    "GTEST_TOTAL_SHARDS=2 GTEST_SHARD_INDEX=1 /opt/zu/test_service",
                    "/opt/zu/test_service_host --gtest_filter=*life*:*cannot_run*:*end_by*",
                    "/opt/zu/test_service_host --gtest_filter=*helpers*:*deletion*:*callers_short*"));

using world = units;
TEST_F(world, automatic_service) {
    EXPECT_EQ(call("install Clock \"/bin/sleep 1000\""), "1\n");
    EXPECT_EQ(inside("systemctl is-enabled zu@clock"), "enabled\n");
    inside(
        "systemd-run --quiet --unit=starter sh -c \"/opt/zu/test_service_units --part call start Clock; sleep 1000\"");
    for (int i = 0; i < 1000 && call("state clock") != "4\n"; ++i) {}
    inside("systemctl stop starter");
    EXPECT_EQ(call("state clock"), "4\n") << "it does not belong to the control group of its starter";
    // A program that ignores SIGCHLD never learns what systemctl says about a unit that has not begun.
    EXPECT_EQ(call("install late \"/bin/sleep 1000\""), "1\n");
    inside("D=/run/systemd/system/zu@late.service.d; mkdir $D; echo \"[Service]\" >$D/slow.conf;"
           "echo ExecStartPre=/bin/sleep 2 >>$D/slow.conf; systemctl daemon-reload");
    EXPECT_EQ(inside("env --ignore-signal=CHLD /opt/zu/test_service_units --part call start late"), "1\n");
    end();
    boot();
    EXPECT_EQ(call("start clock"), "1\n");
    EXPECT_EQ(inside("systemctl is-active zu@clock"), "active\n");
    EXPECT_EQ(call("uninstall clock"), "1\n");
    EXPECT_NE(inside("systemctl is-enabled zu@clock"), "enabled\n");
}

TEST_F(world, units_that_others_wrote_and_those_of_an_ordinary_user) {
    const std::tuple<const char*, const char*, const char*> rows[] = {
        {"plain", "1\n", "4\nexit 0 0, takes 1, hint 0\n"},
        {"MANY@one", "1\n", "4\nexit 0 0, takes 1, hint 0\n"},
        {"sluggish", "1\n", "4\nexit 0 0, takes 1, hint 0\n"},
        {"fails", "0, code 1053\n", "1\nexit 1066 3, takes 0, hint 0\n"},
        {"dies", "0, code 1053\n", "1\nexit 1067 0, takes 0, hint 0\n"},
        {"unready", "0, code 1053\n", "1\nexit 1053 0, takes 0, hint 0\n"},
        {"absent", "0, code 1053\n", "1\nexit 2 0, takes 0, hint 0\n"},
        {"masked", "0, code 1053\n", "1\nexit 0 0, takes 0, hint 0\n"}};
    inside("mkdir -p /etc/systemd/system.control/plain.service"); // a directory is no unit
    for (const auto& [name, started, ended] : rows) {
        EXPECT_EQ(call(std::string("start ") + name), started) << name;
        EXPECT_EQ(status(name, ended), ended) << name;
    }
    EXPECT_EQ(call("stop sluggish"), "1\n");
    inside("systemctl start --no-block sluggish");
    EXPECT_EQ(call("status sluggish"), "2\nexit 0 0, takes 1, hint 80500\n");
    EXPECT_EQ(call("install plain /bin/true"), "0, code 1073\n");
    EXPECT_EQ(call("uninstall PLAIN"), "0, code 5\n");
    EXPECT_EQ(call("state plain"), "1\n") << "deleting begins with stopping";
    for (const char* none : {"zu@phoenix", "many@", "nothing"})
        EXPECT_EQ(call(std::string("state ") + none), "0, code 1060\n") << none;
    EXPECT_EQ(inside("as=\"setpriv --reuid nobody --clear-groups /opt/zu/test_service_units --part call\";"
                     "$as state many@one; $as start plain"),
              "4\n0, code 5\n");

    // With a manager of his own, who has been told the host directory.
    inside("useradd -m -u 12345 zoe; systemctl start user@12345");
    EXPECT_EQ(
        inside("cd /home/zoe; export HOME=$PWD ZU_HOST=$PWD/zu XDG_RUNTIME_DIR=/run/user/12345;"
               "as=\"setpriv --reuid 12345 --regid 12345 --clear-groups\"; $as mkdir -p zu/services;"
               "$as systemctl --user set-environment ZU_HOST=$ZU_HOST;"
               "echo systemd >zu/services/.manager; call=\"$as /opt/zu/test_service_units --part call\";"
               "$call install mine \"/bin/sleep 1000\"; $call start mine;"
               "$as systemctl --user is-active zu@mine; $call uninstall mine; ls zu/services"),
        "1\n1\nactive\n1\n");
}

// What an administrator's drop-ins do, and a manager or a helper that is gone.
TEST_F(world, restarts_time_outs_and_a_manager_that_is_gone) {
    EXPECT_EQ(call("install phoenix \"/bin/sleep 1000\""), "1\n");
    EXPECT_EQ(call("start phoenix"), "1\n");
    inside("kill -9 $(pgrep -P $(systemctl show -p MainPID --value zu@phoenix)); sleep 0.5");
    EXPECT_EQ(call("state phoenix"), "2\n") << "the manager will start it again";
    EXPECT_EQ(call("start phoenix"), "1\n");
    inside("kill -9 $(systemctl show -p MainPID --value zu@phoenix); sleep 0.5");
    EXPECT_EQ(call("stop phoenix"), "1\n");
    ZU_sleep(5500);
    EXPECT_EQ(call("status phoenix"), "1\nexit 1067 0, takes 0, hint 0\n");

    const std::string reporter = "/opt/zu/test_service_host --part service /tmp/log ";
    EXPECT_EQ(call("install tardy \"" + reporter + "EXTEND_TIMEOUT_USEC=500000\""), "1\n");
    EXPECT_EQ(call("start tardy"), "0, code 1053\n");
    const std::string late = "1\nexit 1053 0, takes 0, hint 0\n";
    EXPECT_EQ(status("tardy", late), late);

    EXPECT_EQ(call("install waiting \"" + reporter + "EXTEND_TIMEOUT_USEC=5000000 4000 READY=1\""), "1\n");
    std::string started;
    std::thread starter([&] { started = call("start waiting"); });
    for (int i = 0; i < 1000 && call("state waiting") != "2\n"; ++i) {}
    const pid_t manager = std::stoi(run_command("pgrep -P " + std::to_string(starter_)).output);
    kill(manager, SIGSTOP);
    starter.join();
    EXPECT_EQ(started, "1\n");
    EXPECT_EQ(call("state plain"), "0, code 1722\n") << "nobody can say";
    kill(manager, SIGCONT);
    EXPECT_EQ(call("stop waiting"), "1\n");

    // Under another user, whom the files belong that root makes for the start.
    EXPECT_EQ(call("install lesser \"/bin/sleep 1000\""), "1\n");
    inside("chown nobody /var/lib/zu/services/lesser; mv /opt/zu/zu-helper /opt/zu/hidden");
    EXPECT_EQ(call("start lesser"), "0, code 1053\n");
    EXPECT_EQ(call("status lesser"), "1\nexit 2 0, takes 0, hint 0\n");
    EXPECT_EQ(call("install moved /bin/true"), "1\n");
    EXPECT_EQ(inside("grep systemd /var/lib/zu/services/moved/record"), "") << "no unit without its helper";
    inside("mv /opt/zu/hidden /opt/zu/zu-helper");
    EXPECT_EQ(call("start lesser"), "1\n");
    EXPECT_EQ(call("stop lesser"), "1\n");

    inside("sed -i \"s/^start 2/start 4/\" /var/lib/zu/services/waiting/record; systemctl start zu@waiting");
    EXPECT_EQ(call("status waiting"), "1\nexit 1058 0, takes 0, hint 0\n")
        << "the helper refuses a disabled one";
    EXPECT_NE(inside("journalctl -t zu").find("service waiting has not started"), std::string::npos);
    EXPECT_EQ(inside("ls -d /run/zu"), "") << "nothing stays there";

    // Where the helper runs services, failed starts are told on the system log as well.
    inside(
        "mkdir -p /tmp/own/services; echo helper >/tmp/own/services/.manager; export ZU_HOST=/tmp/own;"
        "call=\"/opt/zu/test_service_units --part call\"; $call install broken /no/such/program; $call start broken;"
        "$call install brief \"/bin/sh -c \\\"exit 7\\\"\"; $call start brief; export ZU_HELPER=/no/helper; $call start brief");
    EXPECT_EQ(
        inside("journalctl -o cat -t zu | grep -E \"broken|brief|no service\""),
        "service broken has not started: finding its program: A directory on the path does not exist. (3)\n"
        "service brief has not started: its program ended with 7 before it was ready: "
        "The service ended with an error code of its own. (1066)\n"
        "cannot start /no/helper: No such file or directory; "
        "no service will start and every password will be refused\n"
        "service brief has not started: starting zu-helper: There is no file of that name. (2)\n");
}

} // namespace
