// Inside this folder: what the service calls need of a manager of services.
//
// The calls hold the platform's rules: handles, rights, arguments, dependencies and the codes that belong to them. A
// manager holds the services: it records them, runs them and tells what lives. The one here keeps them in the host
// directory, and runs each under a helper of its own (service_directory.cpp); another could pass them to the host's.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "platform/api/services.h"

namespace platform {

struct service_record {
    std::u16string name; // as it was spelled when the service was installed
    std::u16string display_name;
    std::u16string command_line;
    DWORD type = 0;
    DWORD start_type = 0;
    DWORD error_control = 0;
    std::vector<std::u16string> dependencies;
};

// Names of services, whatever the case of their letters.
bool same_service_name(wide_view one, wide_view other);

// A service that somebody has open. While anybody has, in any process, it is not removed.
class installed_service {
public:
    virtual ~installed_service() =
        default; // the last one of a service that is marked and has stopped removes it

    virtual const service_record& record() const = 0;
    virtual bool may_be_changed() const = 0; // by the caller: started, stopped, deleted
    virtual bool is_marked() const = 0;      // for deletion
    virtual DWORD mark() = 0;                // 0, 1072 when it is marked already, or another code
    virtual SERVICE_STATUS status() = 0;

    // Returns when the program has been started; 1056 when something of it lives.
    virtual DWORD start() = 0;

    // Passes on a stop, a pause or a continue that the state allows; 1053 when nobody answers.
    virtual DWORD control(DWORD control) = 0;

    // Ends what lives of it although nobody is left to take orders.
    virtual void finish_off() = 0;
};

class service_manager {
public:
    virtual ~service_manager() = default;

    virtual bool may_create() const = 0; // by the caller
    virtual std::unique_ptr<installed_service> open(wide_view name, DWORD& code) = 0;
    virtual bool find(wide_view name, service_record& out) = 0; // without opening it
    virtual std::vector<service_record> all() = 0;

    // 1073, 1072 and 1078 for names that are taken; 1059 for a circle of dependencies.
    virtual DWORD create(const service_record& record) = 0;
};

service_manager& the_service_manager();

// Whether a service of this record would have to be started before itself.
bool depends_on_itself(service_manager& manager, const service_record& record);

} // namespace platform
