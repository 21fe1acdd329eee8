// The host's service manager, when it has started the helper: it is told what becomes of the service.
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

    // The state and the check point, and that the service needs time, is ready, or is ending.
    void tell(const platform::service_report& report);

private:
    std::string path_; // empty when nobody wants to know
    bool is_for_user_ = false;
    platform::descriptor socket_;
    std::string told_;
};

} // namespace zu_helper
