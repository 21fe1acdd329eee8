// A task's rule in words, and the timer that it stands for.
#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "zu/zu.h"

// The exception for a rule that cannot be understood, with the reason as the report shows it.
struct misunderstood {
    std::string reason;
};

// A holiday calendar. It must outlive the timers that refer to it.
class calendar {
public:
    calendar() { ZU_timer_holidays_init(&record_); }
    ~calendar() { ZU_timer_holidays_destroy(&record_); }
    calendar(const calendar&) = delete;
    calendar& operator=(const calendar&) = delete;
    ZU_timer_holidays* record() { return &record_; }

private:
    ZU_timer_holidays record_;
};

struct destroy_timer {
    void operator()(ZU_timer* timer) const { timer->ops->destroy(timer); }
};
using timer_ptr = std::unique_ptr<ZU_timer, destroy_timer>;

// Makes the timer of the three fields of a line; fills the calendar with the holidays among the exclusions.
timer_ptr make_timer(std::string_view rule, std::string_view span, std::string_view exclusions,
                     calendar& holidays);

void print_rules();
