// taskd as a service of the host, with the clients and the files that a shell makes.
#include "support/test.h"

namespace {

TEST(taskd_host, lives_as_a_service) {
    const file_place place;
    place.make_directory("my tasks");
    place.write("my tasks/tasks.txt", "a | interval 0:0:1 | 2024-01-01 00:00 | | print tick\nwrong\n");
    // Silent clients, one more than are served at once, keep it from ending for six seconds: it has to ask for them.
    const outcome result =
        run_command("cd '" + place.host_path("my tasks") + "'; port=" + std::to_string(port_of_our_own())
                    + "; taskd=" + own_program().parent_path().string() + R"(/../examples/taskd; exec 2>&1
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
