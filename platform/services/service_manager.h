// Inside the layer: the interface between the service calls and a manager of services.
//
// The calls hold the platform's rules: handles, rights, arguments, dependencies and the codes that belong to them. A
// manager holds the services: it records them, runs them and tells what lives. The one here keeps them in the host
// directory (service_directory.cpp) and runs each under a helper of its own. Where systemd runs the machine, units that
// others wrote are services as well (other_unit.cpp).
// A function that gives a code gives 0 when it has done its work.
#pragma once

#include <memory>
#include <vector>

#include "platform/api/services.h"
#include "platform/services/service_record.h"

namespace platform {

// A service that somebody has open. While anybody has, in any process, it is not removed.
class installed_service {
public:
    virtual ~installed_service() = default; // the last one removes a service that is marked and has stopped

    virtual const service_record& record() const = 0;
    virtual std::string unit() const = 0; // its name as a unit of the host's manager; empty if it can be none
    virtual bool may_be_changed() const = 0; // whether the caller may start, stop and delete it
    virtual bool is_marked() const = 0;      // whether it is marked for deletion
    virtual DWORD mark() = 0;                // 1072 (ERROR_SERVICE_MARKED_FOR_DELETE) if it is marked already
    virtual DWORD status(SERVICE_STATUS& out) = 0;

    // Starts the program, and waits until it runs. 1056 (ERROR_SERVICE_ALREADY_RUNNING) if something of the service lives.
    virtual DWORD start() = 0;

    // Orders the stop, and waits until it has begun. 1053 (ERROR_SERVICE_REQUEST_TIMEOUT) if nobody answers.
    virtual DWORD stop() = 0;

    // Ends the processes of a service whose helper is gone.
    virtual DWORD finish_off() = 0;
};

class service_manager {
public:
    virtual ~service_manager() = default;

    virtual bool may_create() const = 0; // whether the caller may install services

    // Whether services that are installed now become units of the host's manager. 13 (ERROR_INVALID_DATA) if the
    // administrator's decision is none of the two, or why it could not be read.
    virtual DWORD installs_units(bool& out) = 0;

    // Opens a service. 1060 (ERROR_SERVICE_DOES_NOT_EXIST), or the code of why the search failed.
    virtual DWORD open(wide_view name, std::unique_ptr<installed_service>& out) = 0;

    // The records of services, without opening them. Units that others wrote have none.
    virtual DWORD find(wide_view name, service_record& out) = 0;
    virtual DWORD all(std::vector<service_record>& out) = 0;

    // Installs a service. 1073 (ERROR_SERVICE_EXISTS), 1072 and 1078 (ERROR_DUPLICATE_SERVICE_NAME) for names that are
    // taken, 1059 (ERROR_CIRCULAR_DEPENDENCY) for a circle of dependencies.
    virtual DWORD create(const service_record& record) = 0;
};

service_manager& the_service_manager();

} // namespace platform
