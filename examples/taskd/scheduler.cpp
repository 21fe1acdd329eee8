#include "scheduler.h"

#include <cstddef>
#include <cstring>

#include "failed.h"
#include "journal.h"
#include "text.h"

// An item of the table of tasks: the key lies inside.
struct scheduler::listed {
    const char* name; // points to the task's name
    entry* what;
};

struct scheduler::entry {
    listed in_table;
    std::unique_ptr<task> job;
    scheduler* owner;
    ZU_timer* timer; // owned by the set
    std::atomic<unsigned> done{0};
    std::atomic<unsigned> failed{0};
};

// An item of the queue to the workers.
struct scheduler::firing {
    entry* what;
    ZU_time_t scheduled; // 0 for a firing by request
};

namespace {

constexpr int worker_count = 2;
constexpr int32_t most_waiting = 100;
constexpr uint32_t bucket_count = 61;

uint32_t hash_name(const void* key) {
    uint32_t hash = 5381;
    for (const char* at = *static_cast<const char* const*>(key); *at; ++at)
        hash = hash * 33 + static_cast<unsigned char>(*at);
    return hash;
}

int32_t compare_names(const void* key, const void* stored_key) {
    return std::strcmp(*static_cast<const char* const*>(key), *static_cast<const char* const*>(stored_key));
}

} // namespace

scheduler::scheduler(task_list list) : due_(ZU_queue_create(most_waiting)) {
    ZU_timer_set_init(&set_, 1, nullptr, nullptr);
    ZU_hash_table_init(&by_name_, bucket_count, offsetof(listed, name), hash_name, compare_names, nullptr);
    for (std::unique_ptr<task>& job : list.tasks) {
        auto added = std::make_unique<entry>();
        added->in_table = {job->name.c_str(), added.get()};
        added->owner = this;
        added->timer = job->timer.release();
        added->job = std::move(job);
        ZU_hash_table_insert(&by_name_, &added->in_table); // a second task of the same name is not inserted
        ZU_timer_set_add(&set_, added->timer, added.get(), fire);
        entries_.push_back(std::move(added));
    }
}

scheduler::~scheduler() {
    ZU_timer_set_destroy(&set_);
    for (void* waiting = nullptr; ZU_queue_pop(due_, &waiting, 0, nullptr);) {
        const std::unique_ptr<firing> due(static_cast<firing*>(waiting));
        warn(due->what->job->name + " was due, but taskd ends");
    }
    for (size_t i = 0; i < workers_.size(); ++i)
        ZU_queue_push(due_, nullptr, ZU_WAIT_INFINITE, nullptr); // ends one worker
    for (ZU_thread* worker : workers_)
        ZU_thread_wait_for_termination(worker, nullptr);
    ZU_queue_destroy(due_);
    ZU_hash_table_destroy(&by_name_);
}

bool scheduler::start() {
    for (int i = 0; i < worker_count; ++i) {
        if (ZU_thread* worker = ZU_thread_create(work, this))
            workers_.push_back(worker);
    }
    return !workers_.empty() && ZU_timer_set_startup(&set_);
}

bool scheduler::run_now(const std::string& name) {
    const char* key = name.c_str();
    void* found = nullptr;
    if (ZU_hash_table_find(&by_name_, &key, &found) != 0)
        return false;
    firing* asked = new firing{static_cast<listed*>(found)->what, 0};
    if (!ZU_queue_push(due_, asked, 0, nullptr)) {
        warn(name + " is asked for, but too much is waiting");
        delete asked;
    }
    return true;
}

std::string scheduler::status() {
    std::string lines;
    ZU_timer_set_enumerate(&set_, describe, &lines); // under the set's lock, where a timer may be asked
    return lines;
}

int32_t scheduler::describe(void* lines, ZU_timer* timer, void* user_data, ZU_timer_callback) {
    const auto* each = static_cast<const entry*>(user_data);
    *static_cast<std::string*>(lines) += each->job->name + ": " + std::to_string(each->done) + " done, "
                                         + std::to_string(each->failed) + " failed, next "
                                         + next_firing(timer) + "\n";
    return 0;
}

// Runs on the set's thread, and hands the task to a worker, so that a slow action delays no other task.
void scheduler::fire(void* user_data, ZU_timer* timer) {
    auto* each = static_cast<entry*>(user_data);
    auto* due = new firing{each, timer->last};
    if (ZU_queue_push(each->owner->due_, due, 0, nullptr))
        return;
    warn(each->job->name + " is due, but too much is waiting");
    delete due;
}

uint32_t scheduler::work(void* self) {
    auto* owner = static_cast<scheduler*>(self);
    void* next = nullptr;
    while (ZU_queue_pop(owner->due_, &next, ZU_WAIT_INFINITE, nullptr) && next) {
        const std::unique_ptr<firing> due(static_cast<firing*>(next));
        owner->carry_out(*due);
    }
    return 0;
}

void scheduler::carry_out(const firing& due) {
    const task& job = *due.what->job;
    const traced trace(ZU_W("carry_out"), job.name);
    const std::string opening =
        (due.scheduled ? local_time(due.scheduled) : "by request") + "  " + job.name + "  ";
    try {
        tell(opening + job.does->run(job.text));
        ++due.what->done;
    } catch (const failed& problem) {
        complain(opening + problem.reason);
        ++due.what->failed;
    }
}
