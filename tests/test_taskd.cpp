// taskd as a user meets it: what it says of a task file, what it runs, and how it ends.
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>

#include <gtest/gtest.h>

#include "support/process.h"

namespace {

// The program under test lies beside the tests, in the same build.
const std::string program =
    std::filesystem::read_symlink("/proc/self/exe").parent_path() / "../examples/taskd";

class taskd : public testing::Test {
protected:
    ~taskd() override {
        std::remove(path_.c_str());
        std::remove((path_ + ".out").c_str());
    }
    void write(const std::string& text) { std::ofstream(path_) << text; }
    zu_test::outcome run(const std::string& options) {
        return zu_test::run_command("TZ=UTC exec " + program + " " + options + " " + path_);
    }
    const std::string path_ = testing::TempDir() + "tasks-" + std::to_string(getpid()) + ".txt";
};

TEST_F(taskd, reports_what_it_cannot_understand_and_shows_what_comes) {
    const std::string start = " | 2024-01-01 00:00 | ";
    const std::string bad[][2] = {
        {"only | three | fields", "a task is: name | rule | start [to end] | exclusions | action text"},
        {"a | " + start + " | print x", "\"\" is no kind of rule"},
        {"a | daily 1 2" + start + " | print x", "\"daily 1 2\" is not daily N"},
        {"a | daily two" + start + " | print x", "\"two\" is not a number"},
        {"a | daily 0" + start + " | print x", "\"daily 0\" never comes"},
        {"a | interval 5" + start + " | print x", "\"5\" is not HOURS:MINUTES:SECONDS"},
        {"a | weekly 1 mon,fry" + start + " | print x", "\"fry\" is not a weekday: mon to sun, or 1 to 7"},
        {"a | monthly 32" + start + " | print x", "\"32\" is not a number from -31 to 31"},
        {"a | daily 1 | soon | | print x", "\"soon\" is not a start: YEAR-MONTH-DAY HOUR:MINUTE[:SECOND]"},
        {"a | daily 1 | 2024-01-01 00:00 to x | | print x",
         "\"x\" is not an end: YEAR-MONTH-DAY HOUR:MINUTE[:SECOND]"},
        {"a | monthly 1" + start + "days 2 | print x",
         "\"days\" is nothing that a monthly task can leave out: months weekdays holidays"},
        {"a | daily 1" + start + "months | print x", "\"months\" has no values"},
        {"a | daily 1" + start + "holidays 12-25,5 | print x", "\"5\" is not a holiday: MONTH-DAY"},
        {"a | daily 1" + start + " | sing x", "\"sing\" is no action"},
        {"\x80\xff", "a task is: name | rule | start [to end] | exclusions | action text"},
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
            "f | monthly 30 | 2037-01-01 08:00 | months 1,3,4,5,6,7,8,9,10,11,12 | print x\n");
    const zu_test::outcome result = run("--next");
    EXPECT_EQ(result.error_output, reports);
    EXPECT_EQ(result.output, "task      rule                      next firing\n"
                             "good one  daily 1                   2037-01-01 08:00:00\n"
                             "é         weekday-of-month 5 sat,7  never again\n"
                             "c         weekly 2 mon,7            2037-01-18 08:00:00\n"
                             "d         interval 1:30:0           2037-01-02 02:00:00\n"
                             "e         week-of-month 2 1         never again\n"
                             "f         monthly 30                not in sight\n");
    EXPECT_EQ(result.exit_code, 1);
}

TEST_F(taskd, runs_what_is_due_until_its_time_is_over_or_a_signal_comes) {
    write("tick | interval 0:0:1 | 2024-01-01 00:00 | | print  Grüße | und mehr \n"
          "rare | daily 1        | 2037-01-01 00:00 | | print never\n");
    // A shell's background job ignores an interrupt, so env puts its default back.
    const std::string background = "rm -f " + path_ + ".out; env --default-signal=INT " + program + " "
                                   + path_ + " >" + path_ + ".out & until grep tick.*mehr " + path_
                                   + ".out; do sleep 0.1; done; kill -";
    const zu_test::outcome results[] = {run("--for 3"), zu_test::run_command(background + "INT $!; wait $!"),
                                        zu_test::run_command(background + "TERM $!; wait $!")};
    for (const zu_test::outcome& result : results) {
        EXPECT_EQ(result.exit_code, 0) << result.signal << result.error_output;
        EXPECT_NE(result.output.find("  tick  Grüße | und mehr\n"), std::string::npos) << result.output;
        EXPECT_EQ(result.output.find("never\n"), std::string::npos) << result.output;
    }
}

TEST_F(taskd, logs_rotates_answers_and_stops_whatever_its_clients_do) {
    write("tick | interval 0:0:1 | 2024-01-01 00:00 | | print tick tick tick tick tick tick tick tick\n"
          "bad  | interval 0:0:1 | 2024-01-01 00:00 | | probe nowhere\n"
          "job  | daily 1        | 2037-01-01 00:00 | | print done\n");
    const std::string port = std::to_string(20000 + getpid() % 20000), log = path_ + ".log";
    const std::string ask = "'" + program + "' --ask 127.0.0.1:" + port;
    // One client says nothing, one babbles without an end of line; neither holds up the others.
    const zu_test::outcome result = zu_test::run_command(
        program + " --for 20 --trace --log " + log + " --log-size 500 --log-keep 3 --port " + port + " "
        + path_ + " >" + path_ + ".out & sleep 1; (exec 3<>/dev/tcp/127.0.0.1/" + port
        + "; sleep 5) 2>/dev/null & " + "(head -c 100000 /dev/zero >/dev/tcp/127.0.0.1/" + port
        + ") 2>/dev/null & sleep 2; " + ask + " 'run job'; " + ask + " status; " + ask + " 'run nothing'; "
        + ask + " stop; wait %1; cat " + path_ + ".out");
    for (const char* text :
         {"job runs\n", "job: ", "next 2037-01-01 00:00:00\n", "no task is called \"nothing\"\n",
          "stopping\n", "by request  job  done\n", "->>: carry_out(): tick\n"})
        EXPECT_NE(result.output.find(text), std::string::npos)
            << text << result.output << result.error_output;
    for (const char* file : {"", ".1", ".2"})
        EXPECT_NE(std::filesystem::file_size(log + file), 0u) << file;
    EXPECT_FALSE(std::filesystem::exists(log + ".3"));
    std::ifstream errors(log + ".errors");
    std::string line;
    EXPECT_TRUE(std::getline(errors, line));
    EXPECT_NE(line.find("\"nowhere\" is not ADDRESS PORT MS"), std::string::npos);
    for (const char* file : {"", ".1", ".2", ".errors"})
        std::filesystem::remove(log + file);
}

TEST_F(taskd, digests_and_cleans) {
    const std::string directory = path_ + ".d";
    std::filesystem::create_directory(directory);
    for (const char* name : {"old.tmp", "older.TMP", "new.tmp", "old.txt"})
        std::ofstream(directory + "/" + name) << "abc";
    const auto long_ago = std::filesystem::file_time_type::clock::now() - std::chrono::hours(48);
    for (const char* name : {"old.tmp", "older.TMP", "old.txt"})
        std::filesystem::last_write_time(directory + "/" + name, long_ago);
    std::ofstream(directory + "/future.tmp") << "abc";
    using sys_time = std::chrono::sys_seconds; // a date that the library has no time for
    std::filesystem::last_write_time(directory + "/future.tmp", std::chrono::file_clock::from_sys(sys_time(
                                                                    std::chrono::seconds(5'000'000'000))));
    const std::string every_second = " | interval 0:0:1 | 2024-01-01 00:00 | | ";
    write("a" + every_second + "digest " + directory + "/new.tmp\nb" + every_second + "clean " + directory
          + " *.tmp 1d\nc" + every_second + "clean " + directory + " * soon\nd" + every_second + "digest "
          + directory + "/none\n");
    const std::string output = run("--for 2").output;
    for (const char* text : {"900150983cd24fb0d6963f7d28e17f72, 3 bytes of 20", ": deleted old", "older.TMP",
                             ": nothing deleted\n", "\"soon\" is not an age", "/none: There is no file"})
        EXPECT_NE(output.find(text), std::string::npos) << text << output;
    for (const char* kept : {"/new.tmp", "/old.txt", "/future.tmp"})
        EXPECT_TRUE(std::filesystem::exists(directory + kept)) << kept;
    EXPECT_FALSE(std::filesystem::exists(directory + "/old.tmp"));
    std::filesystem::remove_all(directory);
}

TEST_F(taskd, tells_how_it_is_used) {
    EXPECT_NE(run("--help").output.find("weekday-of-month"), std::string::npos);
    for (const char* wrong : {"--fro 3", "--for", "--for x", "-x"})
        EXPECT_EQ(zu_test::run_command(program + " " + wrong).exit_code, 2) << wrong;
    const zu_test::outcome missing = run("--next");
    EXPECT_EQ(missing.exit_code, 1);
    EXPECT_EQ(missing.error_output, path_ + ": There is no file of that name.\n");
}

} // namespace
