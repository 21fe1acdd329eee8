// Inside the layer: the directory of an installed service, in `services` of the host directory.
//
//     .lock            held while services are added or removed, and shared by those that start; `flock` holds it too
//     .new, .gone      a service on its way in or out: only a whole one has its name
//     <name>/record    what was installed; never changed. Whoever has the service open holds a reader's lock on it
//     <name>/status    what lives (see service_status.h); replaced by every start
//     <name>/start     held by the one who is starting it
//     <name>/reports   exists once the service has reported its state
//     <name>/deleted   exists once it is marked for deletion
#pragma once

#include <string>

#include "platform/core/descriptor.h"
#include "platform/services/service_manager.h"

namespace platform {

std::string services_path();

// Takes the lock of a file, LOCK_EX or LOCK_SH, waiting a second at most: false when others keep it.
bool lock_within_a_moment(int file, int operation);

// Holds `.lock` for a scope, waiting a moment for it.
class services_lock {
public:
    enum class use { shared, alone };
    services_lock(const std::string& path, use how);
    DWORD code() const { return code_; } // 0, 1055 when it is held, or why it cannot be had

private:
    descriptor file_;
    DWORD code_ = ERROR_SUCCESS;
};

bool read_service(int directory, service_record& out);

inline constexpr const char* reports_mark = "reports";
inline constexpr const char* deleted_mark = "deleted";
bool has_mark(int directory, const char* mark);
bool set_mark(int directory, const char* mark); // false with errno: EEXIST when it is set

// Removes a service that is marked for deletion, unless something of it lives or somebody has it open.
void remove_if_unused(const std::string& path, const std::string& directory_name);

} // namespace platform
