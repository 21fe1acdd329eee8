// Reports to the host's service manager, if that has started the helper.
#pragma once

#include <string>
#include <string_view>

#include "platform/core/descriptor.h"
#include "platform/services/service_status.h"

namespace zu_helper {

class manager_socket {
public:
    // Takes the socket's name out of the environment, where the service must not find it.
    manager_socket();

    bool is_for_user() const { return is_for_user_; } // the manager of a user, not of the machine

    void tell(std::string_view text) const;

    // Reports the state and the check point, and that the service needs time, is ready, or is ending.
    void tell(const platform::service_report& report);

private:
    std::string path_; // empty if there is no manager to tell
    bool is_for_user_ = false;
    platform::descriptor socket_;
    std::string told_;
};

} // namespace zu_helper
