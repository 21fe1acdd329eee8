// Inside this folder: what the host's manager says of a unit, in the platform's words.
#pragma once

#include <string>

#include "platform/api/services.h"

namespace platform {

// Sets why a unit has ended, by the manager's result and the exit status of the unit's main process.
void set_exit(std::string_view result, DWORD exit_status, SERVICE_STATUS& out);

// Asks about a unit over and over.
class unit_watch {
public:
    unit_watch(bool for_user, std::string unit) : for_user_(for_user), unit_(std::move(unit)) {}

    // Fills in everything but the type. The check point is the number of seconds in the state while the manager works on
    // the unit, and one more with each new text that the unit reports; the wait hint is the unit's own time-out. The
    // result is 0, or the code of why the manager could not be asked.
    DWORD look(SERVICE_STATUS& out);

private:
    bool for_user_;
    std::string unit_;
    std::string text_; // the last one that the unit has reported
    DWORD texts_ = 0;
};

} // namespace platform
