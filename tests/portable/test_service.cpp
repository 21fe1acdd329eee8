// Services: what can be installed, this program started by the manager of services, and the states that others see.
#include "support/portable.h"
#include "support/service.h"

namespace {

namespace fs = std::filesystem;

// Does what the files in its folder ask for. It waits as long as those are there that say hold, after a report with the
// hint that they name. Its further arguments stand behind the names of its own files, and behind its lines of the log.
int follow_files(const words& arguments) {
    const fs::path folder = arguments[0];
    std::string label;
    for (size_t i = 1; i < arguments.size(); ++i)
        label += " [" + arguments[i] + ']';
    const auto is_asked = [&](const char* what) {
        std::error_code no_name;
        return fs::exists(folder / (what + label), no_name);
    };
    const auto log = [&](const char* what) {
        std::ofstream(folder / "log", std::ios::app | std::ios::binary) << what + label + '\n';
    };
    const auto ask_for_time = [&](const char* what, service_state state) {
        if (uint32_t hint; std::ifstream(folder / (what + label)) >> hint)
            report_state(state, hint);
    };
    ask_for_time("hold start", start_pending);
    log("started");
    if (is_asked("fail"))
        return 7;
    for (int i = 0; i < 40 && is_asked("slow"); ++i, ZU_sleep(100))
        report_state(start_pending, 2000);
    while (is_asked("hold start"))
        ZU_sleep(20);
    log("ready");
    report_state(running, 0);
    while (!is_told_to_stop(20)) {
        if (is_asked("end"))
            return 3;
    }
    ask_for_time("hold stop", stop_pending);
    while (is_asked("hold stop"))
        ZU_sleep(20);
    log("ended");
    return 0;
}
const part service_part("service",
                        [](const words& arguments) { return serve_as_service(follow_files, arguments); });
const part starter("starter", [](const words& names) {
    return static_cast<int>(code_of(ZU_NT_service_start(nullptr, wide(names[0]).c_str())));
});

const std::u16string longest(256, u'x'), odd = u"zu_\u00C4 -x 100%i ${A} $$ \"'",
                                         odder = u"zu_\u00C9\n\U0001F600;*";

class service : public testing::Test {
protected:
    service() {
        remove_all(); // what a run that was cut short has left
        place_.make_directory("My Programs");
        put_service_program(place_.at("My Programs"));
    }
    ~service() override { remove_all(); }

    void remove_all() {
        for (const char* hold : {"hold start", "hold stop"})
            forget(hold);
        for (const ZU_wchar* name :
             {u"zu_top", u"zu_middle", u"zu_base", u"zu_one", odd.c_str(), odder.c_str(), longest.c_str()}) {
            uninstall(name);
            wait_until_gone(name);
        }
    }

    std::u16string command(const std::u16string& own_arguments, const ZU_wchar* quote = u"\"") const {
        return quote + place_.drive_path(u"MY programs\\Service.exe") + quote + u" --part service "
               + place_.at("").u16string() + u' ' + own_arguments;
    }
    static uint32_t install(const std::u16string& name, const std::u16string& command,
                            const ZU_wchar* needs = nullptr, uint32_t start_type = 3,
                            const ZU_wchar* display = nullptr, uint32_t type = 0x10) {
        return code_of(
            ZU_NT_service_install(nullptr, name.c_str(), display, command.c_str(), type, start_type, needs));
    }
    uint32_t install_one() const { return install(u"zu_one", command(u"")); }
    template <auto call>
    static uint32_t code(const ZU_wchar* name) {
        return code_of(call(nullptr, name));
    }
    static constexpr auto start = code<ZU_NT_service_start>, stop = code<ZU_NT_service_stop>,
                          exist = code<ZU_NT_service_exist>, uninstall = code<ZU_NT_service_uninstall>;
    static uint32_t state(const ZU_wchar* name) { return ZU_NT_service_get_state(nullptr, name); }

    static void wait_for(const ZU_wchar* name, uint32_t wanted) {
        for (int i = 0; i < 500 && state(name) != wanted; ++i)
            ZU_sleep(20);
        EXPECT_EQ(state(name), wanted);
    }
    static void wait_until_gone(const ZU_wchar* name) {
        for (int i = 0; i < 1000 && exist(name) != codes::service_does_not_exist; ++i)
            ZU_sleep(20);
        EXPECT_EQ(exist(name), codes::service_does_not_exist);
    }
    // A program that has said nothing yet counts as running on Linux: only the log tells that it is.
    void wait_for_log(const std::string& lines) {
        for (int i = 0; i < 1000 && place_.read("log") != lines; ++i)
            ZU_sleep(20);
        EXPECT_EQ(place_.read("log"), lines);
        place_.write("log", "");
    }

    void start_one() {
        EXPECT_EQ(start(u"zu_one"), 0u);
        wait_for_log("started\nready\n");
    }
    void expect_marked(uint32_t in_state) {
        EXPECT_EQ(state(u"ZU_ONE"), in_state);
        EXPECT_EQ(uninstall(u"zu_one"), codes::service_marked_for_delete);
        EXPECT_EQ(install(u"ZU_one", u"x"), codes::service_marked_for_delete);
    }
    void forget(const char* file) { fs::remove(place_.at(file)); }

