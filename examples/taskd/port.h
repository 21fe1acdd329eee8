// The status port: one command a line over TCP, answered in lines; and the client that asks.
#pragma once

#include <atomic>
#include <cstdint>
#include <string>
#include <vector>

#include "scheduler.h"
#include "zu/zu.h"

// Serves `status`, `run NAME` and `stop` on threads of its own, so that no client delays a firing. The connection to a
// slow or silent client is closed after a few seconds, that to a babbling one after a line that is too long.
class status_port {
public:
    status_port(scheduler& tasks, std::atomic<bool>& stop) : tasks_(tasks), stop_(stop) {}
    ~status_port();
    status_port(const status_port&) = delete;
    status_port& operator=(const status_port&) = delete;

    bool open(uint16_t port);

private:
    static uint32_t accept_clients(void* self);
    static uint32_t serve_clients(void* self);
    void serve(ZU_trans* client);
    std::string answer(const std::string& command);

    scheduler& tasks_;
    std::atomic<bool>& stop_;
    std::atomic<bool> is_closing_{false};
    ZU_trans* server_ = nullptr;
    ZU_queue* clients_ = nullptr;
    std::vector<ZU_thread*> threads_;
};

// Sends one command to HOST:PORT and gives what comes back; throws `failed`.
std::string ask(const std::string& host_and_port, const std::string& command);
