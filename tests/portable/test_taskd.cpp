// taskd as a user meets it: what it says of a task file, what it runs, and how it ends.
#include "support/portable.h"

namespace fs = std::filesystem;

namespace {

// The program under test lies beside the tests, in the same build.
const fs::path program =
    own_program().parent_path() / ("../examples/taskd" + own_program().extension().string());

struct taskd : scratch_test {
    taskd() {
        set_zone("UTC");
        fs::current_path(place.at(""));
    }
    const std::string port = std::to_string(port_of_our_own()), name = "taskd-test-" + port;
};

outcome run(const words& arguments) {
    return child(program, arguments).end();
}

std::string error_text(uint32_t code) {
    return narrow(taken(ZU_get_error_msg(code)));
}

TEST_F(taskd, bad_lines_and_next_firings) {
    // clang-format off
    place.write("file", "\xEF\xBB\xBF# the first line has a byte order mark\r\n"
                        "only | three | \x80\xff\r\n" R"(
a | | 2024-01-01 00:00 | | print x
a | daily 0 | 2024-01-01 00:00 | | print x
a | weekly 1 mon,fry | 2024-01-01 00:00 | | print x
a | daily 1 | soon | | print x
a | daily 1 | 2024-01-01 00:00 until 2025-01-01 | | print x
a | daily 1 | 2024-01-01 00:00 | holidays 12-25,5 | print x
a | daily 1 | 2024-01-01 00:00 | | sing x

  good one | daily 1 | 2037-01-01 08:00 | | print a | b
é | weekday-of-month 5 sat,7 | 2037-01-01 08:00:09 to 2037-02-28 08:00 | days 31 | print x
c | weekly 2 mon,7 | 2037-01-01 08:00 | days 4 holidays 1-12 | print x
d | interval 1:30:0 | 2037-01-01 23:00 | hours 23,24 | print x
e | week-of-month 2 1 | 2006-01-01 08:00 to 2006-01-02 08:00 | | print x
f | monthly 30 | 2037-01-01 08:00 | months 1,3,4,5,6 months 7,8,9,10,11,12 | print x
#)" + std::string(102400, '-')
                            + "g | daily 1 | 2037-01-01 08:00 | | print x\n");
    // clang-format on
    const outcome next = run({"--next", "file"});
    EXPECT_EQ(next.error_output, R"(file:2: a task is: name | rule | start [to end] | exclusions | action text
file:4: "" is no kind of rule
file:5: "daily 0" never comes
file:6: "fry" is not a weekday: mon to sun, or 1 to 7
file:7: "soon" is not a start: YEAR-MONTH-DAY HOUR:MINUTE[:SECOND]
file:8: "2024-01-01 00:00 until 2025-01-01" is not a start: YEAR-MONTH-DAY HOUR:MINUTE[:SECOND]
file:9: "5" is not a holiday: MONTH-DAY
file:10: "sing" is no action
)");
    EXPECT_EQ(next.output, R"(task      rule                      next firing
good one  daily 1                   2037-01-01 08:00:00
é         weekday-of-month 5 sat,7  never again
c         weekly 2 mon,7            2037-01-18 08:00:00
d         interval 1:30:0           2037-01-02 02:00:00
e         week-of-month 2 1         never again
f         monthly 30                not in sight
)");
    EXPECT_EQ(next.exit_code, 1);
}

TEST_F(taskd, wrong_options_and_a_missing_service) {
    EXPECT_NE(run({"--help"}).output.find("weekday-of-month"), std::string::npos);
    // clang-format off
    const words wrong[] = {
        {"--fro", "3"}, {"--for"}, {"--for", "x"}, {"-x"}, {"a", "b"}, {""}, {"--single", ""}, {"--port", "65536"},
        {"--next", "--start"}, {"--ask", "h:1"}, {"--next", "--for", "3"}, {"--ask", "h:1", "a", "b"}, {"--state", "--name"},
        {"--ask", "h:1", "--trace", "a"}, {"a", "--ask", "h:1"}, {"--name", "n", "a"}, {"--install", "--uninstall"},
        {"--install", "--next"}, {"--start", "a"}, {"--stop", "--log", "l"}, {"--ask", "h:1", "--name", "n", "a"}};
    // clang-format on
    for (const words& options : wrong) {
        const outcome refused = run(options);
        EXPECT_EQ(refused.exit_code, 2) << testing::PrintToString(options);
        EXPECT_TRUE((refused.output + refused.error_output).starts_with("usage: taskd "));
    }
    for (const char* command : {"--state", "--start", "--stop", "--uninstall"}) {
        const outcome refused = run({command, "--name", name});
        EXPECT_EQ(refused.exit_code, 1) << command;
        EXPECT_EQ(refused.error_output, name + ": " + error_text(codes::service_does_not_exist) + '\n');
    }
}

TEST_F(taskd, a_whole_run_with_rude_clients) {
    std::string tasks = "job | daily 1 | 2037-01-01 00:00 | | print done\n";
    for (const char* action : {"print  Grüße | und mehr ", "probe nowhere", "digest d/new.tmp",
                               "clean d *.tmp 1d", "clean d * soon", "digest d/none"})
        tasks += std::string("tick | interval 0:0:1 | 2024-01-01 00:00 | | ") + action + '\n';
    place.write("tasks.txt", tasks);
    place.make_directory("d");
    // The date in the future does not fit into the library's 32 bits. The C++ library's own end there in 32-bit programs.
    const int days_ahead = sizeof(void*) == 8 ? 40000 : 1;
    for (const std::string file : {"old.tmp", "older.TMP", "old.txt", "new.tmp", "future.tmp"}) {
        place.write("d/" + file, "abc");
        const int days = file[0] == 'o' ? -2 : file[0] == 'f' ? days_ahead : 0;
        fs::last_write_time(place.at("d/" + file),
                            fs::file_time_type::clock::now() + days * std::chrono::hours(24));
    }
    child server(program, {"--for", "60", "--trace", "--log", "log", "--log-size", "500", "--log-keep", "3",
                           "--port", port});
    std::string output = server.output_until("carry_out(): tick");
    // Three clients say nothing, eight babble without an end of line; none of them holds up the others.
    const started_library library;
    std::vector<held_socket> rude;
    for (int i = 0; i < 11; ++i) {
        rude.push_back(connected_to(ipv4(static_cast<uint16_t>(std::stoi(port)))));
        ZU_send(rude.back(), std::string(10000, 0).c_str(), i < 3 ? 0 : 10000, 0);
    }
    output += server.output_until(": nothing deleted");
    while (!place.exists("log.2"))
        output += server.output_until("\n");
    for (const char* command : {"run job", "status", "run nothing", "stop"})
        output += run({"--ask", "127.0.0.1:" + port, command}).output;
    output += server.output_until({}) + place.read("log.errors");
    EXPECT_EQ(server.finish(), 0);
    std::set<std::string> files;
    for (const fs::directory_entry& entry : fs::recursive_directory_iterator(place.at("")))
        files.insert(entry.path().filename().string() + '\n');
    output = std::accumulate(files.begin(), files.end(), output);
    // clang-format off
    const std::string texts[] = {
        "job runs\n", "job: ", "next 2037-01-01 00:00:00\n", "no task is called \"nothing\"\n", "stopping\n",
        "by request  job  done\n", "->>: carry_out(): tick\n", "\"nowhere\" is not ADDRESS PORT MS",
        narrow_of(u"  tick  Gr\u00fc\u00dfe | und mehr\n", ZU_ENCODING_ANSI), "older.TMP", ": nothing deleted\n",
        "900150983cd24fb0d6963f7d28e17f72, 3 bytes of 20", ": deleted old", "\"soon\" is not an age",
        "d/none: " + error_text(codes::file_not_found),
        "d\nfuture.tmp\nlog\nlog.1\nlog.2\nlog.errors\nnew.tmp\nold.txt\ntasks.txt\n"};
    // clang-format on
    for (const std::string& text : texts)
        EXPECT_NE(output.find(text), std::string::npos) << text << output;
}

TEST_F(taskd, single_instance) {
    place.write("tasks.txt", "");
    const words again = {"--for", "0", "--single", name};
    const ZU_lock_process lock = ZU_lock_process_create(wide(name).c_str()); // which a killed owner leaves
    child first(program, {"--single", name});
    first.output_until("tasks of ");
    const outcome second = run(again);
    EXPECT_EQ(second.exit_code, 3);
    EXPECT_EQ(second.error_output, "another taskd runs as \"" + name + "\"\n");
    first.kill();
    for (const char* reason : {"taken over", "let go"})
        EXPECT_EQ(run(again).exit_code, 0) << reason;
    ZU_lock_process_close(lock);
    EXPECT_EQ(run({"--for", "0", "--single", "no\\name"}).exit_code, 1);
}

TEST_F(taskd, finds_its_file_in_the_registry) {
    place.write("tasks.txt", "here | daily 1 | 2037-01-01 08:00 | | print a\n");
    place.write("other.txt", "there | daily 1 | 2037-01-01 08:00 | | print a\n");
    const std::string key = "HKEY_LOCAL_MACHINE\\Software\\zu\\taskd]\r\n";
    const std::string none = "T:\\none.txt: " + error_text(codes::file_not_found) + '\n';
    for (const auto& [value, said] : {std::pair<std::string, std::string>("dword:00000001", "\nhere "),
                                      {"\"\"", "\nhere "},
                                      {"\"T:\\\\other.txt\"", "\nthere "},
                                      {"\"T:\\\\none.txt\"", none}}) {
        place.add_to_registry('[' + key + "\"TaskFile\"=" + value + "\r\n");
        const outcome next = run({"--next"}), given = run({"--next", "tasks.txt"});
        EXPECT_NE((next.output + next.error_output).find(said), std::string::npos) << value;
        EXPECT_NE(given.output.find("\nhere "), std::string::npos) << value;
    }
    place.add_to_registry("[-" + key); // the native registry outlives this test
}

} // namespace