    scratch place_;
};

TEST_F(service, is_there_until_it_is_uninstalled) {
    ASSERT_EQ(install(odd, u"x", u"zu_nosuch\0", 2, u"%25 \xD800 d", 0x110), 0u);
    ASSERT_EQ(install(longest, u"x", nullptr, 0, u"", 1), 0u);
    for (const std::u16string& machine :
         {std::u16string(), u"\\\\" + own_machine(), std::u16string(u"LocalHost")})
        for (const std::u16string& name : {odd, longest, u"ZU" + odd.substr(2)}) {
            EXPECT_EQ(code_of(ZU_NT_service_exist(machine.c_str(), name.c_str())), 0u) << narrow(name);
            EXPECT_EQ(ZU_NT_service_get_state(machine.c_str(), name.c_str()), stopped) << narrow(machine);
        }
    EXPECT_EQ(stop(odd.c_str()), 0u) << "it has stopped";
    EXPECT_EQ(start(odd.c_str()), codes::service_request_timeout);
    EXPECT_EQ(install(u"ZU" + odd.substr(2), u"x"), codes::service_exists);
    EXPECT_EQ(install(u"zu_one", u"x", nullptr, 3, u"%25 \xD800 d"), codes::duplicate_service_name);
    EXPECT_EQ(uninstall(odd.c_str()), 0u);
    EXPECT_EQ(exist(odd.c_str()), codes::service_does_not_exist);
    EXPECT_EQ(install(odd, u"x"), 0u) << "once more";
    for (const ZU_bool starting : {0, 1})
        EXPECT_EQ(code_of(ZU_NT_service_wait_pending(nullptr, starting)), codes::invalid_handle);
    for (const ZU_wchar* name : {u"", u"a/b", u"a\\b"})
        EXPECT_EQ(install(name, u"x"), codes::invalid_name) << narrow(name);
}

TEST_F(service, of_some_kinds_cannot_be_installed) {
    EXPECT_EQ(install(longest + u'x', u"x"), codes::invalid_name);
    EXPECT_EQ(install(u"zu_one", u"x", nullptr, 3, (longest + u'x').c_str()), codes::invalid_name);
    EXPECT_EQ(install(u"zu_one", u""), codes::invalid_parameter);
    EXPECT_EQ(install(u"zu_one", u"x", u"ZU_One\0"), codes::circular_dependency);
    ASSERT_EQ(install(odder, u"x", u"zu_one\0"), 0u);
    EXPECT_EQ(install(u"ZU_\u00E9\n\U0001F600;*", u"x"), codes::service_exists);
    EXPECT_EQ(install(u"zu_one", u"x", nullptr, 3, u"ZU_\u00E9\n\U0001F600;*"),
              codes::duplicate_service_name);
    EXPECT_EQ(install(u"zu_one", u"x", u"zu_nosuch\0zu_\u00E9\n\U0001F600;*\0"), codes::circular_dependency);
}

TEST_F(service, life) {
    ASSERT_EQ(install_one(), 0u);
    for (int round = 0; round < 2; ++round) {
        EXPECT_EQ(state(u"zu_one"), stopped);
        start_one();
        EXPECT_EQ(state(u"zu_One"), running);
        EXPECT_EQ(start(u"ZU_ONE"), 0u) << "it runs already";
        EXPECT_EQ(stop(u"zu_onE"), 0u);
        wait_for_log("ended\n");
        EXPECT_EQ(stop(u"zu_one"), 0u) << "it has stopped already";
    }
    EXPECT_EQ(uninstall(u"ZU_One"), 0u);
    for (const auto call : {exist, start, stop, uninstall})
        EXPECT_EQ(call(u"zu_one"), codes::service_does_not_exist);
}

TEST_F(service, that_takes_its_time) {
    ASSERT_EQ(install_one(), 0u);
    place_.write("slow", "");
    EXPECT_EQ(start(u"zu_one"), 0u) << "it shows progress";
    EXPECT_EQ(state(u"zu_one"), running);
    EXPECT_EQ(place_.read("log"), "started\nready\n") << "not before it is ready";
    EXPECT_EQ(stop(u"zu_one"), 0u);
    wait_for_log("started\nready\nended\n");
    forget("slow");

    place_.write("hold start", "500");
    EXPECT_EQ(start(u"zu_one"), codes::service_request_timeout) << "it shows none";
    EXPECT_EQ(state(u"zu_one"), start_pending);
    forget("hold start");
    wait_for(u"zu_one", running);
    place_.write("hold stop", "500");
    for (const auto call : {stop, start, stop}) {
        EXPECT_EQ(call(u"zu_one"), codes::service_request_timeout);
        EXPECT_EQ(state(u"zu_one"), stop_pending);
    }
    forget("hold stop");
    wait_for(u"zu_one", stopped);
    wait_for_log("started\nready\nended\n");
}

TEST_F(service, deleted_while_it_starts_or_ends) {
    ASSERT_EQ(install_one(), 0u);
    place_.write("hold start", "30000");
    crew other;
    other.add([] { EXPECT_EQ(start(u"zu_one"), 0u) << "marked meanwhile"; });
    wait_for_log("started\n");
    EXPECT_EQ(uninstall(u"zu_one"), 0u);
    expect_marked(start_pending);
    forget("hold start");
    other.join();
    EXPECT_EQ(state(u"zu_one"), running);
    EXPECT_EQ(stop(u"zu_one"), 0u);
    wait_until_gone(u"zu_one");
    wait_for_log("ready\nended\n");

    ASSERT_EQ(install_one(), 0u) << "the name is free again";
    EXPECT_EQ(start(u"zu_one"), 0u);
    place_.write("hold stop", "500");
    EXPECT_EQ(uninstall(u"zu_one"), 0u) << "it does not stop in time";
    expect_marked(stop_pending);
    EXPECT_EQ(start(u"zu_one"), codes::service_request_timeout);
    forget("hold stop");
    wait_until_gone(u"zu_one");
    wait_for_log("started\nready\nended\n");
}

TEST_F(service, that_ends_by_itself_or_never_runs) {
    place_.write("fail", "");
    ASSERT_EQ(install_one(), 0u);
    ASSERT_EQ(install(u"zu_top", command(u"disabled"), nullptr, 4), 0u);
    ASSERT_EQ(install(u"zu_base", place_.drive_path(u"none.exe")), 0u);
    for (const ZU_wchar* name : {u"zu_one", u"zu_top", u"zu_base"}) {
        EXPECT_EQ(start(name), codes::service_request_timeout) << narrow(name);
        wait_for(name, stopped);
    }
    wait_for_log("started\n");
    forget("fail");
    start_one();
    place_.write("end", "");
    wait_for(u"zu_one", stopped);
    EXPECT_EQ(stop(u"zu_one"), 0u);
    forget("end");
    start_one();
}

// Its program is found though the path has spaces, with quotes and without, in any case of letters.
TEST_F(service, gets_its_arguments) {
    const std::string label = " [-x] [$HOME] [%n] [;] [b cd] [ef] [\\\\] [\"b] [\\c d] [b\"c] []\n";
    for (const auto& [name, quote] : {std::pair{odd.c_str(), u"\""}, {odder.c_str(), u""}}) {
        ASSERT_EQ(install(name, command(uR"(-x $HOME %n ;  "b c"d e""f \\ \"b \\"c d" "b""c" "" )", quote)),
                  0u);
        EXPECT_EQ(start(name), 0u) << narrow(name);
        wait_for_log("started" + label + "ready" + label);
        EXPECT_EQ(uninstall(name), 0u);
        wait_until_gone(name);
        wait_for_log("ended" + label);
    }
}

TEST_F(service, that_three_processes_start_at_once) {
    ASSERT_EQ(install_one(), 0u);
    place_.write("slow", "");
    child starters[] = {child(starter, {"zu_one"}), child(starter, {"ZU_ONE"}), child(starter, {"zu_One"})};
    wait_for_log("started\n");
    forget("slow");
    for (child& one : starters)
        EXPECT_EQ(one.finish(), 0);
    EXPECT_EQ(stop(u"zu_one"), 0u);
    wait_for_log("ready\nended\n");
}

TEST_F(service, needs_others_that_run_first) {
    ASSERT_EQ(install(u"zu_top", command(u"top"), u"zu_middle\0ZU_BASE\0"), 0u);
    ASSERT_EQ(install(u"zu_middle", command(u"middle"), u"zu_base\0"), 0u);
    ASSERT_EQ(start(u"zu_top"), codes::service_request_timeout) << "one of a needed one is missing";
    ASSERT_EQ(install(u"zu_base", command(u"base")), 0u);
    place_.write("fail [base]", "");
    EXPECT_EQ(start(u"zu_top"), codes::service_request_timeout);
    wait_for_log("started [base]\n");
    wait_for(u"zu_base", stopped);
    EXPECT_EQ(state(u"zu_top"), stopped);
    EXPECT_EQ(state(u"zu_middle"), stopped);
    forget("fail [base]");
    place_.write("slow [base]", "");
    while (start(u"zu_top") != 0)
        ASSERT_NE(state(u"zu_top"), stopped);
    wait_for_log(
        "started [base]\nready [base]\nstarted [middle]\nready [middle]\nstarted [top]\nready [top]\n");

    for (const ZU_wchar* name : {u"zu_base", u"zu_middle"}) {
        EXPECT_EQ(stop(name), codes::service_request_timeout) << "another needs it";
        EXPECT_EQ(state(name), running);
    }
    for (const ZU_wchar* name : {u"zu_top", u"zu_middle", u"zu_base"})
        EXPECT_EQ(stop(name), 0u) << narrow(name);
    wait_for_log("ended [top]\nended [middle]\nended [base]\n");
}

} // namespace
