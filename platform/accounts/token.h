// Inside this folder: the object behind a token's handle.
#pragma once

#include <memory>
#include <vector>

#include "platform/accounts/host_users.h"
#include "platform/core/handle.h"

namespace platform {

// A user as a token sees it.
struct identity {
    uid_t user;
    std::vector<sid_value> groups;
    bool is_process; // true for this process itself, which alone has privileges to switch
};

class token : public object {
public:
    static constexpr object_kind kind{};

    token(std::shared_ptr<const identity> of, DWORD access)
        : object(kind), of_(std::move(of)), access_(access) {}

    const std::shared_ptr<const identity>& of() const { return of_; }
    bool allows(DWORD access) const { return (access_ & access) == access; }

private:
    std::shared_ptr<const identity> of_;
    DWORD access_;
};

// A token of a user who has been logged on; null, with the code, when there is no memory or handle.
HANDLE new_token(const host_user& user);

} // namespace platform
