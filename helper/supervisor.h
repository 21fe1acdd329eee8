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
    // The service's directory, the new status of this start, and the host's manager, if that has started the helper.
    supervisor(int directory, int status, manager_socket* manager = nullptr)
        : directory_(directory), status_(status), manager_(manager) {}

    // 0 once the program runs, or the code of why it does not.
    DWORD start(const std::string& socket_path);

    // Returns when nothing of the service lives any more, with the exit status that its program had.
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
    pid_t program_ = 0; // 0: it has ended
    pid_t session_ = 0; // the program's pid, also of its session, when it has ended
    int end_ = 0;       // the way it ended, as waitpid gives it
    DWORD started_ = 0;
    bool reports_ = false;      // its own reports decide about its state
    bool has_reported_ = false; // since this start
    bool is_ready_ = false;
    bool is_stopping_ = false;
    bool was_told_to_stop_ = false;
    platform::service_report report_;
};

} // namespace zu_helper
