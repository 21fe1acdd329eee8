// taskd with the registry and the services of the host, which are files of a test's own, in a shell.
#include "support/test.h"

namespace {

// The program under test lies beside the tests, in the same build.
const std::string program =
    std::filesystem::read_symlink("/proc/self/exe").parent_path() / "../examples/taskd";

class taskd : public testing::Test {
protected:
    // A script in the place of the test, where $taskd is the program.
    outcome script(const std::string& text) {
        return run_command("export LC_ALL=C.UTF-8; cd " + place_.host_path() + "; taskd=" + program + "; "
                           + text);
    }
    const file_place place_{}; // has a registry and services of its own
    const std::string port_ = std::to_string(port_of_our_own());
};

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
        does --install --log ../log --single "taskd $port" --port $port ../my\ tasks/tasks.txt
        does --install; does --state; does --start; does --start
        until grep -qs tick ../log; do sleep 0.1; done
        does --state; $taskd --single "taskd $port" 2>/dev/null; echo "status $?"
        for i in 1 2 3 4 5; do exec {silent}<>/dev/tcp/127.0.0.1/$port; done
        sleep 0.2; does --stop; does --state; does --stop
        cat ../log* | grep -o 'a task is:\|told, 0 warnings, 1 errors'; does --uninstall; ls -A $ZU_HOST/services)");
    EXPECT_EQ(result.output, "mine: installed\nmine: A service of that name exists already.\nmine: stopped\n"
                             "mine: running\nmine: running\nmine: running\nstatus 3\n"
                             "mine: stopped\nmine: stopped\nmine: stopped\n"
                             "told, 0 warnings, 1 errors\na task is:\nmine: uninstalled\n.lock\n");
}

} // namespace
