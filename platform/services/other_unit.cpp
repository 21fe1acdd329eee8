// Units that others wrote. Everything about them is asked of the host's manager.
#include "platform/services/other_unit.h"

#include <unistd.h>

#include <mutex>

#include "platform/api/threads.h"
#include "platform/core/error.h"
#include "platform/services/service_log.h"
#include "platform/services/systemd.h"
#include "platform/services/unit_state.h"
#include "platform/text/utf8.h"

namespace platform {

namespace {

constexpr DWORD stop_limit_ms = 30000;
constexpr DWORD look_ms = 100;

class other_unit final : public installed_service {
public:
    explicit other_unit(const unit_file& file) : unit_(file.unit), watch_(false, file.unit) {
        record_.name = record_.display_name = wide_from(file.unit.substr(0, file.unit.rfind('.')));
        record_.type = SERVICE_WIN32_OWN_PROCESS;
        record_.start_type = file.is_masked ? SERVICE_DISABLED : SERVICE_DEMAND_START;
    }

    const service_record& record() const override { return record_; }
    std::string unit() const override { return unit_; }
    bool may_be_changed() const override { return geteuid() == 0; }
    bool is_marked() const override { return false; }
    DWORD mark() override { return ERROR_ACCESS_DENIED; }
    DWORD finish_off() override { return ERROR_SUCCESS; } // the manager does it

    DWORD status(SERVICE_STATUS& out) override {
        const std::lock_guard guard(watch_lock_);
        const DWORD code = watch_.look(out);
        out.dwServiceType = record_.type;
        return code;
    }

    // The order is a job of the unit before systemctl ends, so the unit is pending from then on.
    DWORD start() override {
        const DWORD code = run_systemctl(false, {"start", "--no-block", "--", unit_});
        if (code != ERROR_SUCCESS)
            log_failed_start(record_.name, "starting " + unit_, code);
        return code;
    }

    DWORD stop() override {
        DWORD code = run_systemctl(false, {"stop", "--no-block", "--", unit_});
        for (const DWORD start = GetTickCount(); code == ERROR_SUCCESS; Sleep(look_ms)) {
            SERVICE_STATUS now;
            code = status(now);
            if (now.dwCurrentState == SERVICE_STOP_PENDING || now.dwCurrentState == SERVICE_STOPPED)
                break;
            if (code == ERROR_SUCCESS && GetTickCount() - start > stop_limit_ms)
                code = ERROR_SERVICE_REQUEST_TIMEOUT;
        }
        return code;
    }

private:
    std::string unit_;
    service_record record_;
    std::mutex watch_lock_;
    unit_watch watch_;
};

} // namespace

std::unique_ptr<installed_service> service_of_unit(const unit_file& file) {
    return std::make_unique<other_unit>(file);
}

} // namespace platform
