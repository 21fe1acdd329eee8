// Services that run: this program, started by the manager of services, and the states that others see.
#include "support/portable.h"
#include "support/service.h"

namespace {

namespace fs = std::filesystem;

void log_line(const fs::path& folder, const char* text) {
    std::ofstream(folder / "log", std::ios::app | std::ios::binary) << text << '\n';
}

// Does what the files in its folder ask for, and waits for as long as those are there that say hold.
int follow_files(const words& arguments) {
    const fs::path folder = arguments[0];
    const auto is_asked = [&](const char* name) { return fs::exists(folder / name); };
    log_line(folder, "started");
    if (is_asked("fail"))
        return 7;
    for (int i = 0; i < 40 && is_asked("slow"); ++i, ZU_sleep(100))
        report_state(start_pending, 2000);
    if (is_asked("hold start"))
        report_state(start_pending, 500);
    while (is_asked("hold start"))
        ZU_sleep(20);
    log_line(folder, "ready");
    report_state(running, 0);
    wait_for_stop();
    if (is_asked("hold stop"))
        report_state(stop_pending, 500);
    while (is_asked("hold stop"))
        ZU_sleep(20);
    log_line(folder, "ended");
    return 0;
}
const part service_part("service",
                        [](const words& arguments) { return serve_as_service(follow_files, arguments); });

class service : public testing::Test {
protected:
    service() { remove_all(); } // what a run that was cut short has left
    ~service() override { remove_all(); }

    void remove_all() {
        for (const char* hold : {"hold start", "hold stop"})
            forget(hold);
        for (const ZU_wchar* name : {u"zu_off", u"zu_one"}) {
            ZU_NT_service_uninstall(nullptr, name);
            wait_until_gone(name);
        }
    }

    uint32_t install(const ZU_wchar* name, uint32_t start_type = 3) {
        return code_of(
            ZU_NT_service_install(nullptr, name, nullptr, command_.c_str(), 0x10, start_type, nullptr));
    }
    template <auto call>
    static uint32_t code(const ZU_wchar* name) {
        return code_of(call(nullptr, name));
    }
    static constexpr auto start = code<ZU_NT_service_start>, stop = code<ZU_NT_service_stop>,
                          exist = code<ZU_NT_service_exist>, uninstall = code<ZU_NT_service_uninstall>;
    static uint32_t state(const ZU_wchar* name) { return ZU_NT_service_get_state(nullptr, name); }

    static void wait_for(const ZU_wchar* name, uint32_t wanted) {
        while (state(name) != wanted)
            ZU_sleep(20);
    }
    static void wait_until_gone(const ZU_wchar* name) {
        while (exist(name) != codes::service_does_not_exist)
            ZU_sleep(20);
    }
    // A program that has said nothing yet counts as running on Linux: only the log tells that it is.
    void wait_for_log(const std::string& lines) {
        while (place_.read("log") != lines)
            ZU_sleep(20);
        place_.write("log", "");
    }

    void forget(const char* file) { fs::remove(place_.at(file)); }

    scratch place_;
    const std::u16string command_ = service_command(service_part, place_.at("").string());
};

TEST_F(service, life) {
    ASSERT_EQ(install(u"zu_one"), 0u);
    EXPECT_EQ(install(u"ZU_One"), codes::service_exists);
    for (int round = 0; round < 2; ++round) {
        EXPECT_EQ(state(u"zu_one"), stopped);
        EXPECT_EQ(start(u"zu_one"), 0u);
        wait_for_log("started\nready\n");
        EXPECT_EQ(state(u"zu_One"), running);
        EXPECT_EQ(start(u"zu_one"), 0u) << "it runs already";
        EXPECT_EQ(stop(u"zu_one"), 0u);
        wait_for_log("ended\n");
        EXPECT_EQ(stop(u"zu_one"), 0u) << "it has stopped already";
    }
    EXPECT_EQ(start(u"zu_one"), 0u);
    wait_for_log("started\nready\n");
    EXPECT_EQ(uninstall(u"zu_one"), 0u);
    wait_for_log("ended\n");
    wait_until_gone(u"zu_one");
    for (const auto call : {exist, start, stop, uninstall})
        EXPECT_EQ(call(u"zu_one"), codes::service_does_not_exist);
}

TEST_F(service, that_takes_its_time) {
    ASSERT_EQ(install(u"zu_one"), 0u);
    EXPECT_EQ(start(u"zu_one"), 0u);
    wait_for_log("started\nready\n");
    EXPECT_EQ(stop(u"zu_one"), 0u);
    wait_for_log("ended\n");

    place_.write("slow", "");
    EXPECT_EQ(start(u"zu_one"), 0u) << "it shows progress";
    EXPECT_EQ(state(u"zu_one"), running);
    EXPECT_EQ(place_.read("log"), "started\nready\n") << "not before it is ready";
    EXPECT_EQ(stop(u"zu_one"), 0u);
    wait_for_log("started\nready\nended\n");
    forget("slow");

    place_.write("hold start", "");
    EXPECT_EQ(start(u"zu_one"), codes::service_request_timeout) << "it shows none";
    EXPECT_EQ(state(u"zu_one"), start_pending);
    forget("hold start");
    wait_for(u"zu_one", running);

    place_.write("hold stop", "");
    EXPECT_EQ(stop(u"zu_one"), codes::service_request_timeout);
    EXPECT_EQ(state(u"zu_one"), stop_pending);
    EXPECT_EQ(start(u"zu_one"), codes::service_request_timeout);
    EXPECT_EQ(uninstall(u"zu_one"), 0u) << "marked, until it has ended";
    EXPECT_EQ(state(u"zu_one"), stop_pending);
    EXPECT_EQ(install(u"zu_one"), codes::service_marked_for_delete);
    forget("hold stop");
    wait_until_gone(u"zu_one");
    wait_for_log("started\nready\nended\n");
    EXPECT_EQ(install(u"zu_one"), 0u);
}

TEST_F(service, that_does_not_come_to_run) {
    place_.write("fail", "");
    ASSERT_EQ(install(u"zu_one"), 0u);
    ASSERT_EQ(install(u"zu_off", 4), 0u);
    for (const ZU_wchar* name : {u"zu_one", u"zu_off"}) {
        EXPECT_EQ(start(name), codes::service_request_timeout) << "it ends by itself, or is disabled";
        wait_for(name, stopped);
    }
    wait_for_log("started\n");
}

} // namespace
