// Inside this folder: the verdict on a password.
#pragma once

#include <optional>
#include <string_view>

#include "platform/accounts/host_users.h"

namespace platform {

struct verdict {
    DWORD code;                    // 0: the password is right
    std::optional<host_user> user; // given when the code is 0
};

// Asks the host's authentication service. An empty domain, "." and this machine's name mean this
// machine; every other is one that the host's name service knows.
verdict ask_about(std::u16string_view domain, std::u16string_view user, std::u16string_view password);

} // namespace platform
