// Inside the layer: what the service calls need of a manager of services.
//
// The calls hold the platform's rules: handles, rights, arguments, dependencies and the codes that belong to them. A
// manager holds the services: it records them, runs them and tells what lives. The one here keeps them in the host
// directory, and runs each under a helper of its own (service_directory.cpp); another could pass them to the host's.
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
    virtual ~installed_service() =
        default; // the last one of a service that is marked and has stopped removes it

    virtual const service_record& record() const = 0;
    virtual bool may_be_changed() const = 0; // by the caller: started, stopped, deleted
    virtual bool is_marked() const = 0;      // for deletion
    virtual DWORD mark() = 0; // 1072 (ERROR_SERVICE_MARKED_FOR_DELETE) when it is marked already
    virtual DWORD status(SERVICE_STATUS& out) = 0;

    // Returns when the program has been started; 1056 (ERROR_SERVICE_ALREADY_RUNNING) when something of it lives.
    virtual DWORD start() = 0;

    // Passes on a stop, and waits until it has been taken; 1053 (ERROR_SERVICE_REQUEST_TIMEOUT) when nobody answers.
    virtual DWORD stop() = 0;

    // Ends what lives of it although nobody is left to take orders.
    virtual DWORD finish_off() = 0;
};

class service_manager {
public:
    virtual ~service_manager() = default;

    virtual bool may_create() const = 0; // by the caller

    // 1060 (ERROR_SERVICE_DOES_NOT_EXIST), or why it could not be looked for.
    virtual DWORD open(wide_view name, std::unique_ptr<installed_service>& out) = 0;
    virtual DWORD find(wide_view name, service_record& out) = 0; // without opening it
    virtual DWORD all(std::vector<service_record>& out) = 0;

    // 1073, 1072 and 1078 for names that are taken; 1059 for a circle of dependencies.
    virtual DWORD create(const service_record& record) = 0;
};

service_manager& the_service_manager();

} // namespace platform
