// Reports of taskd to the manager that runs it as a service. Started in another way, it reports nothing.
#pragma once

#include "zu/zu.h"

class service_reports {
public:
    service_reports() = default;
    ~service_reports();
    service_reports(const service_reports&) = delete;
    service_reports& operator=(const service_reports&) = delete;

    void ready();  // reports that taskd serves
    void ending(); // reports that taskd ends, and asks for more time until the destructor

private:
    static uint32_t ask_for_time(void* self);

    ZU_event* has_ended_ = nullptr;
    ZU_thread* asking_ = nullptr;
};
