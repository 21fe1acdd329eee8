// The scheduler: a timer set that says when, and a few workers that do what is due.
#pragma once

#include <atomic>
#include <memory>
#include <string>
#include <vector>

#include "tasks.h"
#include "zu/zu.h"

class scheduler {
public:
    explicit scheduler(task_list list);
    ~scheduler(); // waits for the actions that run; a firing that waits is dropped with a warning
    scheduler(const scheduler&) = delete;
    scheduler& operator=(const scheduler&) = delete;

    bool start();

    // Any thread may call these two while the scheduler runs. They never wait for a worker.
    bool run_now(const std::string& name); // false if there is no such task
    std::string status();                  // a line for every task

private:
    struct entry; // a task and its latest result
    struct listed;
    struct firing;

    static void fire(void* user_data, ZU_timer* timer);
    static uint32_t work(void* self);
    static int32_t describe(void* lines, ZU_timer* timer, void* user_data, ZU_timer_callback);
    void carry_out(const firing& due);

    std::vector<std::unique_ptr<entry>> entries_;
    ZU_hash_table by_name_;
    ZU_queue* due_;
    std::vector<ZU_thread*> workers_;
    ZU_timer_set set_;
};
