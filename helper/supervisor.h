// Running the program of one service: its start, its reports, the order to stop, its end.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

#include "helper/manager_socket.h"
#include "helper/notify.h"
#include "platform/services/service_status.h"

namespace zu_helper {

using platform::descriptor;
using platform::DWORD;

class supervisor {
public:
    // Takes fds of the service's directory and of the new status, and the host's manager if that started the helper.
    supervisor(int directory, int status, manager_socket* manager = nullptr)
        : directory_(directory), status_(status), manager_(manager) {}

    // Starts the program. The result is 0 when it runs, or the code of why it does not.
    DWORD start(const std::string& socket_path);

    // Supervises the service until nothing of it lives. The result is the exit status of its program.
    int run();

private:
    DWORD prepare(const std::string& socket_path, std::vector<std::string>& words);
    DWORD start_program(std::vector<std::string>& words);
    [[noreturn]] void become_program(std::vector<char*>& words, pid_t helper, int failure);
    DWORD failed_to(const char* step, DWORD code);

    void take_signals();
    void take_reports();
    void take_ends();
    void order_stop();
    void wait(DWORD limit_ms);
    void note_end();

    DWORD state_by_reports() const;
    void show(DWORD state);
    void show_progress();
    void tell();

    bool is_at(DWORD state) const { return report_.state == state; }

    int directory_;
    int status_;
    manager_socket* manager_;
    descriptor signals_;
    notify_socket notify_;
    std::u16string name_;
    pid_t program_ = 0; // the program's pid; 0 when it has ended
    pid_t session_ = 0; // the number of the program's session: its pid, also after its end
    int end_ = 0;       // the program's status from waitpid
    DWORD started_ = 0;
    bool reports_ = false;      // whether the program's own reports decide about its state
    bool has_reported_ = false; // whether it has reported since this start
    bool is_ready_ = false;
    bool is_stopping_ = false;
    bool was_told_to_stop_ = false;
    platform::service_report report_;
};

} // namespace zu_helper
