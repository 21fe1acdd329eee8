// taskd as a user meets it: what it says of a task file, what it runs, and how it ends. About Linux: a shell runs it,
// and signals end it.
#include "support/test.h"

namespace {

// The program under test lies beside the tests, in the same build.
const std::string program =
    std::filesystem::read_symlink("/proc/self/exe").parent_path() / "../examples/taskd";

class taskd : public testing::Test {
protected:
    void write(const std::string& text) { place_.write("file", text); }
    outcome run(const std::string& options) {
        return run_command("LC_ALL=C.UTF-8 TZ=UTC exec " + program + " " + options + " " + path_);
    }
    // A script in the place of the test, where $taskd is the program.
    outcome script(const std::string& text) {
        return run_command("export LC_ALL=C.UTF-8; cd " + place_.host_path() + "; taskd=" + program + "; "
                           + text);
    }
    const file_place place_{}; // has a registry and services of its own
    const std::string path_ = place_.host_path("file"), port_ = std::to_string(port_of_our_own());
};

TEST_F(taskd, bad_lines_and_options_and_next_firings) {
    const std::string start = " | 2024-01-01 00:00 | ";
    const std::string bad[][2] = {
        {"only | three | \x80\xff", "a task is: name | rule | start [to end] | exclusions | action text"},
        {"a | " + start + " | print x", "\"\" is no kind of rule"},
        {"a | daily 0" + start + " | print x", "\"daily 0\" never comes"},
        {"a | weekly 1 mon,fry" + start + " | print x", "\"fry\" is not a weekday: mon to sun, or 1 to 7"},
        {"a | daily 1 | soon | | print x", "\"soon\" is not a start: YEAR-MONTH-DAY HOUR:MINUTE[:SECOND]"},
        {"a | daily 1 | 2024-01-01 00:00 until 2025-01-01 | | print x",
         "\"2024-01-01 00:00 until 2025-01-01\" is not a start: YEAR-MONTH-DAY HOUR:MINUTE[:SECOND]"},
        {"a | daily 1" + start + "holidays 12-25,5 | print x", "\"5\" is not a holiday: MONTH-DAY"},
        {"a | daily 1" + start + " | sing x", "\"sing\" is no action"},
    };
    std::string text = "\xEF\xBB\xBF# the first line has a byte order mark\r\n", reports;
    for (int line = 2; const auto& [task, reason] : bad) {
        text += task + "\r\n";
        reports += path_ + ':' + std::to_string(line++) + ": " + reason + '\n';
    }
    write(text
          + "\n  good one | daily 1 | 2037-01-01 08:00 | | print a | b\n"
            "é | weekday-of-month 5 sat,7 | 2037-01-01 08:00:09 to 2037-02-28 08:00 | days 31 | print x\n"
            "c | weekly 2 mon,7 | 2037-01-01 08:00 | days 4 holidays 1-12 | print x\n"
            "d | interval 1:30:0 | 2037-01-01 23:00 | hours 23,24 | print x\n"
            "e | week-of-month 2 1 | 2006-01-01 08:00 to 2006-01-02 08:00 | | print x\n"
            "f | monthly 30 | 2037-01-01 08:00 | months 1,3,4,5,6 months 7,8,9,10,11,12 | print x\n#"
          + std::string(102400, '-') + "g | daily 1 | 2037-01-01 08:00 | | print x\n");
    const outcome result = run("--next");
    EXPECT_EQ(result.error_output, reports);
    EXPECT_EQ(result.output, "task      rule                      next firing\n"
                             "good one  daily 1                   2037-01-01 08:00:00\n"
                             "é         weekday-of-month 5 sat,7  never again\n"
                             "c         weekly 2 mon,7            2037-01-18 08:00:00\n"
                             "d         interval 1:30:0           2037-01-02 02:00:00\n"
                             "e         week-of-month 2 1         never again\n"
                             "f         monthly 30                not in sight\n");
    EXPECT_EQ(result.exit_code, 1);

    // It tells how it is used.
    EXPECT_NE(run("--help").output.find("weekday-of-month"), std::string::npos);
    // clang-format off
    const char* const wrong[] = {
        "--fro 3", "--for", "--for x", "-x", "a b", "''", "--single ''", "--port 65536", "--next --start", "--ask h:1",
        "--next --for 3", "--ask h:1 a b", "--ask h:1 --trace a", "a --ask h:1", "--name n a", "--install --uninstall",
        "--install --next", "--start a", "--stop --log l", "--state --name", "--ask h:1 --name n a"};
    // clang-format on
    for (const char* options : wrong) {
        const outcome refused = run_command(program + " " + options);
        EXPECT_EQ(refused.exit_code, 2) << options;
        EXPECT_EQ((refused.output + refused.error_output).rfind("usage: taskd ", 0), 0u) << options;
    }
}

TEST_F(taskd, a_whole_run_with_rude_clients) {
    std::string tasks = "job | daily 1 | 2037-01-01 00:00 | | print done\n";
    for (const char* action : {"print  Grüße | und mehr ", "probe nowhere", "digest d/new.tmp",
                               "clean d *.tmp 1d", "clean d * soon", "digest d/none"})
        tasks += std::string("tick | interval 0:0:1 | 2024-01-01 00:00 | | ") + action + '\n';
    place_.write("tasks.txt", tasks);
    // One client says nothing, one babbles without an end of line; neither holds up the others. The date in the future
    // does not fit into the library's 32 bits.
    const outcome result = script("port=" + port_ + R"(; ask() { $taskd --ask 127.0.0.1:$port "$1"; }
        mkdir d; for name in old.tmp older.TMP new.tmp old.txt future.tmp; do echo -n abc >d/$name; done
        touch -d '2 days ago' d/old*; touch -d @5000000000 d/future.tmp
        $taskd --for 60 --trace --log log --log-size 500 --log-keep 3 --port $port >out &
        until ask status; do sleep 0.1; done >/dev/null 2>&1
        (exec 3<>/dev/tcp/127.0.0.1/$port; sleep 5) 2>/dev/null &
        (head -c 100000 /dev/zero >/dev/tcp/127.0.0.1/$port) 2>/dev/null &
        until grep -q 'nothing deleted' out && [ -e log.2 ]; do sleep 0.1; done
        ask 'run job'; ask status; ask 'run nothing'; ask stop; wait %1; cat out log.errors; ls d log*)");
    for (const char* text :
         {"job runs\n", "job: ", "next 2037-01-01 00:00:00\n", "no task is called \"nothing\"\n",
          "stopping\n", "by request  job  done\n", "->>: carry_out(): tick\n", "  tick  Grüße | und mehr\n",
          "\"nowhere\" is not ADDRESS PORT MS", "900150983cd24fb0d6963f7d28e17f72, 3 bytes of 20",
          ": deleted old", "older.TMP", ": nothing deleted\n", "\"soon\" is not an age",
          "/none: There is no file", "log\nlog.1\nlog.2\nlog.errors\n\nd:\nfuture.tmp\nnew.tmp\nold.txt\n"})
        EXPECT_NE(result.output.find(text), std::string::npos)
            << text << result.output << result.error_output;
}

TEST_F(taskd, single_instance) {
    place_.write("tasks.txt", "");
    const std::string name = "taskd test " + std::to_string(getpid());
    const outcome result = script("name='" + name + R"('
        begin() { rm -f out; $taskd --single "$name" >out & until grep -qs 'tasks of ' out; do sleep 0.05; done; }
        again() { $taskd --single "$name" --for 0 >/dev/null; echo -n "$? "; }
        begin; again; kill $!; wait $!; echo -n "$? "; again
        begin; again; kill -9 $!; wait $!; again; again
        $taskd --single 'no\name' --for 0; echo $?)");
    EXPECT_EQ(result.output, "3 0 0 3 0 0 1\n") << result.error_output;
    EXPECT_EQ(result.error_output.find("another taskd runs as \"" + name + "\"\n"), 0u);
    EXPECT_FALSE(std::filesystem::exists("/dev/shm/zu.mutex." + name));
}

TEST_F(taskd, finds_its_file_in_the_registry) {
    place_.write("tasks.txt", "here | daily 1 | 2037-01-01 08:00 | | print a\n");
    place_.write("other.txt", "there | daily 1 | 2037-01-01 08:00 | | print a\n");
    const std::string path = std::getenv("ZU_HOST") + std::string("/registry.reg");
    for (const auto& [value, last_line] :
         {std::pair("dword:00000001", "here "),
          {"\"\"", "here "},
          {"\"T:\\\\other.txt\"", "there "},
          {"\"T:\\\\none.txt\"", "T:\\none.txt: There is no file of that name."}}) {
        std::ofstream(path) << "Windows Registry Editor Version 5.00\n\n"
                               "[HKEY_LOCAL_MACHINE\\Software\\zu\\taskd]\n\"TaskFile\"="
                            << value << '\n';
        EXPECT_EQ(script("$taskd --next 2>&1 | tail -n 1").output.rfind(last_line, 0), 0u) << value;
        EXPECT_EQ(script("$taskd --next tasks.txt | tail -n 1").output.rfind("here ", 0), 0u) << value;
    }
}

TEST_F(taskd, lives_as_a_service) {
    place_.make_directory("my tasks");
    place_.write("my tasks/tasks.txt", "a | interval 0:0:1 | 2024-01-01 00:00 | | print tick\nwrong\n");
    // Silent clients, one more than are served at once, keep it from ending for six seconds: it has to ask for them.
    const outcome result = script("port=" + port_ + R"(; cd 'my tasks'; exec 2>&1
        does() { $taskd --name mine "$@"; }
        does --state; does --start; does --uninstall
        does --install --log ../log --single "taskd $port" --port $port ../my\ tasks/tasks.txt
        does --install; does --state; does --start; does --start
        until grep -qs tick ../log; do sleep 0.1; done
        does --state; $taskd --single "taskd $port" 2>/dev/null; echo "status $?"
        for i in 1 2 3 4 5; do exec {silent}<>/dev/tcp/127.0.0.1/$port; done
        sleep 0.2; does --stop; does --state; does --stop
        cat ../log* | grep -o 'a task is:\|told, 0 warnings, 1 errors'; does --uninstall; ls -A $ZU_HOST/services)");
    const std::string missing = "mine: There is no installed service of that name.\n";
    EXPECT_EQ(result.output,
              missing + missing + missing
                  + "mine: installed\nmine: A service of that name exists already.\nmine: stopped\n"
                    "mine: running\nmine: running\nmine: running\nstatus 3\n"
                    "mine: stopped\nmine: stopped\nmine: stopped\n"
                    "told, 0 warnings, 1 errors\na task is:\nmine: uninstalled\n.lock\n");
}

} // namespace
