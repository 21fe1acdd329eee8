// Inside the layer: files that are locked while services are added, removed or started.
#pragma once

#include "platform/api/base.h"
#include "platform/core/descriptor.h"

namespace platform {

// A lock on a file of a directory, held until the file is closed; a child that inherits the file holds it too.
class service_lock {
public:
    // Waits a second at most.
    service_lock(int directory, const char* name);

    DWORD code() const {
        return code_;
    } // 0, 1055 (ERROR_SERVICE_DATABASE_LOCKED) while others hold it, or another code
    int get() const { return file_.get(); }

    // Whether somebody holds the lock, without waiting. True also if that cannot be told.
    static bool is_held(int directory, const char* name);

private:
    descriptor file_;
    DWORD code_ = 0;
};

inline constexpr const char* all_services_lock = ".lock"; // while a service is added or removed
inline constexpr const char* start_lock = "start";        // while a service is started
inline constexpr const char* order_lock = "order"; // while a unit is started; its helper takes the start lock

} // namespace platform
