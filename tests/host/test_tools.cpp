// The command `zu`, run as an administrator runs it: what it says is what the library then does. About Linux: the
// command shows where the layer keeps its files.
#include <sys/prctl.h>

#include "support/test.h"

namespace {

outcome zu(const std::string& arguments) {
    return run_command(ZU_COMMAND " " + arguments);
}

// The output of the command; a failure counts, with its reason.
std::string said(const std::string& arguments) {
    const outcome result = zu(arguments);
    EXPECT_EQ(result.exit_code, 0) << arguments << ": " << result.error_output;
    return result.output.substr(0, result.output.find_last_not_of('\n') + 1);
}

std::string value_of(const std::string& key_and_name) {
    return said("registry get " + key_and_name);
}

TEST(command, is_misused_or_fails_with_a_reason_and_a_status) {
    const file_place place;
    place.write("no registry", "a letter to a friend");
    place.write("../host/registry.reg", "");
    const std::tuple<const char*, int, const char*> rows[] = {
        // clang-format off
        {"", 2, "usage"}, {"nonsense", 2, "usage"}, {"drive map", 2, "argument is missing"},
        {"drive map Q: /nowhere", 1, "(2)"}, {"drive map 1: /", 2, "neither a drive"}, {"drive unmap Q:", 1, "not mapped"},
        {"registry get HKLM\\\\none", 1, "no key"}, {"registry get HKXX\\\\none", 2, "a key begins with"},
        {"registry set HKLM\\\\x n dword -1", 2, "not a number"}, {"registry set HKLM\\\\x n binary abc", 2, "not pairs"},
        {"registry set HKLM\\\\x n dword 4294967296", 2, "not a number"}, {"registry list --colour", 2, "no option --colour"},
        {"service state nothing", 1, "(1060)"}, {"open 'T:\\none'", 1, "(2)"}, {"path 'Q:\\'", 1, "(3)"}};
    // clang-format on
    for (const auto& [arguments, status, reason] : rows) {
        const outcome result = zu(arguments);
        EXPECT_EQ(result.exit_code, status) << arguments;
        EXPECT_NE(result.error_output.find(reason), std::string::npos)
            << arguments << ": " << result.error_output;
    }
    EXPECT_EQ(zu("path / >/dev/full").exit_code, 1) << "an answer that nobody got";
    setenv("ZU_HELPER", "/nonexistent", 1);
    EXPECT_NE(zu("info").error_output.find("/nonexistent is missing"), std::string::npos);
    place.make_directory("../host/services");
    place.write("../host/services/.manager", "systemd");
    EXPECT_NE(zu("info").output.find("as units"), std::string::npos);
    place.write("../host/services/.manager", "nobody");
    EXPECT_NE(zu("info").error_output.find("neither systemd nor helper"), std::string::npos);
}

TEST(command, paths_and_drives) {
    as_both_users([](const file_place& place) {
        place.make_directory("Data");
        place.write("Data/Report.TXT", "x");
        place.make_link("link", place.host_path("Data"));
        said("drive map q: " + place.host_path("Data"));
        said("drive map '\\\\srv\\Music and more' " + place.host_path("Data"));
        const std::string host = place.host_path("Data/Report.TXT");
        for (const char* path : {"'q:\\report.txt'", "'\\\\?\\Q:\\REPORT.txt'"}) {
            const std::string answer = said("path --json " + std::string(path));
            EXPECT_NE(answer.find("\"host\": \"" + host + '"'), std::string::npos) << answer;
        }
        EXPECT_NE(said("path " + host).find("Q:\\Report.TXT"), std::string::npos);
        EXPECT_NE(said("path 'T:\\link\\report.txt'").find("link -> "), std::string::npos);
        EXPECT_NE(said("drive list --json").find("\"\\\\\\\\srv\\\\Music and more\""), std::string::npos);
        EXPECT_EQ(zu("path 'q:\\none'").exit_code, 1);
        said("drive unmap Q:");
        EXPECT_EQ(said("drive list").find("Q:"), std::string::npos);
    });
}

TEST(command, registry_files_in_every_encoding_and_a_users_own) {
    as_both_users([](const file_place& place) {
        setenv("HOME", place.host_path().c_str(), 1);
        const std::string copy = place.host_path("copy.reg"),
                          unknown = "; a comment\r\n\"odd\"=newtype:1\r\nwhat is this?\r\n";
        const std::string body =
            "\r\n\r\n[HKEY_LOCAL_MACHINE\\Software\\Zu]\r\n\"Old\"=\"text\"\r\n" + unknown
            + "\"Twice\"=dword:1\r\n\"twice\"=dword:2\r\n\r\n[HKEY_LOCAL_MACHINE\\Other]\r\n";
        const std::string newer = "Windows Registry Editor Version 5.00" + body + "\"\u00C4\"=\"\u20AC\"\r\n";
        const auto utf16 = [](const std::string& text, bool is_swapped) {
            std::string result;
            for (const char16_t unit : wide("\xEF\xBB\xBF" + text)) {
                const char low = static_cast<char>(unit & 0xFF), high = static_cast<char>(unit >> 8);
                result += is_swapped ? std::string{high, low} : std::string{low, high};
            }
            return result;
        };
        for (const std::string& file :
             {newer, "REGEDIT4" + body, utf16(newer, false), utf16(newer, true), "\xEF\xBB\xBF" + newer}) {
            place.write("../host/registry.reg", file);
            const std::string path = place.host_path("../host/registry.reg"), look = "stat -c %g " + path;
            run_command("chgrp 12345 " + path); // root alone can
            const std::string group = run_command(look).output;
            const std::string key = "'HKLM\\software\\ZU' ";
            said("registry set " + key + "old expand_sz '%HOME%\\\"a\"'");
            said("registry set " + key + "New dword 0xFFFFFFFF");
            said("registry set " + key + "'' multi_sz one two");
            said("registry set " + key + "big qword 18446744073709551615");
            said("registry set 'HKLM\\a\\b\\c' lines sz $'two\\nlines'");
            said("registry delete " + key + "TWICE");
            EXPECT_EQ(value_of(key + "OLD"), "%HOME%\\\"a\"");
            EXPECT_EQ(value_of(key + "new"), "4294967295");
            EXPECT_EQ(value_of(key), "one\ntwo");
            EXPECT_EQ(value_of(key + "big"), "18446744073709551615");
            EXPECT_EQ(value_of("'HKLM\\a\\b\\c' lines"), "two\nlines");
            EXPECT_EQ(zu("registry get " + key + "twice").exit_code, 1);
            uint32_t number = 0;
            EXPECT_TRUE(ZU_registry_get_uint32(HKEY_LOCAL_MACHINE, u"Software\\Zu", u"New", &number));
            EXPECT_EQ(number, 0xFFFFFFFFu);
            if (file[0] != 'R') { // the older format has the host's letters
                EXPECT_EQ(value_of("'HKLM\\other' \u00E4"), "\u20AC");
            }
            EXPECT_EQ(run_command(look).output, group) << "whose programs may read it";
            const std::string now = place.read("../host/registry.reg");
            const std::string kept = file[0] == '\xFF'   ? utf16(unknown, false).substr(2)
                                     : file[0] == '\xFE' ? utf16(unknown, true).substr(2)
                                                         : unknown;
            EXPECT_NE(now.find(kept), std::string::npos) << now;

            said("registry export " + copy + std::string(file[0] == '\xFF' ? " --utf16" : ""));
            said("registry delete 'HKLM\\a'");
            EXPECT_EQ(zu("registry list 'HKLM\\a\\b'").exit_code, 1);
            said("registry import " + copy);
            EXPECT_EQ(value_of("'HKLM\\a\\b\\c' lines"), "two\nlines");
        }
        for (const std::string& file :
             {std::string("a letter\n"), utf16("Windows Registry", false), std::string("\xFF\xFE\x01")}) {
            place.write("../host/registry.reg", file);
            EXPECT_EQ(zu("registry set 'HKLM\\x' y sz z").exit_code, 1);
            EXPECT_EQ(place.read("../host/registry.reg"), file);
        }

        // A user's own file comes over the machine's.
        place.write("../host/registry.reg", "");
        said("registry set 'HKCU\\a' mine sz 1");
        EXPECT_TRUE(place.exists(".config/zu/registry.reg"));
        place.write(
            "../host/registry.reg",
            "Windows Registry Editor Version 5.00\n[HKEY_CURRENT_USER\\a]\n\"all\"=\"2\"\n\"mine\"=\"0\"\n");
        EXPECT_EQ(value_of("'HKCU\\a' all") + value_of("'HKCU\\a' mine"), "21");
        said("registry delete 'HKCU\\a' all");
        EXPECT_EQ(zu("registry get 'HKCU\\a' all").exit_code, 1) << "hidden, though the machine has it";
        said("registry delete 'HKCU\\a'");
        EXPECT_EQ(zu("registry list 'HKCU\\a'").exit_code, 1);
    });
}

// Writers that are killed at any moment, and one that waits for another.
TEST(command, loses_nothing_when_it_is_killed_while_it_writes) {
    const file_place place;
    said("registry set 'HKLM\\kept' name sz value");
    const std::string big(200'000, 'x');
    place.write("big.reg",
                "Windows Registry Editor Version 5.00\n[HKEY_LOCAL_MACHINE\\big]\n\"b\"=\"" + big + "\"\n");
    const std::string import = ZU_COMMAND " registry import " + place.host_path("big.reg");
    said("registry import " + place.host_path("big.reg"));
    std::set<std::string> seen;
    for (int i = 0; i < 100; ++i) {
        run_command("timeout -s KILL 0.00" + std::to_string(i % 10) + std::to_string(i / 10) + " " + import);
        const std::string file = place.read("../host/registry.reg");
        EXPECT_NE(file.find("\"name\"=\"value\""), std::string::npos) << "after kill " << i;
        EXPECT_NE(file.find(big + "\"\r\n"), std::string::npos) << "after kill " << i;
        seen.insert(file);
    }
    EXPECT_EQ(seen.size(), 1u) << "a half of a file was seen";
    EXPECT_EQ(value_of("'HKLM\\kept' name"), "value") << "and the next writer is not kept waiting";
    run_command("for i in 1 2 3 4 5 6 7 8; do " ZU_COMMAND
                " registry set 'HKLM\\many' v$i dword $i & done; wait");
    for (int i = 1; i <= 8; ++i)
        EXPECT_EQ(value_of("'HKLM\\many' v" + std::to_string(i)), std::to_string(i));
}

TEST(command, runs_services_and_shows_open_files_and_locks) {
    as_both_users([](const file_place& place) {
        setenv("ZU_HELPER", ZU_HELPER_PROGRAM, 1);
        place.make_directory("../host/services");
        said("service install sleeper '/bin/sleep 1000' --display=Sleeper --depends=other");
        EXPECT_NE(said("service list").find("Sleeper"), std::string::npos);
        EXPECT_EQ(zu("service start SLEEPER").exit_code, 1) << "what it depends on is missing";
        said("service install other '/bin/sleep 1000'");
        said("service start sleeper");
        EXPECT_EQ(said("service state Sleeper"), "running");
        for (const char* name : {"sleeper", "other"}) {
            said(std::string("service stop ") + name);
            EXPECT_EQ(zu(std::string("service state --json ") + name).exit_code, 1);
            said(std::string("service uninstall ") + name);
        }
        EXPECT_EQ(said("service list --json"), "[]");

        prctl(PR_SET_DUMPABLE, 1); // a process that was root is closed to others of its user
        place.write("held", "x");
        const layer_file held(u"T:\\held", GENERIC_READ, OPEN_EXISTING, FILE_SHARE_READ);
        const std::string row = "\"pid\": " + std::to_string(getpid());
        const std::string holders = said("open --json 'T:\\HELD'");
        EXPECT_NE(holders.find(row), std::string::npos) << holders;
        EXPECT_NE(holders.find("\"access\": \"read\", \"shares\": \"read\""), std::string::npos) << holders;

        const std::u16string name = u"zu tool " + wide(std::to_string(getpid()));
        ZU_lock_process lock = ZU_lock_process_create(name.c_str());
        ASSERT_TRUE(ZU_lock_process_lock(lock));
        const auto line_of_lock = [&] {
            const std::string all = said("lock list");
            const size_t at = all.find(narrow(name.c_str()));
            return at == all.npos ? std::string() : all.substr(at, all.find('\n', at) - at);
        };
        EXPECT_NE(line_of_lock().find("held"), std::string::npos) << line_of_lock();
        ZU_lock_process_unlock(lock);
        EXPECT_NE(line_of_lock().find("free"), std::string::npos) << line_of_lock();
        ZU_lock_process_close(lock);
        std::string line;
        for (int i = 0; i < 20 && line.empty(); ++i) { // the first lock of another process sweeps it away
            EXPECT_EQ(run_child([&] {
                          ZU_lock_process_lock(ZU_lock_process_create(name.c_str()));
                          raise(SIGKILL);
                      }).exit_code,
                      -SIGKILL);
            line = line_of_lock();
        }
        EXPECT_NE(line.find("left behind"), std::string::npos) << line;
        zu("lock clean");
        EXPECT_EQ(line_of_lock(), "");
    });
}

} // namespace
